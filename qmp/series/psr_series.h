// The top level of a summation, shared by every family F: PSR_SeriesB<F> sizes the series for a
// precision, sums the terms k = 1..N with the one recursion (BSR<F>::BSR_S over [1, N+1) with
// only the outputs the top needs, its halves on two tasks while tds >= 2), lets the family
// turn the top outputs into the series value S = num / (den * 2^shift) (F::finish) and forms
//   V = ((CQ + CP * S) / CD)^power,   power = +1 or -1,
// as a fraction of two BigFloats of `words` + kGuardWords words (numerator / denominator),
// which the caller divides. Status lines: the family label, "<N> terms  (Expansion Factor =
// x.xxx)", "Summing: " with a running "Index: " and "Finishing Series".
// Memory: memory_bytes(env, words, tds) of 128-byte aligned scratch, sized before anything runs.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/numbers/big_float.h"
#include "qmp/series/bsr_engine.h"

namespace qmp::BinarySplitting {

// The linear map applied to the series sum before the power: (CQ + CP * S) / CD.
struct SeriesCoefficients {
    int64_t CP = 1;
    int64_t CQ = 0;
    int64_t CD = 1;
};

// S as the family leaves it: num / (den * 2^den_shift_bits).
struct SeriesFraction {
    Int num, den;
    uint64_t den_shift_bits = 0;
};

template <class F>
class PSR_SeriesB {
public:
    using Series = typename F::Series;
    static constexpr uint64_t kGuardWords = 2;

    // power must be 1 or -1: else InvalidParametersException "Power must be 1 or -1.".
    PSR_SeriesB(const Series& series, int power, SeriesCoefficients coefficients = {});

    uint64_t terms(uint64_t words) const;
    // Scratch for run() at `words` of precision on `tds` tasks.
    uint64_t memory_bytes(const MulEnv& env, uint64_t words, uint64_t tds) const;
    // Words each of the two result BigFloats needs.
    static uint64_t result_words(uint64_t words) { return words + kGuardWords; }

    // numerator / denominator = V (truncated operands, relative error below 2^(-64 words)).
    // Shows the status lines when `verbose`; `profile` (optional) receives block/merge times.
    void run(uint64_t words, const MulEnv& env, uint64_t tds, AlignedBufferC buffer, BigFloat<uint64_t>& numerator,
             BigFloat<uint64_t>& denominator, bool verbose = false, BSRProgress* profile = nullptr) const;

private:
    // The whole run in counting or running mode.
    void sum(uint64_t words, const MulEnv& env, uint64_t tds, WorkArena arena, BigFloat<uint64_t>* numerator,
             BigFloat<uint64_t>* denominator, bool verbose, BSRProgress* profile) const;

    const Series& series_;
    int power_;
    SeriesCoefficients coefficients_;
    // The last term count (the scan is not free at millions of terms).
    mutable uint64_t cached_words_ = 0, cached_terms_ = 0;
};

}  // namespace qmp::BinarySplitting
