// Products modulo B^N + 1 (B = 2^64) on the negacyclic FFT, with one operand's forward
// transform kept for reuse. A transform of M = m 2^k real points at b bits per point carries
// exactly N = M b / 64 words: its convolution is taken modulo X^M + 1 at X = 2^b, i.e. modulo
// 2^(M b) + 1 = B^N + 1, so a product longer than N words wraps around (negated) instead of
// needing a transform twice the size; a product of at most N words is the plain product.
// Newton steps use it where the wrapped words are known in advance, and to multiply a short
// partner by the same stored transform. Operands have at most N - 1 words. Digits are dithered
// at one bit per point below the table's (a wrapped coefficient can sum twice as many terms).
// Checks: the rounding distance of every coefficient (above 0.3 the product is redone once with
// fresh dither digits for the partner, or for A taken back from its transform in a square, and
// logged; a second failure is AlgorithmFailedException "Rounding error is too large.") and the
// range of the released sum ("Product has overrun its range."), both naming
// NegacyclicProduct::multiply() (or ::square()).
#pragma once

#include <cstdint>

#include "qmp/multiply/fft/plan.h"
#include "qmp/multiply/fft/transform.h"

namespace qmp {
class Parallelizer;
}

namespace qmp::fft {

class NegacyclicProduct {
public:
    // The smallest transform whose modulus has at least `min_words` words. Throws
    // LimitExceededException when no transform of the limit table is that large.
    explicit NegacyclicProduct(uint64_t min_words);
    // A given transform: `size.bits` at most the table's bits less one, and m 2^k b a multiple of
    // 64 (else InvalidParametersException "Invalid negacyclic transform size.").
    explicit NegacyclicProduct(const TransformSize& size);

    uint64_t modulus_words() const noexcept { return words_; }
    const TransformSize& size() const noexcept { return size_; }
    // Bytes of a stored forward transform (128-byte aligned buffer).
    uint64_t stored_bytes() const;
    // Scratch of forward() and multiply() (any alignment; 128 bytes of it go to alignment).
    uint64_t scratch_bytes() const;

    // T (stored_bytes(), 128-byte aligned) = the forward transform of A[0, AL), AL <= N - 1.
    void forward(void* T, const uint64_t* A, uint64_t AL, void* scratch, Parallelizer* parallelizer,
                 uint64_t tds) const;
    // C[0, N + 1) = A B mod (B^N + 1), the least non-negative residue (C[N] is 0 or 1), with A
    // given by its stored transform (left intact) and B[0, BL), BL <= N - 1. Returns the max
    // rounding distance.
    double multiply(uint64_t* C, const void* TA, const uint64_t* B, uint64_t BL, void* scratch,
                    Parallelizer* parallelizer, uint64_t tds) const;

    // C[0, N + 1) = A^2 mod (B^N + 1) from A's stored transform (left intact).
    double square(uint64_t* C, const void* TA, void* scratch, Parallelizer* parallelizer, uint64_t tds) const;

private:
    // Rounds and releases the inverse transform `points` (lying as `layout` says) into C as the
    // least residue.
    double release(uint64_t* C, const void* points, const PointLayout& layout, uint64_t* S,
                   Parallelizer* parallelizer, uint64_t tds, const char* function) const;

    TransformSize size_;
    uint64_t words_ = 0;
};

}  // namespace qmp::fft
