// Digit-count estimators: sizes converted between bits, words and decimal or hexadecimal digits
// by a constant factor, truncated toward zero (word_to_dec_si() rounds to nearest). Below 2^48
// a plain double product is exact enough (its error stays far below one unit); above it the
// product runs in double-double arithmetic with each factor parsed once from a long decimal
// string, good to about 2^-100 relative. Arguments of magnitude 2^62 or more are refused with
// InvalidParametersException "Argument is out of range." naming the estimator.
#pragma once

#include <cstdint>

namespace qmp {

// A double-double value hi + lo with |lo| <= ulp(hi) / 2.
struct DoubleDouble {
    double hi = 0.0;
    double lo = 0.0;
};

// Parses "I.F" (decimal digits, an optional point) into a double-double.
DoubleDouble parse_double_double(const char* text);
DoubleDouble dd_mul(DoubleDouble a, DoubleDouble b);
DoubleDouble dd_div(DoubleDouble a, DoubleDouble b);
// floor(a) as an integer; |a| < 2^62.
int64_t dd_floor(DoubleDouble a);

int64_t bit_to_dec_si(int64_t bits);       // bits * log10(2)
int64_t dec_to_hex_si(int64_t digits);     // decimal digits * log(10) / log(16)
uint64_t hex_to_dec_ui(uint64_t digits);   // hexadecimal digits * log10(16)
int64_t word_to_dec_si(int64_t words);     // 32-bit words * 32 log(2) / log(10), to nearest

}  // namespace qmp
