// Carry propagation. Parallel form of many carries: the carries are cut into up to
// min(tds, 64) groups of consecutive carries; group g owns the words from its first carry's
// offset up to the next group's first offset and adds its carries there, each propagating to
// the next carry's offset where its leftover joins that carry. The one carry that may leave a
// group's region is collected and the groups are then joined from the bottom up on the
// calling thread; such a join touches words only while they are all ones, which is rare.
#include "qmp/words/carry.h"

#include <algorithm>
#include <string>

#include "qmp/exception.h"
#include "qmp/words/word_array.h"
#include "qmp/parallel/parallelizer.h"

namespace qmp {
namespace {

constexpr uint64_t kMaxGroups = 64;
// Below this length carries are added on the calling thread: a carry usually dies within a
// word or two, so tasks would cost more than the work.
constexpr uint64_t kMinParallelWords = 1000;

// Adds carry source entries 0..count-1 (offset(k), carry(k)) into T[0, L); the offsets have
// been validated. Returns the carry out of the top.
template <typename W, typename Offset, typename Carry>
W add_carries(W* T, uint64_t L, uint64_t count, Offset offset, Carry carry,
              Parallelizer* parallelizer, uint64_t tds) {
    if (count == 0) return 0;
    // Adds entries [first, last) over the words [offset(first), end); returns the carry at end.
    auto add_range = [&](uint64_t first, uint64_t last, uint64_t end) {
        W pending = 0;
        for (uint64_t k = first; k < last; ++k) {
            const uint64_t start = offset(k), stop = k + 1 < last ? offset(k + 1) : end;
            W* seg = T + start;
            // Both cannot overflow out of the same segment: after a carry leaves it, the
            // segment holds at most carry - 1 < 2^w - 1 and absorbs the pending 1.
            const W c1 = add_1(seg, seg, stop - start, carry(k));
            const W c2 = add_1(seg, seg, stop - start, pending);
            pending = W(c1 + c2);
        }
        return pending;
    };
    const uint64_t groups = std::min({tds, count, kMaxGroups});
    if (parallelizer == nullptr || groups < 2 || L < kMinParallelWords) return add_range(0, count, L);

    auto first_of = [&](uint64_t g) { return count * g / groups; };
    auto end_of = [&](uint64_t g) { return g + 1 < groups ? offset(first_of(g + 1)) : L; };
    W out[kMaxGroups];
    parallelizer->run(groups, [&](uint64_t g) { out[g] = add_range(first_of(g), first_of(g + 1), end_of(g)); });
    W pending = 0;
    for (uint64_t g = 0; g < groups; ++g) {
        W* seg = T + offset(first_of(g));
        const W joined = add_1(seg, seg, end_of(g) - offset(first_of(g)), pending);
        pending = W(out[g] + joined);
    }
    return pending;
}

}  // namespace

template <typename W>
void add_carry(W* T, uint64_t L, W carry) {
    if (carry == 0) return;
    // Count the words the carry touches before changing any, so a failure leaves T intact.
    uint64_t required = 1;
    if (L > 0 && W(T[0] + carry) < carry) {
        while (required < L && T[required] == W(~W(0))) ++required;
        ++required;
    }
    if (required > L) {
        throw InvalidParametersException("add_carry()", "Block is too small: Required = " + std::to_string(required) +
                                                            ", Actual = " + std::to_string(L) + ".");
    }
    add_1(T, T, required, carry);
}

template <typename W>
W bp_add_multi_carry(W* T, uint64_t L, const CarryInfo<W>* carries, uint64_t count,
                     Parallelizer* parallelizer, uint64_t tds) {
    for (uint64_t k = 0; k < count; ++k) {
        if (carries[k].offset >= L) throw InvalidParametersException("bp_add_multi_carry()", "CarryInfo has invalid offset.");
        if (k > 0 && carries[k].offset <= carries[k - 1].offset)
            throw InvalidParametersException("bp_add_multi_carry()", "CarryInfo offsets are not increasing.");
    }
    return add_carries(
        T, L, count, [&](uint64_t k) { return carries[k].offset; }, [&](uint64_t k) { return carries[k].carry; },
        parallelizer, tds);
}

template <typename W>
W bp_add_carry_blocks(W* T, uint64_t L, const uint64_t* offsets, const W* carries, uint64_t blocks,
                      Parallelizer* parallelizer, uint64_t tds) {
    for (uint64_t k = 0; k < blocks; ++k) {
        const uint64_t next = k + 1 < blocks ? offsets[k + 1] : L;
        if (offsets[k] >= next) throw InvalidParametersException("bp_add_carry_blocks()", "Block offsets are not increasing.");
    }
    if (blocks == 0) return 0;
    // The carry of block k goes to the start of block k + 1.
    const W top = add_carries(
        T, L, blocks - 1, [&](uint64_t k) { return offsets[k + 1]; }, [&](uint64_t k) { return carries[k]; },
        parallelizer, tds);
    return W(top + carries[blocks - 1]);
}

template <typename W>
W bp_increment(W* T, uint64_t L, Parallelizer* parallelizer, uint64_t tds, uint64_t granularity_words) {
    const W ones = W(~W(0));
    const uint64_t pieces = granularity_words == 0 ? 1 : (L + granularity_words - 1) / granularity_words;
    if (parallelizer == nullptr || tds < 2 || pieces < 2) return add_1(T, T, L, W(1));
    // Each piece reports the index of its first word that is not all ones (or L). Pieces are
    // scanned tds at a time from the bottom so that a carry that dies early costs one round.
    uint64_t stop = L;
    const uint64_t round = std::min(tds, kMaxGroups);
    for (uint64_t base = 0; base < pieces && stop == L; base += round) {
        const uint64_t batch = std::min(round, pieces - base);
        uint64_t first[kMaxGroups];
        parallelizer->run(batch, [&](uint64_t i) {
            const uint64_t s = (base + i) * granularity_words, e = std::min(L, s + granularity_words);
            uint64_t j = s;
            while (j < e && T[j] == ones) ++j;
            first[i] = j < e ? j : L;
        });
        for (uint64_t i = 0; i < batch && stop == L; ++i) stop = first[i];
    }
    zero_words(T, stop);
    if (stop == L) return 1;
    ++T[stop];
    return 0;
}

#define QMP_INSTANTIATE(W)                                                                                    \
    template void add_carry<W>(W*, uint64_t, W);                                                              \
    template W bp_add_multi_carry<W>(W*, uint64_t, const CarryInfo<W>*, uint64_t, Parallelizer*, uint64_t);   \
    template W bp_add_carry_blocks<W>(W*, uint64_t, const uint64_t*, const W*, uint64_t, Parallelizer*, uint64_t); \
    template W bp_increment<W>(W*, uint64_t, Parallelizer*, uint64_t, uint64_t);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
