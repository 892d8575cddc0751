// The two digit-extraction formulas for pi, as data, and their evaluation at a hexadecimal
// position n in 128-bit fixed point:  frac(16^n pi) = frac(sum over terms, sum over k of
//   sign * (-1)^(k if alternating) * 2^(4n + exponent_offset - exponent_per_k * k) /
//   (modulus_per_k * k + modulus_offset)).
// Terms with a non-negative power of two ("head", k <= head_last) are fractions frac(2^e/m)
// summed by a term kernel; the rest ("tail") are below 1 and are summed directly until they
// drop under 2^-128. Every term evaluated is off by less than one unit of 2^-128 and the
// dropped remainder of each term series is under one unit, so a FormulaSum carries an exact
// bound on its error in those units.
#pragma once

#include <cstdint>
#include <vector>

#include "formulas/bbp/term_kernels.h"

namespace qv::bbp {

struct PowerTerm {
    int32_t exponent_offset;  // added to 4n
    uint64_t modulus_per_k;   // even
    uint64_t modulus_offset;  // odd
    bool negative;
};

struct DigitFormula {
    const char* name;
    uint64_t exponent_per_k;
    bool alternating;
    std::vector<PowerTerm> terms;
};

// pi = sum 16^-k (4/(8k+1) - 2/(8k+4) - 1/(8k+5) - 1/(8k+6)), with the even denominators
// reduced to odd ones (2/(8k+4) = 2^-1/(2k+1), 1/(8k+6) = 2^-1/(4k+3)).
const DigitFormula& bbp_formula();
// pi = 2^-6 sum (-1)^k 2^-10k (-2^5/(4k+1) - 1/(4k+3) + 2^8/(10k+1) - 2^6/(10k+3)
//                              - 2^2/(10k+5) - 2^2/(10k+7) + 1/(10k+9)): 7 terms per k but
// 10 bits per k, about 0.7 times the work of bbp_formula().
const DigitFormula& bellard_formula();

// The largest position the evaluation accepts: moduli and exponents stay below 2^63 and 2^62.
inline constexpr uint64_t kMaxHexPosition = 1000000000000000000ull;

struct FormulaSum {
    uint128 value = 0;        // frac(16^n pi) * 2^128, mod 2^128
    uint64_t error_units = 0;  // |value - exact| < error_units * 2^-128 (as a fraction)
    uint64_t terms = 0;        // terms evaluated

    FormulaSum& operator+=(const FormulaSum& other);
};

// One more than the last k with a non-negative exponent in any term (0 when none).
uint64_t head_k_count(const DigitFormula& formula, uint64_t position);
// Head terms of every series for k in [k_first, k_end), summed by `kernel` (with the portable
// kernel for moduli beyond its range).
FormulaSum sum_head(const DigitFormula& formula, uint64_t position, uint64_t k_first, uint64_t k_end,
                    const TermKernel& kernel);
// The tail terms of every series, with the bound for what is left out.
FormulaSum sum_tail(const DigitFormula& formula, uint64_t position);
// The number of head terms at `position` (for work estimates and progress).
uint64_t head_term_count(const DigitFormula& formula, uint64_t position);

// The exact-arithmetic value of one head term at k (no kernel): frac(2^e/m) * 2^128, signed.
uint128 head_term_value(const DigitFormula& formula, uint64_t position, uint64_t k, uint32_t term);

}  // namespace qv::bbp
