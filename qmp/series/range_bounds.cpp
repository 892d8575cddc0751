// Bit-length bounds of binary-splitting ranges (see range_bounds.h).
#include "qmp/series/range_bounds.h"

#include <algorithm>
#include <cmath>

namespace qmp::BinarySplitting {

namespace {

// Antiderivative of ln(x): x ln x - x. In double: at 2^40 terms the rounding is below 2^-10
// bits, which the relative margin of words_for_bits() covers many times.
double x_ln_x_minus_x(double x) { return x * std::log(x) - x; }

}  // namespace

double sum_log2_bound(uint64_t a, uint64_t b) {
    if (b <= a) return 0.0;
    // Short ranges: every term is at most log2(b - 1), one logarithm instead of two (the
    // recursion asks for millions of small ranges; the extra bits are a word or two at most).
    if (b - a <= kShortRangeTerms) return double(b - a) * std::log2(double(std::max<uint64_t>(b - 1, 1)));
    // log2 is increasing, so log2(k) <= integral of log2 over [k, k+1].
    const double nats = x_ln_x_minus_x(double(b)) - x_ln_x_minus_x(double(a));
    return nats * 1.4426950408889634;
}

double range_bits(const GrowthBound& g, uint64_t a, uint64_t b) {
    if (b <= a) return 0.0;
    return double(b - a) * g.log2_coefficient + g.degree * sum_log2_bound(a, b);
}

GrowthBound max_growth(const GrowthBound& x, const GrowthBound& y) {
    // max(cx + dx t, cy + dy t) <= max(cx, cy) + max(dx, dy) t for t = log2 k >= 0.
    return {std::max(x.log2_coefficient, y.log2_coefficient), std::max(x.degree, y.degree)};
}

uint64_t words_for_bits(double bits, uint64_t slack) {
    // A relative margin covers the rounding of the long double sums above.
    const double margin_bits = std::max(bits, 0.0) * (1.0 + 1e-12) + 1e-6;
    return uint64_t(margin_bits / 64.0) + 1 + slack;
}

}  // namespace qmp::BinarySplitting
