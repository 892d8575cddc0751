// The CommonP2B3 family: a range [a, b) of a PQRSeries yields P, Q, R with
//   Q = Q1 Q2,   R = R1 R2,   P = P1 Q2 + R1 P2        (1 = [a, m), 2 = [m, b))
// so that P/Q is the partial sum of the range (an alternating series carries its sign in R).
// Q is stored odd, as Q' 2^scale (BSRNode::scale), so P1 Q2 = (P1 Q2') << scale2 and the
// products see the smaller Q'.
// R is optional: the right-hand spine of the top of a recursion never uses it (mask bit kR).
// Capacities come from the series' growth bounds (range_bounds.h):
//   Q, R: their own sum of term bounds;
//   P:    log2(b - a) + sum of max(|Q(j)|, |R(j)|) bounds + the largest |P(k)| bound,
// since term k of P(a,b) is prod_{j<k} R(j) * P(k) * prod_{j>k} Q(j) and every factor >= 1.
// The merge runs its four products through bsr_arith; the shadow residues follow the same
// formula modulo 2^61 - 1.
#pragma once

#include <array>
#include <cstdint>

#include "qmp/series/bsr_arith.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/psr_series.h"
#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

struct CommonP2B3 {
    using Series = PQRSeries;
    static constexpr unsigned kOutputs = 3;
    enum : unsigned { kP = 0, kQ = 1, kR = 2 };
    static constexpr unsigned kAll = 7;
    // Outputs that the top of a summation needs (no R).
    static constexpr unsigned kTopMask = 3;
    static constexpr const char* kFamily = "BinarySplitting::CommonP2B3";
    static constexpr const char* kStatusLabel = "Series CommonP2B3...  ";
    // Q is kept odd: its powers of two go to the node's scale (for the pi series about 18 bits
    // of every term's ~110), and P1 Q2 is shifted by the right half's scale instead.
    static constexpr bool kStripsTwos = true;
    // Ranges of up to this many terms are leaves (hand-written or from term()).
    static constexpr uint64_t kLeafTerms = 2;

    // Merges on two tasks whose P operands are at most this long run their two groups of
    // products as two tasks; above it the transforms use both threads themselves (the FFT
    // hands work to a second thread from about 150k-word operands).
    static constexpr uint64_t kSideBySideMaxWords = 150000;

    using Caps = std::array<uint64_t, kOutputs>;
    static Caps caps(const Series& s, uint64_t a, uint64_t b);
    static unsigned left_mask(unsigned) { return kAll; }
    static unsigned right_mask(unsigned mask) { return mask | (1u << kP) | (1u << kQ); }

    // b - a <= kLeafTerms: the range values and their residues (from term_residues()).
    static void leaf(const Series& s, uint64_t a, uint64_t b, Int* out, uint64_t* shadow, unsigned mask);
    static void merge(const MergeSite<Series>& site, const Int* L, const Int* R, Int* out, unsigned mask,
                      const Caps& capL, const Caps& capR, WorkArena arena, const MulEnv& env);
    static void merge_shadow(const MergeSite<Series>& site, const uint64_t* L, const uint64_t* R, uint64_t* out,
                             unsigned mask);
    // S = num / (den 2^shift) from the top outputs (aliases or products carved from the arena).
    static void finish(const Series& s, uint64_t terms, BSRNode<CommonP2B3>& top, SeriesFraction& out, WorkArena& arena,
                       const MulEnv& env);
};

extern template class PSR_SeriesB<CommonP2B3>;

}  // namespace qmp::BinarySplitting
