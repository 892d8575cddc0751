// RemainderFloatB: a truncated fixed-point fraction of the scaled remainder tree, value
// sum_{i < precision} T[i] * 2^(64 (i - precision)) in [0, 1). Memory holds all `precision`
// words; L is the normalized length, so the precision - L words above it (the magnitude, tmag)
// are zero and products skip them. set_multiply_by_transform() forms src * P for a power P of
// the table and keeps only the window of the top `keep` fraction words (the right half's need),
// returning the integer part modulo 2^64: what the left half, read as one integer, must be.
// Errors: a window reaching below the product's bottom "Truncated Range", a stored length above
// the precision "Unexpected: tmag < 0" (both AlgorithmFailedException).
#pragma once

#include <cstdint>

#include "qmp/multiply/algorithm_table.h"

namespace qmp {

class Parallelizer;
class PowerTransform;

class RemainderFloatB {
public:
    uint64_t* T = nullptr;
    uint64_t precision = 0;
    uint64_t L = 0;

    RemainderFloatB() = default;
    // Views words[0, precision) and normalizes L.
    RemainderFloatB(uint64_t* words, uint64_t precision_words);

    bool is_zero() const noexcept { return L == 0; }
    // The top `keep` words (keep <= precision) as their own remainder: truncation toward zero.
    RemainderFloatB top(uint64_t keep) const;

    // this = top `keep` words of frac(src * P). C receives the product and must hold
    // src.precision + 1 words and P.product_words(src.L); this views C.
    uint64_t set_multiply_by_transform(const RemainderFloatB& src, const PowerTransform& P, uint64_t keep,
                                       uint64_t* C, uint64_t C_words, const AlgorithmTableB& table,
                                       void* scratch, uint64_t scratch_bytes, Parallelizer* parallelizer,
                                       uint64_t tds);
};

}  // namespace qmp
