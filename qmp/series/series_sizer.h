// Term counts of P/Q/R series and the index guards. scan_term_count() walks the terms
// t_k = [prod_{j<k} R(j)/Q(j)] * P(k)/Q(k) in floating point (mantissa and binary exponent
// kept apart, so no term under- or overflows) and returns the smallest N whose next term is
// below 2^(-64 words - 8) and whose following term is at most half of it, so that the tail
// sum after N is below 2^(-64 words - 6). check_series_index() refuses a summation whose last
// index or whose result exponent does not fit, before any term is computed.
#pragma once

#include <cstdint>

#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

// The smallest N as above; `function` names the sizer in the index-overflow errors. A term
// whose denominator Q(k) is zero is InvalidParametersException "Q(x) is zero at x = k.".
uint64_t scan_term_count(const PQRSeries& s, uint64_t words, const char* function);

// "Series index exceeded. Series summation will overflow a 64-bit integer." when the range
// [1, terms + 1) cannot be indexed; "... will overflow the BigFloat exponent." when the
// denominator's word count does not fit a BigFloat exponent. InvalidParametersException.
void check_series_index(const char* function, uint64_t terms, double denominator_bits);

}  // namespace qmp::BinarySplitting
