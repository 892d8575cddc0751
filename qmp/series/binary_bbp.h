// The BinaryBBP family: series whose terms are scaled by a power of two between neighbours,
//   S(a, b) = sum_{k in [a, b)} 2^(-e (k - a + 1)) * P(k) / Q(k)        (e = shift_bits())
// so the range value is P / (Q * 2^(e (b - a))) with
//   Q = Q1 Q2,   P = (P1 Q2) * 2^(e n2) + Q1 P2                           (n2 = b - m)
// The power of two is never stored: it is a shift of P1 Q2. R(k) of the series is not used
// (the term ratio's numerator is Q itself). P's capacity adds e (b - a) bits to the
// CommonP2B3 bound with |R| <= |Q|.
#pragma once

#include <array>
#include <cstdint>

#include "qmp/series/bsr_arith.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/psr_series.h"
#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

class BBPSeries : public PQRSeries {
public:
    // e: the bits of 2 by which each term is scaled down against the previous one.
    virtual uint64_t shift_bits() const = 0;
};

struct BinaryBBP {
    using Series = BBPSeries;
    static constexpr unsigned kOutputs = 2;
    enum : unsigned { kP = 0, kQ = 1 };
    static constexpr unsigned kAll = 3;
    static constexpr unsigned kTopMask = 3;
    static constexpr const char* kFamily = "BinarySplitting::BinaryBBP";
    static constexpr const char* kStatusLabel = "Series BinaryBBP...  ";
    static constexpr bool kStripsTwos = false;
    static constexpr uint64_t kLeafTerms = 1;

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
    static void finish(const Series& s, uint64_t terms, BSRNode<BinaryBBP>& top, SeriesFraction& out, WorkArena& arena,
                       const MulEnv& env);
};

extern template class PSR_SeriesB<BinaryBBP>;

}  // namespace qmp::BinarySplitting
