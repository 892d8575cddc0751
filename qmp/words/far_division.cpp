// Division of far arrays by one word: chunks of the buffer's capacity run from the top word
// down, each divided in the buffer by the parallel division (with its block self-check) and
// written back; the remainder carries from chunk to chunk. The (TL, AL) form divides A's words
// into the top AL words of T and then expands the remainder into the TL - AL words below.
#include "qmp/words/far_words.h"

#include <algorithm>

#include "qmp/words/far_work.h"
#include "qmp/words/parallel_division.h"

namespace qmp {
namespace {

template <typename W>
W expand(const FarWorkContext& ctx, uint64_t capacity, FarMemory& T, uint64_t t_offset, uint64_t L,
         const ShoupDivider<W>& div, W r) {
    W* buf = static_cast<W*>(ctx.buffer);
    for (uint64_t e = L; e > 0;) {
        const uint64_t len = std::min(capacity, e);
        r = bp_div_ex(buf, len, div, r, ctx.parallelizer, ctx.tds);
        detail::far_store(T, t_offset, e - len, buf, len);
        e -= len;
    }
    return r;
}

template <typename W>
void check_remainder(const char* function, W r, const ShoupDivider<W>& div) {
    if (r >= div.d) throw InvalidParametersException(function, "Top word is too large.");
}

}  // namespace

template <typename W>
W fm_div_ex(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, const ShoupDivider<W>& divider,
            W r) {
    check_remainder("fm_div_ex()", r, divider);
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_div_ex()", 1);
    return expand(ctx, capacity, T, t_offset, L, divider, r);
}

template <typename W>
W fm_div_np(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t TL, FarMemory& A, uint64_t a_offset,
            uint64_t AL, const ShoupDivider<W>& divider, W r) {
    if (TL < AL) throw InvalidParametersException("fm_div_np()", "TL < AL");
    check_remainder("fm_div_np()", r, divider);
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_div_np()", 1);
    const uint64_t shift = TL - AL;
    W* buf = static_cast<W*>(ctx.buffer);
    for (uint64_t e = AL; e > 0;) {
        const uint64_t len = std::min(capacity, e);
        detail::far_load(A, a_offset, e - len, buf, len);
        r = bp_div_np(buf, buf, len, divider, r, ctx.parallelizer, ctx.tds);
        detail::far_store(T, t_offset, shift + e - len, buf, len);
        e -= len;
    }
    return expand(ctx, capacity, T, t_offset, shift, divider, r);
}

template <typename W>
W fm_div_np(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, FarMemory& A, uint64_t a_offset, uint64_t L,
            const ShoupDivider<W>& divider, W r) {
    return fm_div_np(ctx, T, t_offset, L, A, a_offset, L, divider, r);
}

#define QMP_INSTANTIATE(W)                                                                                          \
    template W fm_div_ex<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, const ShoupDivider<W>&, W);      \
    template W fm_div_np<W>(const FarWorkContext&, FarMemory&, uint64_t, FarMemory&, uint64_t, uint64_t,            \
                            const ShoupDivider<W>&, W);                                                             \
    template W fm_div_np<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, FarMemory&, uint64_t, uint64_t,  \
                            const ShoupDivider<W>&, W);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
