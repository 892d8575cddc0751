// Words -> points: cuts a little-endian word array A[0, AL) into b-bit digits (digit t holds bits
// [t b, t b + b) of A) and writes them, as signed values in the chosen digit mode, into n complex
// points with right-angle packing: digit t < n goes to the real part of point t, digit n + t to
// the imaginary part of point t. The digit sequence is the integer A exactly (sum d_t 2^(t b)).
// Contract: 1 <= b <= 24; the digits of A plus one carry digit fit in 2n (split_digit_count());
// `points` holds n/8 blocks and is fully written (the unused digits are zero); no scratch.
// The result is identical for every parallelizer and task count.
#pragma once

#include <cstdint>

#include "qmp/multiply/fft/limit_table.h"
#include "qmp/multiply/fft/transform.h"

namespace qmp {
class Parallelizer;
}

namespace qmp::fft {

// The default seed of the dither: every operand uses the same one, so a transform stored for
// reuse is the same whoever the partner is (squaring is the measured worst case anyway).
constexpr uint64_t kDitherSeed = 0x5851f42d4c957f2dull;

// A dither seed for redoing a product whose rounding check failed: a random base drawn once per
// process, stepped by a counter and mixed, so it differs from the default seed and from every
// earlier retry, and no operand can be prepared in advance to defeat it (an operand whose digits
// sit on the default seed's thresholds is ordinary data under any other seed).
uint64_t fresh_dither_seed();

// Digits of an AL-word operand at `bits` per digit, not counting the carry digit.
inline uint64_t split_digit_count(uint64_t n_words, int bits) {
    return (n_words * 64 + bits - 1) / bits;
}

// The b-bit dither threshold of digit t: a counter-based hash (a multiplicative spread of t and
// the seed, then the murmur3 32-bit finalizer, which avalanches every input bit), so any task
// can compute it and 32-bit vector multiplies can batch it.
inline uint32_t dither_threshold(uint64_t seed, uint64_t t, int bits) {
    uint32_t h = static_cast<uint32_t>(t) * 0x9e3779b1u ^ static_cast<uint32_t>(t >> 32) * 0x85ebca77u ^
                 static_cast<uint32_t>(seed);
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h >> (32 - bits);
}

// Writes the points of A as described above. Throws InvalidParametersException when the digits
// do not fit ("Operand does not fit the transform.") or b is out of range.
void split_words(const uint64_t* A, uint64_t AL, int bits, DigitMode mode, Block* points,
                 uint64_t n_complex, Parallelizer* parallelizer, uint64_t tds,
                 uint64_t seed = kDitherSeed);

// The same points produced on demand, so that a transform can read its input while it runs
// instead of from a points buffer (transform.h, BlockSource). Construction plans the carry into
// every 64-digit group (one parallel pass over A, then an in-order fix-up of the range
// boundaries) into `carry_scratch` (scratch_bytes(n) bytes, owned by the caller, alive as long
// as the source). fill() then writes any blocks [first, first + count) with first and count
// multiples of 8, exactly the values split_words() writes there. n must be a multiple of 64
// (true of every transform size); the other contract and errors are split_words()'s.
class SplitSource final : public BlockSource {
public:
    SplitSource(const uint64_t* A, uint64_t AL, int bits, DigitMode mode, uint64_t n_complex,
                uint8_t* carry_scratch, Parallelizer* parallelizer, uint64_t tds,
                uint64_t seed = kDitherSeed);
    static uint64_t scratch_bytes(uint64_t n_complex);
    void fill(uint64_t first_block, uint64_t count, Block* out) const override;

private:
    const uint64_t* A_;
    uint64_t AL_;
    int bits_;
    DigitMode mode_;
    uint64_t n_;
    uint64_t seed_;
    uint8_t* carry_in_;
    uint64_t digits_ = 0;
    uint64_t planned_groups_ = 0;
};

}  // namespace qmp::fft
