// Character conversion. A byte's character is d + '0', plus 39 more for d > 9 (so that 10
// becomes 'a'); the inverse subtracts '0', then 39 (or 7 for capitals) from letters. Bad input
// is found after the loop from the largest value produced, so the loops have no branches.
#include "qmp/digitfiles/digit_chars.h"

#include "qmp/cpu_features.h"

#include <immintrin.h>

#include <algorithm>

namespace qmp {

namespace {

inline uint8_t char_value(uint8_t c) {
    if (c >= '0' && c <= '9') return uint8_t(c - '0');
    if (c >= 'a' && c <= 'f') return uint8_t(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return uint8_t(c - 'A' + 10);
    return 0xFF;
}

uint8_t to_chars_scalar(const char* raw, char* out, uint64_t n) {
    uint8_t largest = 0;
    for (uint64_t i = 0; i < n; ++i) {
        const uint8_t d = uint8_t(raw[i]);
        largest = std::max(largest, d);
        out[i] = char(d + '0' + (d > 9 ? 39 : 0));
    }
    return largest;
}

uint8_t to_chars_avx2(const char* raw, char* out, uint64_t n) {
    __m256i largest = _mm256_setzero_si256();
    const __m256i zero_char = _mm256_set1_epi8('0'), nine = _mm256_set1_epi8(9), gap = _mm256_set1_epi8(39);
    uint64_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(raw + i));
        largest = _mm256_max_epu8(largest, d);
        const __m256i letters = _mm256_and_si256(_mm256_cmpgt_epi8(d, nine), gap);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                            _mm256_add_epi8(_mm256_add_epi8(d, zero_char), letters));
    }
    alignas(32) uint8_t lanes[32];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), largest);
    uint8_t top = to_chars_scalar(raw + i, out + i, n - i);
    for (uint8_t v : lanes) top = std::max(top, v);
    return top;
}

uint8_t from_chars_scalar(const char* text, char* raw, uint64_t n) {
    uint8_t largest = 0;
    for (uint64_t i = 0; i < n; ++i) {
        const uint8_t v = char_value(uint8_t(text[i]));
        largest = std::max(largest, v);
        raw[i] = char(v);
    }
    return largest;
}

// Decimal text only: d = c - '0' must be below 10 for every byte. Other text goes the scalar way.
uint8_t from_dec_chars_avx2(const char* text, char* raw, uint64_t n) {
    __m256i largest = _mm256_setzero_si256();
    const __m256i zero_char = _mm256_set1_epi8('0');
    uint64_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i d = _mm256_sub_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i)), zero_char);
        largest = _mm256_max_epu8(largest, d);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(raw + i), d);
    }
    alignas(32) uint8_t lanes[32];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), largest);
    uint8_t top = from_chars_scalar(text + i, raw + i, n - i);
    for (uint8_t v : lanes) top = std::max(top, v);
    return top;
}

}  // namespace

bool digits_to_chars(uint32_t radix, const char* raw, char* out, uint64_t n) {
    const bool vector = active_simd_level() >= SimdLevel::AVX2;
    return (vector ? to_chars_avx2(raw, out, n) : to_chars_scalar(raw, out, n)) >= radix;
}

bool chars_to_digits(uint32_t radix, const char* text, char* raw, uint64_t n) {
    const bool vector = radix == 10 && active_simd_level() >= SimdLevel::AVX2;
    return (vector ? from_dec_chars_avx2(text, raw, n) : from_chars_scalar(text, raw, n)) >= radix;
}

}  // namespace qmp
