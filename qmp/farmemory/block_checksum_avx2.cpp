// The AVX2 checksum kernel: the scalar recurrence of block_checksum.cpp on the eight columns
// held in two registers of four. Per 64-byte step and register: a load, then per column
// fold(a * 2^16) (shift, mask, shift, add) plus 2 * w0 + w1 (mask, shift, shift, add).
#include "qmp/farmemory/block_checksum.h"

#include <immintrin.h>

namespace qmp {

namespace {

__attribute__((target("avx2"))) inline __m256i step_avx2(__m256i acc, __m256i v) {
    const __m256i p = _mm256_set1_epi64x(checksum_prime);
    const __m256i low32 = _mm256_set1_epi64x(0xffffffff);
    const __m256i shifted = _mm256_slli_epi64(acc, 16);
    const __m256i folded =
        _mm256_add_epi64(_mm256_and_si256(shifted, p), _mm256_srli_epi64(shifted, 31));
    const __m256i value = _mm256_add_epi64(_mm256_slli_epi64(_mm256_and_si256(v, low32), 1),
                                           _mm256_srli_epi64(v, 32));
    return _mm256_add_epi64(folded, value);
}

}  // namespace

__attribute__((target("avx2"))) uint32_t block_checksum_avx2(const void* block, size_t bytes,
                                                             uint32_t seed) {
    const char* p = static_cast<const char*>(block);
    __m256i low = _mm256_setzero_si256();   // columns 0..3
    __m256i high = _mm256_setzero_si256();  // columns 4..7
    for (size_t step = 0; step < bytes; step += 64) {
        low = step_avx2(low, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + step)));
        high = step_avx2(high, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + step + 32)));
    }
    alignas(32) uint64_t columns[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(columns), low);
    _mm256_store_si256(reinterpret_cast<__m256i*>(columns + 4), high);
    return detail::join_checksum_columns(columns, seed);
}

}  // namespace qmp
