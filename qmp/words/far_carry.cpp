// Carries into far arrays. A carry above the in-memory part is propagated in chunks that start
// at 64 words and double up to the buffer's capacity, so a carry that dies in the first word
// costs one small read and write while a long run of all-ones words still moves in large
// transfers. Within a chunk of 8192 words or more, the first 4 words are tried inline and the
// rest goes to bp_increment() with pieces of 8192 words.
#include "qmp/words/far_words.h"

#include <algorithm>

#include "qmp/words/carry.h"
#include "qmp/words/far_work.h"
#include "qmp/words/word_array.h"

namespace qmp {
namespace {

constexpr uint64_t kFirstChunkWords = 64;
constexpr uint64_t kInlineWords = 8192;
constexpr uint64_t kInlineTryWords = 4;

// Adds `carry` at word `pos` of T[0, TL) and propagates it; returns the carry out of the top.
template <typename W>
W propagate(const FarWorkContext& ctx, uint64_t capacity, FarMemory& T, uint64_t t_offset, uint64_t TL, uint64_t pos,
            W carry) {
    W* buf = static_cast<W*>(ctx.buffer);
    for (uint64_t chunk = kFirstChunkWords; carry != 0 && pos < TL; chunk *= 2) {
        const uint64_t len = std::min({chunk, capacity, TL - pos});
        detail::far_load(T, t_offset, pos, buf, len);
        if (len < kInlineWords) {
            carry = add_1(buf, buf, len, carry);
        } else {
            carry = add_1(buf, buf, kInlineTryWords, carry);
            if (carry != 0)
                carry = bp_increment(buf + kInlineTryWords, len - kInlineTryWords, ctx.parallelizer, ctx.tds, kInlineWords);
        }
        detail::far_store(T, t_offset, pos, buf, len);
        pos += len;
        chunk = std::min(chunk, capacity);  // keeps doubling from the cap without overflow
    }
    return carry;
}

}  // namespace

template <typename W>
W fm_add_ir(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t TL, const W* A, uint64_t AL,
            W carry_in) {
    if (AL > TL) throw InvalidParametersException("fm_add_ir()", "T is smaller than A.");
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_add_ir()", std::max<uint64_t>(AL, 1));
    W carry = carry_in;
    if (AL != 0) {
        W* buf = static_cast<W*>(ctx.buffer);
        detail::far_load(T, t_offset, 0, buf, AL);
        // T + A + carry_in may reach 2 * 2^(w AL) when carry_in > 1, so the carry is a word.
        const W c1 = add_n(buf, buf, A, AL);
        const W c2 = add_1(buf, buf, AL, carry_in);
        carry = W(c1 + c2);
        detail::far_store(T, t_offset, 0, buf, AL);
    }
    return propagate(ctx, capacity, T, t_offset, TL, AL, carry);
}

template <typename W>
W fm_add_carry_t(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t TL, W carry) {
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_add_carry_t()", 1);
    return propagate(ctx, capacity, T, t_offset, TL, 0, carry);
}

template <typename W>
W fm_ksr_carry_t(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, const uint64_t* offsets,
                 const W* carries, uint64_t blocks) {
    if (L == 0) throw InvalidParametersException("fm_ksr_carry_t()", "Length cannot be zero.");
    for (uint64_t k = 0; k < blocks; ++k) {
        const uint64_t next = k + 1 < blocks ? offsets[k + 1] : L;
        if (offsets[k] >= next) throw InvalidParametersException("fm_ksr_carry_t()", "Block offsets are not increasing.");
    }
    const uint64_t capacity = detail::far_capacity<W>(ctx, "fm_ksr_carry_t()", 1);
    if (blocks == 0) return 0;
    // Carries go in from the bottom up; one that runs past the next block's start simply
    // arrives before that block's own carry, which is then added to the updated words.
    W top = 0;
    for (uint64_t k = 0; k + 1 < blocks; ++k) top = W(top + propagate(ctx, capacity, T, t_offset, L, offsets[k + 1], carries[k]));
    return W(top + carries[blocks - 1]);
}

#define QMP_INSTANTIATE(W)                                                                                              \
    template W fm_add_ir<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, const W*, uint64_t, W);              \
    template W fm_add_carry_t<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, W);                             \
    template W fm_ksr_carry_t<W>(const FarWorkContext&, FarMemory&, uint64_t, uint64_t, const uint64_t*, const W*, uint64_t);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
