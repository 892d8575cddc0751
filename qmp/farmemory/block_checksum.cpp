// The scalar checksum kernel, the joining of the column accumulators and the choice of kernel.
// Accumulator bound: a column stays below 2^35. Each step computes fold(a * 2^16) + v where
// a < 2^35 gives a * 2^16 < 2^51, fold(x) = (x & p) + (x >> 31) < 2^31 + 2^20, and the folded
// 64-bit value v = 2 * w0 + w1 < 2^34; the sum is below 2^34 + 2^32 < 2^35.
#include "qmp/farmemory/block_checksum.h"

#include <cstring>

namespace qmp {

namespace {

inline uint64_t fold31(uint64_t x) { return (x & checksum_prime) + (x >> 31); }

// x mod p for x < 2^62.
inline uint64_t reduce31(uint64_t x) {
    x = fold31(x);
    x = fold31(x);
    return x >= checksum_prime ? x - checksum_prime : x;
}

}  // namespace

namespace detail {

uint32_t join_checksum_columns(const uint64_t columns[8], uint32_t seed) {
    uint64_t sum = 0;
    for (int j = 0; j < 8; ++j) sum += reduce31(columns[j]) << (2 * (7 - j));  // < 2^45 each
    // The block's value B, then B * 2^32 + seed = 2 * B + seed (mod p).
    const uint64_t block_value = reduce31(sum);
    return uint32_t(reduce31(2 * block_value + seed));
}

}  // namespace detail

uint32_t block_checksum_portable(const void* block, size_t bytes, uint32_t seed) {
    const unsigned char* p = static_cast<const unsigned char*>(block);
    uint64_t columns[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    for (size_t step = 0; step < bytes; step += 64) {
        for (int j = 0; j < 8; ++j) {
            uint64_t v;
            std::memcpy(&v, p + step + 8 * j, 8);
            const uint64_t value = 2 * (v & 0xffffffffu) + (v >> 32);
            columns[j] = fold31(columns[j] << 16) + value;
        }
    }
    return detail::join_checksum_columns(columns, seed);
}

uint32_t block_checksum(const void* block, size_t bytes, uint32_t seed, SimdLevel level) {
    switch (level) {
        case SimdLevel::AVX512: return block_checksum_avx512(block, bytes, seed);
        case SimdLevel::AVX2: return block_checksum_avx2(block, bytes, seed);
        case SimdLevel::Portable: break;
    }
    return block_checksum_portable(block, bytes, seed);
}

uint32_t block_checksum(const void* block, size_t bytes, uint32_t seed) {
    static const SimdLevel level = active_simd_level();
    return block_checksum(block, bytes, seed, level);
}

}  // namespace qmp
