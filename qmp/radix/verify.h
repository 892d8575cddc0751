// VerifyB: the hash that a radix conversion must reproduce, from the binary input alone. For
// x = I + F (I < 2^64 the integer word, F a fraction of f words) and d digits, hash_binary()
// returns floor(x * radix^d) mod p, p = 2^61 - 1. radix 10: the power 10^d = 5^d 2^d is built
// as 5^d by squarings through the multiplication table (the conversion's own path), checked
// against 10^d mod p by 64-bit modular exponentiation ("Power Hash Mismatch",
// AlgorithmFailedException, with "Radix Conversion: Power Hash Mismatch" and Expected/Actual
// lines on the console), then multiplied by x and shifted by d bits. radix 16: a shift, no
// product. Scratch: scratch_bytes().
#pragma once

#include <cstdint>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"

namespace qmp {

class Parallelizer;

class VerifyB {
public:
    // fraction_words: the words of F; digits: the largest d the verifier will be asked for.
    VerifyB(const AlgorithmTableB& table, uint32_t radix, uint64_t fraction_words, uint64_t digits);

    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }

    uint64_t hash_binary(uint64_t integer_part, const uint64_t* fraction, uint64_t fraction_words, uint64_t digits,
                         AlignedBufferC scratch, Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;

    // Test hook: when set, the computed power has one bit flipped before it is checked, so that
    // the power hash check must fire. Not for production use.
    static void set_power_fault_for_test(bool enabled);

private:
    const AlgorithmTableB* table_;
    uint32_t radix_;
    uint64_t fraction_words_;
    uint64_t digits_;
    uint64_t power_words_;
    uint64_t scratch_bytes_ = 0;
};

// floor(A * 2^-shift_bits) mod p for A[0, n).
uint64_t shifted_mod_m61(const uint64_t* A, uint64_t n, uint64_t shift_bits);

}  // namespace qmp
