// The choice of transform for a product: the smallest m * 2^k real points (m in 1, 3, 5, 7)
// whose measured bits per point b carry the product, i.e. ceil(64 P / b) + 2 <= m 2^k for a
// product of P = AL + BL words (each operand's digits plus its carry digit, so that the
// negacyclic product never wraps). The plan depends on P only, so a buffer sized from P fits
// every split of P into AL + BL. Each declined size records why (qmp::FFTv4::SkipReason).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qmp/multiply/fft/limit_table.h"

namespace qmp::fft {

enum class SkipReason : int {
    None = 0,
    BelowMinimumSize,     // the sub-transform would have fewer than 2^6 points
    BeyondLimitTable,     // no measured bits-per-point row for this size
    AboveMaximumSize,     // larger than this algorithm instance was built for
    ProductDoesNotFit,    // b * points cannot carry the product
};
const char* skip_reason_name(SkipReason reason);

struct TransformSize {
    int m = 1;
    int k = 0;
    int bits = 0;  // bits per point
    uint64_t real_points() const { return static_cast<uint64_t>(m) << k; }
    uint64_t complex_points() const { return real_points() / 2; }
    bool operator==(const TransformSize&) const = default;
};

struct PlanCandidate {
    TransformSize size;
    SkipReason reason = SkipReason::None;
};

// Smallest k per multiplier: the reduction leaves sub-transforms of 2^(k - d) >= 2^6 points.
int minimum_k(int m);
// Whether a transform of `size` carries a product of P words: ceil(64 P / b) + 2 <= points.
bool product_fits(const TransformSize& size, uint64_t product_words);

// The `skip`-th smallest size (0: the smallest) that carries the product, up to
// 2^max_log2_points real points; `size.bits == 0` when none does. Declined candidates smaller
// than the result are appended to `declined` when given. `skip` = 1 is the retry size.
// `forced_bits` > 0 replaces the table's bits per point (self-tests probe the margins).
TransformSize choose_transform(uint64_t product_words, DigitMode mode, int max_log2_points,
                               int skip = 0, std::vector<PlanCandidate>* declined = nullptr,
                               int forced_bits = 0);

// "m*2^k, b bits" for logs and reports.
std::string describe(const TransformSize& size);

}  // namespace qmp::fft
