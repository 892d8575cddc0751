// The AVX-512 checksum kernel: the eight columns in one register. One chain of dependent adds
// per step would leave the unit idle, so even and odd steps run as two chains, each advancing
// by 2^1024 = 2^32 = 2 (mod p) per pair of steps, joined at the end as even * 2^16 + odd
// (both below 2^36, see the bound in block_checksum.cpp; a doubled fold stays below 2^33).
#include "qmp/farmemory/block_checksum.h"

#include <immintrin.h>

#pragma GCC push_options
#pragma GCC target("avx512f")
// GCC 12's unmasked AVX-512 intrinsics pass an undefined vector as the merge source, which
// the uninitialized-use warnings report once inlined; the instructions ignore that operand.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"

namespace qmp {

namespace {

inline __m512i fold31(__m512i x) {
    return _mm512_add_epi64(_mm512_and_si512(x, _mm512_set1_epi64(checksum_prime)), _mm512_srli_epi64(x, 31));
}

// 2 * w0 + w1 for each 64-bit column value.
inline __m512i column_values(__m512i v) {
    return _mm512_add_epi64(_mm512_slli_epi64(_mm512_and_si512(v, _mm512_set1_epi64(0xffffffff)), 1),
                            _mm512_srli_epi64(v, 32));
}

}  // namespace

uint32_t block_checksum_avx512(const void* block, size_t bytes, uint32_t seed) {
    const char* p = static_cast<const char*>(block);
    __m512i even = _mm512_setzero_si512();
    __m512i odd = _mm512_setzero_si512();
    const size_t steps = bytes / 64;
    size_t step = 0;
    for (; step + 2 <= steps; step += 2) {
        const __m512i a = column_values(_mm512_loadu_si512(p + 64 * step));
        const __m512i b = column_values(_mm512_loadu_si512(p + 64 * step + 64));
        even = _mm512_add_epi64(_mm512_slli_epi64(fold31(even), 1), a);
        odd = _mm512_add_epi64(_mm512_slli_epi64(fold31(odd), 1), b);
    }
    __m512i acc = _mm512_add_epi64(fold31(_mm512_slli_epi64(even, 16)), odd);
    if (step < steps) {
        acc = _mm512_add_epi64(fold31(_mm512_slli_epi64(acc, 16)), column_values(_mm512_loadu_si512(p + 64 * step)));
    }
    alignas(64) uint64_t columns[8];
    _mm512_store_si512(columns, acc);
    return detail::join_checksum_columns(columns, seed);
}

}  // namespace qmp

#pragma GCC diagnostic pop
#pragma GCC pop_options
