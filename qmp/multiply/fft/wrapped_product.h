// WrappedProduct: a product A * B modulo 2^N + 1 (N = b bits per point times the real points)
// with B kept as a ready forward transform, for callers that want only the low words of a
// product whose high part they discard: the negacyclic convolution folds the high part H onto
// the bottom as -H, so with N >= 64 (kept words) the kept words come out as those of
// L - H (mod 2^N + 1), L = A * B mod 2^N. A caller whose discarded high part is shorter than
// its window's start sees at most a borrow of one unit at the window's bottom. The transform
// needs points for A alone, not for A + B: a middle product at two thirds of the full size.
// Bits per point: the limit table's less one, since A fills all points (norm up by sqrt 2).
// Checks: the distance of every coefficient to its integer; a failure is redone once with A
// split with fresh dither digits (logged), a second one is AlgorithmFailedException "Rounding
// error is too large." naming WrappedProduct::multiply().
#pragma once

#include <cstdint>

#include "qmp/multiply/fft/limit_table.h"
#include "qmp/multiply/fft/plan.h"
#include "qmp/multiply/fft/transform.h"

namespace qmp::fft {

class WrappedProduct {
public:
    // A of up to a_words words, B of up to b_words, the low kept_words of A * B mod 2^N + 1.
    // Throws LimitExceededException when no transform carries it. Transforms of at least
    // stream_min_points_bytes of points that can stream their input do (FFTv4's rule): the
    // operands are split inside the column pass and the inverse runs in place.
    WrappedProduct(uint64_t a_words, uint64_t b_words, uint64_t kept_words, DigitMode mode = DigitMode::Dithered,
                   uint64_t stream_min_points_bytes = uint64_t(16) << 20);

    const TransformSize& size() const noexcept { return size_; }
    uint64_t kept_words() const noexcept { return kept_words_; }
    // Bytes of a stored transform of B, and the scratch of forward_stored() and multiply().
    uint64_t transform_bytes() const noexcept { return work_bytes_; }
    uint64_t scratch_bytes() const noexcept;

    // T (transform_bytes(), 128-aligned) = the forward transform of B[0, BL).
    void forward_stored(void* T, const uint64_t* B, uint64_t BL, void* scratch, Parallelizer* p, uint64_t tds) const;
    // C[0, kept_words) = the low words of (A * B mod 2^N + 1) as described above; returns the
    // max distance of the coefficients to the integers.
    double multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const void* T, void* scratch, Parallelizer* p,
                    uint64_t tds) const;

private:
    uint64_t task_count(uint64_t tds) const noexcept;

    TransformSize size_;
    const Transform* transform_ = nullptr;
    DigitMode mode_;
    uint64_t a_words_;
    uint64_t b_words_;
    uint64_t kept_words_;
    uint64_t release_words_;  // words released from the points: N bits plus two words of carry
    uint64_t points_bytes_;
    uint64_t work_bytes_;
    bool streams_ = false;     // operands split inside the column pass, inverse in place
    uint64_t carry_bytes_ = 0;  // the streamed split's carry plan
    uint8_t* carries(char* base) const noexcept;
};

}  // namespace qmp::fft
