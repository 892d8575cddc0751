// The Hyperdescent family: series whose term ratio has a numerator of modulus one,
//   S(a, b) = sum_{k in [a, b)} s^(k - a + 1) / prod_{j=a}^{k} Q(j),      s = +1 or -1,
// with Q a polynomial whose values are single words (exp(+-1), cosh, sinh, 1/k!-type series).
// With |R| = 1 nothing of R is stored: the range value is P / Q with
//   Q = Q1 Q2,   P = P1 Q2 + s^(n1) P2                                     (n1 = m - a)
// so a merge costs two products instead of four. A leaf of up to kLeafTerms terms is word
// arithmetic only: from the right end, P <- s (Qacc + P), Qacc <- Qacc * Q(k) (one mul_1 per
// term), with Q(k) stepped by forward differences that binomial_row() initialises.
// binomial_coefficient_u64(n, k) = C(n, k) exactly (LimitExceededException "Binomial
// coefficient overflows 64 bits." when it does not fit); binomial_row(n, row) writes C(n, 0..n).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "qmp/series/bsr_arith.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/psr_series.h"
#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

uint64_t binomial_coefficient_u64(uint64_t n, uint64_t k);
void binomial_row(uint64_t n, uint64_t* row);

class HyperdescentSeries : public SplitRule {
public:
    // Q lowest degree first (degree <= 20), Q(k) >= 1 for k >= 1; sign +1 or -1.
    HyperdescentSeries(std::vector<int64_t> Q, int sign);

    int sign() const noexcept { return sign_; }
    const std::vector<int64_t>& q() const noexcept { return q_; }
    GrowthBound growth() const noexcept { return growth_; }
    // Q(k) as one word; LimitExceededException "Hyperdescent term exceeds one word." otherwise.
    uint64_t q_at(uint64_t k) const;
    uint64_t q_residue(uint64_t k) const;
    // Smallest N with prod_{j<=N+1} Q(j) >= 2^(64 words + 8) (and a shrinking tail).
    uint64_t terms_for_words(uint64_t words) const;

private:
    std::vector<int64_t> q_;
    int sign_;
    GrowthBound growth_;
};

struct Hyperdescent {
    using Series = HyperdescentSeries;
    static constexpr unsigned kOutputs = 2;
    enum : unsigned { kP = 0, kQ = 1 };
    static constexpr unsigned kAll = 3;
    static constexpr unsigned kTopMask = 3;
    static constexpr const char* kFamily = "BinarySplitting::Hyperdescent";
    static constexpr const char* kStatusLabel = "Series Hyperdescent...  ";
    static constexpr bool kStripsTwos = false;
    static constexpr uint64_t kLeafTerms = 24;

    using Caps = std::array<uint64_t, kOutputs>;
    static Caps caps(const Series& s, uint64_t a, uint64_t b);
    static unsigned left_mask(unsigned) { return kAll; }
    static unsigned right_mask(unsigned) { return kAll; }
    static void leaf(const Series& s, uint64_t a, uint64_t b, Int* out, uint64_t* shadow, unsigned mask);
    static void merge(const MergeSite<Series>& site, const Int* L, const Int* R, Int* out, unsigned mask,
                      const Caps& capL, const Caps& capR, WorkArena arena, const MulEnv& env);
    static void merge_shadow(const MergeSite<Series>& site, const uint64_t* L, const uint64_t* R, uint64_t* out,
                             unsigned mask);
    // S = num / (den 2^shift) from the top outputs (aliases or products carved from the arena).
    static void finish(const Series& s, uint64_t terms, BSRNode<Hyperdescent>& top, SeriesFraction& out, WorkArena& arena,
                       const MulEnv& env);
};

extern template class PSR_SeriesB<Hyperdescent>;

}  // namespace qmp::BinarySplitting
