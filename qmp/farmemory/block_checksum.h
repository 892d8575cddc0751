// Checksums of stripe blocks. The checksum of a block of W bytes (W a multiple of 64) is the
// block read as one big integer, its W / 4 little-endian 32-bit words taken in order as
// base-2^32 digits with the first word most significant, followed by one more digit, the
// 32-bit per-file seed, all reduced modulo the prime p = 2^31 - 1: a value in [0, p).
// Since 2^32 = 2 (mod p), a 64-bit value made of words (w0, w1) counts as 2 * w0 + w1, and
// moving 64 bytes further multiplies by 2^512 = 2^16 (mod p). The kernels run eight 64-bit
// accumulators, one per 8-byte column of a 64-byte step, and join them at the end with the
// column weights 2^(64 * (7 - j)) = 2^(2 * (7 - j)) (mod p). A value of p or more is never a
// checksum, so the all-ones word marks a block that has no checksum yet.
#pragma once

#include "qmp/cpu_features.h"

#include <cstddef>
#include <cstdint>

namespace qmp {

constexpr uint32_t checksum_prime = 0x7fffffffu;  // 2^31 - 1
constexpr uint32_t checksum_unwritten = 0xffffffffu;

// The scalar reference (plain C++); every vector kernel must agree with it bit for bit.
uint32_t block_checksum_portable(const void* block, size_t bytes, uint32_t seed);
// The kernels compiled for AVX2 and AVX-512 (callers check the processor first).
uint32_t block_checksum_avx2(const void* block, size_t bytes, uint32_t seed);
uint32_t block_checksum_avx512(const void* block, size_t bytes, uint32_t seed);

// The kernel of the given level (a level above the processor's is not checked here).
uint32_t block_checksum(const void* block, size_t bytes, uint32_t seed, SimdLevel level);
// The kernel of active_simd_level().
uint32_t block_checksum(const void* block, size_t bytes, uint32_t seed);

namespace detail {
// Joins the eight column accumulators (each below 2^36) and the seed into the checksum.
uint32_t join_checksum_columns(const uint64_t columns[8], uint32_t seed);
}  // namespace detail

}  // namespace qmp
