// Kernels that sum fractional parts frac(2^e / m) of a run of terms in 128-bit fixed point:
//   sum = sum_i sign_i * frac(2^e_i / m_i) * 2^128   (mod 2^128, each term truncated)
// over an arithmetic progression e_i = e_0 - i*de, m_i = m_0 + i*dm (i < count, all e_i >= 0,
// m_i odd). Each kernel computes 2^e mod m by left-to-right binary powering and turns the
// residue into fraction bits without a division (derivation in term_kernel_portable.cpp). Three kernels share
// one contract: the portable one (the reference, odd m < 2^63), AVX2 with FMA doubles and
// AVX-512 IFMA (odd m < 2^50). A progression whose moduli leave a kernel's range is refused
// with InvalidParametersException before any work. Error: every term is below its exact value
// by less than 2^-128 (positive terms) or above it by less (negative terms); all kernels
// truncate alike, so equal runs give equal sums bit for bit.
#pragma once

#include <cstdint>

namespace qv::bbp {

using uint128 = unsigned __int128;

struct TermProgression {
    uint64_t exponent_first = 0;  // e_0
    uint64_t exponent_step = 0;   // de: e_i = e_0 - i*de, so e_{count-1} must be >= 0
    uint64_t modulus_first = 1;   // m_0, odd
    uint64_t modulus_step = 0;    // dm, even (so every m_i stays odd)
    uint64_t count = 0;
    bool negative_first = false;  // sign of term 0
    bool alternating = false;     // signs flip from one term to the next

    uint64_t modulus_last() const { return modulus_first + (count - 1) * modulus_step; }
    bool negative(uint64_t i) const { return negative_first != (alternating && (i & 1) != 0); }
};

using TermKernelFunction = uint128 (*)(const TermProgression& run);

struct TermKernel {
    const char* name;            // "portable", "avx2-fma", "avx512-ifma"
    uint64_t modulus_limit;      // exclusive bound on the moduli it accepts
    TermKernelFunction sum;      // no checks: call through sum_terms()
};

const TermKernel& portable_term_kernel();
const TermKernel& avx2_term_kernel();
// Only where the processor has AVX-512 IFMA (has_avx512_ifma()); otherwise nullptr.
const TermKernel* avx512_ifma_term_kernel();

// The fastest kernel the active instruction-set level allows (QMP_SIMD lowers it).
const TermKernel& active_term_kernel();

// Checks that `run` is valid for `kernel` (moduli odd and in range, exponents non-negative)
// and sums it. Throws InvalidParametersException under "TermKernel::sum()".
uint128 sum_terms(const TermKernel& kernel, const TermProgression& run);

// Sums `run` with `fast` where its moduli allow and with the portable kernel for the rest
// (the moduli grow along the run, so the split is one cut).
uint128 sum_terms_split(const TermKernel& fast, const TermProgression& run);

}  // namespace qv::bbp
