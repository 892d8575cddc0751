// The BrentMcMillanAB family: the pair of series of the Euler-Mascheroni constant for n = 2^k,
//   B = sum_{j>=0} (n^j / j!)^2,   U = sum_{j>=0} (n^j / j!)^2 H_j,   H_j = 1 + 1/2 + ... + 1/j,
// summed over j = 1..K (the j = 0 terms are B: 1, U: 0). Per term: R = n^2, Q = j^2, D = j,
// C = 1, P = n^2, V = n^2; merge (1 = [a, m), 2 = [m, b)):
//   R = R1 R2, Q = Q1 Q2, D = D1 D2, C = C1 D2 + C2 D1, P = P1 Q2 + R1 P2,
//   V = V1 Q2 D2 + R1 (V2 D1 + C1 D2 P2)
// so that B = 1 + P/Q and U = V/(Q D) over [1, K + 1). Capacities (M_j = max(n^2, j^2)):
//   Q: sum 2 log2 j;  D: sum log2 j;  R: 2k (b - a);  C: log2(b - a) + sum log2 j;
//   P: log2(b - a) + sum log2 M_j;  V: 2 log2(b - a) + sum log2 M_j + sum log2 j,
// each an induction over the merge. SeriesSizer() sizes n and K for a precision.
#pragma once

#include <array>
#include <cstdint>

#include "qmp/series/bsr_arith.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/psr_series.h"
#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

// n = 2^log2_n, summed over `terms` terms (BrentMcMillanAB::SeriesSizer() gives both).
class BrentMcMillanSeries : public SplitRule {
public:
    explicit BrentMcMillanSeries(uint32_t log2_n, uint64_t terms = 0) : log2_n_(log2_n), terms_(terms) {}
    uint32_t log2_n() const noexcept { return log2_n_; }
    uint64_t terms_for_words(uint64_t) const noexcept { return terms_; }

private:
    uint32_t log2_n_;
    uint64_t terms_;
};

struct BrentMcMillanAB {
    using Series = BrentMcMillanSeries;
    static constexpr unsigned kOutputs = 6;
    enum : unsigned { kP = 0, kQ = 1, kR = 2, kD = 3, kC = 4, kV = 5 };
    static constexpr unsigned kAll = 63;
    static constexpr unsigned kTopMask = kAll & ~(1u << kR);
    static constexpr const char* kFamily = "BinarySplitting::BrentMcMillanAB";
    static constexpr const char* kStatusLabel = "Series A and B...  ";
    static constexpr bool kStripsTwos = false;
    static constexpr uint64_t kLeafTerms = 1;

    // The refined form: error about e^(-8n); n = 2^k is the smallest with 8 n >= the precision
    // in nats plus guard, K from alpha (ln alpha - 1) = 3 checked against Stirling's formula.
    struct Size {
        uint32_t log2_n;
        uint64_t terms;
    };
    static Size SeriesSizer(uint64_t words);

    using Caps = std::array<uint64_t, kOutputs>;
    static Caps caps(const Series& s, uint64_t a, uint64_t b);
    static unsigned left_mask(unsigned) { return kAll; }
    static unsigned right_mask(unsigned mask) { return mask | kTopMask; }
    static void leaf(const Series& s, uint64_t a, uint64_t b, Int* out, uint64_t* shadow, unsigned mask);
    static void merge(const MergeSite<Series>& site, const Int* L, const Int* R, Int* out, unsigned mask,
                      const Caps& capL, const Caps& capR, WorkArena arena, const MulEnv& env);
    static void merge_shadow(const MergeSite<Series>& site, const uint64_t* L, const uint64_t* R, uint64_t* out,
                             unsigned mask);
    // S = num / (den 2^shift) from the top outputs (aliases or products carved from the arena).
    static void finish(const Series& s, uint64_t terms, BSRNode<BrentMcMillanAB>& top, SeriesFraction& out, WorkArena& arena,
                       const MulEnv& env);
};

extern template class PSR_SeriesB<BrentMcMillanAB>;

}  // namespace qmp::BinarySplitting
