// A fraction of 1 known to lie within an interval: value * 2^-128 +- error_units * 2^-128,
// taken around the circle [0, 1). The hexadecimal digits it fixes are the leading digits that
// the interval's two ends share, none when it wraps past 0. Two formulas' results agree when
// their intervals overlap; what both allow is their intersection.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "formulas/bbp/term_kernels.h"

namespace qv::bbp {

struct HexInterval {
    uint128 low = 0;   // smallest value allowed, in units of 2^-128
    uint128 high = 0;  // largest; high < low when the interval wraps past 0
    bool whole_circle = false;

    static HexInterval around(uint128 value, uint64_t error_units);
    // Number of leading hexadecimal digits fixed (0 to 32).
    int certain_digits() const;
    // The first `count` digits (lower case), count <= certain_digits().
    std::string digits(int count) const;
};

// The overlap of two intervals, nothing when they are disjoint. Intervals here are far shorter
// than half the circle, so the overlap is one interval.
std::optional<HexInterval> intersect(const HexInterval& a, const HexInterval& b);

// The 32 hexadecimal digits of a 128-bit fraction (lower case).
std::string hex128(uint128 value);

}  // namespace qv::bbp
