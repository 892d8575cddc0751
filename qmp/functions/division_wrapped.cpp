// The folded last step of a large division on products modulo B^N + 1 that share stored
// transforms (64-bit words; division.cpp picks it from wrapped_min_p words up).
//
// With y = 1/b to h words, the three products of the step are q0 = a_h y (at most 2 h + 5
// words), b q0 (about 1.5 p words, of which the residual window needs the words below
// T = top(a) - h + 2) and y r (at most p + 8 words). One modulus of N >= p + 9 words holds the
// first and the last whole (no wrap) with y's transform stored once; b q0 is taken modulo
// B^N + 1, where its words above index N are those of a up to one unit: b q0 = a - r with
// |r| < B^(T-1), so adding a's words above index N back (H = floor(a / B^N) in b q0's units)
// leaves its low N words exact but for at most one unit at index 0, which lies below the
// window (the window starts at index h + 2 or lower, and a carry from index 0 through the
// words below the window changes r by one unit of its last word).
#include <algorithm>

#include "qmp/functions/newton_core.h"
#include "qmp/multiply/fft/negacyclic_product.h"

namespace qmp::detail {

namespace {

using Float = BigFloat<uint64_t>;

constexpr uint64_t modulus_min_words(uint64_t p) { return p + 9; }

}  // namespace

// [ stored y | stored q0 | q0, R, C (N + 1 words each) | window A, window P (n words each) |
//   product scratch ]
uint64_t division_finish_wrapped_bytes(uint64_t p) {
    const fft::NegacyclicProduct np(modulus_min_words(p));
    const uint64_t N = np.modulus_words(), n = folded_window(p);
    return 2 * np.stored_bytes() + 3 * words_bytes<uint64_t>(N + 1) + 2 * words_bytes<uint64_t>(n) +
           np.scratch_bytes();
}

void division_finish_wrapped(Float& q, const Float& a, const Float& b, const Float& y, uint64_t p,
                             const ProductRunner<uint64_t>& mul, AlignedBufferC scratch) {
    const fft::NegacyclicProduct np(modulus_min_words(p));
    const uint64_t N = np.modulus_words(), h = folded_half(p), n = folded_window(p);
    void* Ty = scratch.extract(np.stored_bytes());
    void* Tq = scratch.extract(np.stored_bytes());
    uint64_t* Q0 = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* R = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* C = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* RA = scratch.extract_aligned<uint64_t>(n);
    uint64_t* RB = scratch.extract_aligned<uint64_t>(n);
    void* work = scratch.data();

    // q0 = a y to h + 2 words.
    np.forward(Ty, y.T, y.L, work, mul.parallelizer, mul.tds);
    const Float ah = top_view(a, h + 2);
    np.multiply(Q0, Ty, ah.T, ah.L, work, mul.parallelizer, mul.tds);
    const Float q0 = top_view(word_view(Q0, N + 1, ah.exp + y.exp), h + 2);

    // b q0 mod (B^N + 1), then a's words above index N added back.
    const Float bt = top_view(b, p + 3), at = top_view(a, p + 3);
    np.forward(Tq, q0.T, q0.L, work, mul.parallelizer, mul.tds);
    np.multiply(R, Tq, bt.T, bt.L, work, mul.parallelizer, mul.tds);
    const int64_t pe = bt.exp + q0.exp, iN = pe + int64_t(N);
    if (at.top() > iN) {
        // a's words from index N up (a short a may start above index N).
        const int64_t first = std::max(iN, at.exp);
        const uint64_t offset = uint64_t(first - iN), from = uint64_t(first - at.exp);
        add(R + offset, R + offset, N + 1 - offset, at.T + from, at.L - from);
        if (R[N] != 0 && !is_zero(R, N)) {  // >= B^N + 1: subtract it once
            sub_1(R, R, N, uint64_t(1));
            R[N] -= 1;
        }
    }
    const int64_t lo = at.top() - int64_t(p) - 3;
    const bool negative = residual_window(RA, RB, n, lo, at, R, N, pe, p, h, mul.function);
    const Float r = word_view(RA, n, lo);
    if (r.L == 0) {
        q.set_BigFloat(q0, p + 2);
        return;
    }
    // q = q0 +- y |r|.
    np.multiply(C, Ty, r.T, r.L, work, mul.parallelizer, mul.tds);
    const Float correction = word_view(C, N + 1, y.exp + r.exp);
    if (negative)
        q.set_usub(q0, correction, p + 2);
    else
        q.set_uadd(q0, correction, p + 2);
    truncate_top(q, p + 2);
}

}  // namespace qmp::detail
