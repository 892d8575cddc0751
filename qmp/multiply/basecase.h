// Schoolbook products of little-endian 64-bit word arrays, the leaves of every larger method.
//   mul_basecase: C[0, AL + BL) = A * B for AL >= BL >= 1.
//   sqr_basecase: C[0, 2 AL) = A^2 for AL >= 1; each cross product a_i a_j (i < j) is formed
//                 once and doubled, so a square costs about half a product.
// C must not overlap A or B. No scratch, no allocation, no exceptions: callers check sizes.
#pragma once

#include <cstdint>

namespace qmp {

// Whether the rows run in the ADX kernel (detected through CPUID, off under QMP_SIMD=portable).
// set_basecase_adx() switches kernels for tests and tuning; it cannot enable ADX on a processor
// without it, and must not be called while products run on other threads.
bool basecase_adx_enabled();
void set_basecase_adx(bool enabled);

void mul_basecase(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL);
void sqr_basecase(uint64_t* C, const uint64_t* A, uint64_t AL);

}  // namespace qmp
