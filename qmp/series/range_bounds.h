// Upper bounds on the bit lengths of binary-splitting outputs over a term range [a, b), built
// from per-term growth bounds log2|X(k)| <= c + d*log2(k). The sums of log2(k) are bounded by
// the integral of log2(x) over [a, b) (short ranges by their largest term). Any upper bound
// serves: a product has at least (bits1 + bits2 - 1) bits, so the halves' lengths add up to at
// most the parent's bound / 64 + 2 words, which words_for_bits() leaves room for.
#pragma once

#include <cstdint>

#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

// Ranges of at most this many terms are bounded by their largest term.
inline constexpr uint64_t kShortRangeTerms = 64;

// Upper bound of sum_{k=a}^{b-1} log2(k), 1 <= a <= b.
double sum_log2_bound(uint64_t a, uint64_t b);

// sum over k in [a, b) of the growth bound.
double range_bits(const GrowthBound& g, uint64_t a, uint64_t b);

// The larger of two growth bounds, term by term (k >= 1).
GrowthBound max_growth(const GrowthBound& x, const GrowthBound& y);

// Words that certainly hold a value below 2^bits, with `slack` extra words for the products
// and sums whose length is the sum of the operand lengths.
uint64_t words_for_bits(double bits, uint64_t slack);

}  // namespace qmp::BinarySplitting
