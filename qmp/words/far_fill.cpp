// Whole-array streaming on far arrays: zero, fill, copy, strip top words and hash. Fill and
// zero prepare the buffer once and store it repeatedly; copy picks its direction so that
// overlapping ranges of one object copy correctly; strip reads from the top in chunks growing
// from 64 words (few words are usually stripped); the hash combines per-chunk residues modulo
// 2^61 - 1 from the top chunk down, multiplying by 2^(bits of the chunk) each time.
#include "qmp/words/far_words.h"

#include <algorithm>

#include "qmp/words/far_work.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp {
namespace {

template <typename W>
void store_repeated(const FarWorkContext& ctx, const char* function, FarMemory& T, uint64_t t_offset, uint64_t L,
                    W x) {
    const uint64_t capacity = detail::far_capacity<W>(ctx, function, 1);
    W* buf = static_cast<W*>(ctx.buffer);
    fill_words(buf, std::min(capacity, L), x);
    for (uint64_t s = 0; s < L;) {
        const uint64_t len = std::min(capacity, L - s);
        detail::far_store(T, t_offset, s, buf, len);
        s += len;
    }
}

}  // namespace

template <typename W>
void fm_setzero(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L) {
    store_repeated<W>(ctx, "fm_setzero()", T, t_offset, L, W(0));
}

template <typename W>
void fm_fill(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, W x) {
    store_repeated<W>(ctx, "fm_fill()", T, t_offset, L, x);
}

template <typename W>
void fm_copy(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, FarMemory& A, uint64_t a_offset, uint64_t L) {
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_copy()", 1);
    W* buf = static_cast<W*>(ctx.buffer);
    // Copying upward within one object must start at the top, or it would overwrite words
    // that are still to be read.
    const bool downward = &T == &A && t_offset > a_offset;
    for (uint64_t done = 0; done < L;) {
        const uint64_t len = std::min(capacity, L - done);
        const uint64_t s = downward ? L - done - len : done;
        detail::far_load(A, a_offset, s, buf, len);
        detail::far_store(T, t_offset, s, buf, len);
        done += len;
    }
}

template <typename W>
uint64_t fm_strip_leading(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, W value) {
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_strip_leading()", 1);
    W* buf = static_cast<W*>(ctx.buffer);
    for (uint64_t chunk = 64; L > 0; chunk = std::min(chunk, capacity) * 2) {
        const uint64_t len = std::min({chunk, capacity, L});
        detail::far_load(T, t_offset, L - len, buf, len);
        uint64_t kept = len;
        while (kept > 0 && buf[kept - 1] == value) --kept;
        L -= len - kept;
        if (kept != 0) break;
    }
    return L;
}

template <typename W>
uint64_t fm_hash(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L) {
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_hash()", 1);
    W* buf = static_cast<W*>(ctx.buffer);
    uint64_t h = 0;
    for (uint64_t e = L; e > 0;) {
        const uint64_t len = std::min(capacity, e);
        detail::far_load(T, t_offset, e - len, buf, len);
        h = add_m61(mul_pow2_m61(h, len * sizeof(W) * 8), mod_m61(buf, len));
        e -= len;
    }
    return h;
}

#define QMP_INSTANTIATE(W)                                                                                    \
    template void fm_setzero<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t);                       \
    template void fm_fill<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, W);                       \
    template void fm_copy<W>(const FarWorkContext&, FarMemory&, uint64_t, FarMemory&, uint64_t, uint64_t);    \
    template uint64_t fm_strip_leading<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, W);          \
    template uint64_t fm_hash<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
