// AVX-512 packing kernels (F, BW, DQ, VL), compiled with their own target attribute and chosen
// at run time: eight words per step in two (packing) or one (unpacking) 512-bit registers, the
// same lane arithmetic as the AVX2 kernels with 64-bit multiplies for the top decimal digits
// and cross-lane permutes instead of 128-bit shuffles. Tails use the single-word helpers.
#include "qmp/digitfiles/digit_pack.h"

#include <immintrin.h>

#include <cstring>

#pragma GCC push_options
#pragma GCC target("avx512f,avx512dq,avx512bw,avx512vl")
// GCC 12's unmasked AVX-512 intrinsics pass an undefined vector as the merge source, which
// -Wmaybe-uninitialized reports once inlined; the instructions ignore that operand.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

namespace qmp::detail {
namespace {

constexpr uint64_t kTen8 = 100000000ull;
constexpr uint64_t kTen16 = 10000000000000000ull;

inline __m512i load4x128(const char* p0, const char* p1, const char* p2, const char* p3) {
    const __m256i lo = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(p1),
                                           reinterpret_cast<const __m128i*>(p0));
    const __m256i hi = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(p3),
                                           reinterpret_cast<const __m128i*>(p2));
    return _mm512_inserti64x4(_mm512_castsi256_si512(lo), hi, 1);
}

// Four words' last 16 digits as values in 64-bit lanes 0, 2, 4, 6.
inline __m512i merge16_dec(const char* r, __m512i& bad) {
    const __m512i x = load4x128(r + 3, r + 22, r + 41, r + 60);
    bad = _mm512_or_si512(bad, _mm512_subs_epu8(x, _mm512_set1_epi8(9)));
    const __m512i pairs = _mm512_maddubs_epi16(x, _mm512_set1_epi16(0x010A));
    const __m512i fours = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00010064));
    const __m512i packed = _mm512_packus_epi32(fours, fours);
    const __m512i eights = _mm512_madd_epi16(packed, _mm512_set1_epi32(0x00012710));
    const __m512i high = _mm512_mul_epu32(eights, _mm512_set1_epi64(int64_t(kTen8)));
    return _mm512_add_epi64(high, _mm512_srli_epi64(eights, 32));
}

bool pack_dec_avx512(const char* raw, uint64_t* words, uint64_t n_words) {
    __m512i bad = _mm512_setzero_si512();
    const __m512i even = _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14);
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        const char* r = raw + 19 * i;
        const __m512i low = _mm512_permutex2var_epi64(merge16_dec(r, bad), even,
                                                      merge16_dec(r + 76, bad));
        alignas(64) uint64_t top[8];
        uint8_t bad_top = 0;
        for (int k = 0; k < 8; ++k) {
            const uint8_t* d = reinterpret_cast<const uint8_t*>(r + 19 * k);
            bad_top |= uint8_t(d[0] > 9) | uint8_t(d[1] > 9) | uint8_t(d[2] > 9);
            top[k] = d[0] * 100u + d[1] * 10u + d[2];
        }
        if (bad_top) bad = _mm512_set1_epi8(1);
        const __m512i t = _mm512_mullo_epi64(_mm512_load_si512(top), _mm512_set1_epi64(int64_t(kTen16)));
        _mm512_storeu_si512(words + i, _mm512_add_epi64(t, low));
    }
    bool bad_tail = false;
    for (; i < n_words; ++i) bad_tail |= pack_dec_word(raw + 19 * i, words[i]);
    return bad_tail || _mm512_test_epi8_mask(bad, bad) != 0;
}

// Sixteen values below 10^8 (32-bit lanes) as 128 digit bytes, value 0 first.
inline void digits16x8(__m512i x, char* out) {
    const __m512i m = _mm512_set1_epi64(109951163);  // ceil(2^40 / 10^4)
    const __m512i a_even = _mm512_srli_epi64(_mm512_mul_epu32(x, m), 40);
    const __m512i a_odd = _mm512_slli_epi64(
        _mm512_srli_epi64(_mm512_mul_epu32(_mm512_srli_epi64(x, 32), m), 40), 32);
    const __m512i a = _mm512_or_si512(a_even, a_odd);
    const __m512i b = _mm512_sub_epi32(x, _mm512_mullo_epi32(a, _mm512_set1_epi32(10000)));
    const __m512i y = _mm512_or_si512(a, _mm512_slli_epi32(b, 16));
    const __m512i q = _mm512_srli_epi16(_mm512_mulhi_epu16(y, _mm512_set1_epi16(5243)), 3);
    const __m512i r = _mm512_sub_epi16(y, _mm512_mullo_epi16(q, _mm512_set1_epi16(100)));
    const __m512i ten = _mm512_set1_epi16(10), recip10 = _mm512_set1_epi16(6554);
    const __m512i qt = _mm512_mulhi_epu16(q, recip10), rt = _mm512_mulhi_epu16(r, recip10);
    const __m512i qo = _mm512_sub_epi16(q, _mm512_mullo_epi16(qt, ten));
    const __m512i ro = _mm512_sub_epi16(r, _mm512_mullo_epi16(rt, ten));
    const __m512i first = _mm512_or_si512(qt, _mm512_slli_epi16(qo, 8));
    const __m512i second = _mm512_or_si512(rt, _mm512_slli_epi16(ro, 8));
    const __m512i lo = _mm512_unpacklo_epi16(first, second);  // values 4l, 4l+1 per lane l
    const __m512i hi = _mm512_unpackhi_epi16(first, second);  // values 4l+2, 4l+3
    _mm512_storeu_si512(out, _mm512_permutex2var_epi64(lo, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), hi));
    _mm512_storeu_si512(out + 64, _mm512_permutex2var_epi64(lo, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), hi));
}

void unpack_dec_avx512(const uint64_t* words, char* raw, uint64_t n_words) {
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        alignas(64) uint32_t halves[16];
        char* r = raw + 19 * i;
        for (int k = 0; k < 8; ++k) {
            const uint64_t w = words[i + k];
            const uint32_t top = uint32_t(w / kTen16);
            const uint64_t rest = w % kTen16;
            halves[2 * k] = uint32_t(rest / kTen8);
            halves[2 * k + 1] = uint32_t(rest % kTen8);
            r[19 * k] = char(top / 100);
            r[19 * k + 1] = char(top / 10 % 10);
            r[19 * k + 2] = char(top % 10);
        }
        alignas(64) char digits[128];
        digits16x8(_mm512_load_si512(halves), digits);
        for (int k = 0; k < 8; ++k) std::memcpy(r + 19 * k + 3, digits + 16 * k, 16);
    }
    for (; i < n_words; ++i) unpack_dec_word(words[i], raw + 19 * i);
}

inline __m512i reverse_qword_bytes(__m512i x) {
    const __m512i rev = _mm512_broadcast_i32x4(
        _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8));
    return _mm512_shuffle_epi8(x, rev);
}

bool pack_hex_avx512(const char* raw, uint64_t* words, uint64_t n_words) {
    __m512i bad = _mm512_setzero_si512();
    const __m512i high_nibbles = _mm512_set1_epi8(char(0xF0));
    const __m512i weights = _mm512_set1_epi16(0x0110);
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        const __m512i a = _mm512_loadu_si512(raw + 16 * i), b = _mm512_loadu_si512(raw + 16 * i + 64);
        bad = _mm512_or_si512(bad, _mm512_and_si512(_mm512_or_si512(a, b), high_nibbles));
        // Lane l of the packed bytes holds words l and 4 + l.
        const __m512i bytes = _mm512_packus_epi16(_mm512_maddubs_epi16(a, weights),
                                                  _mm512_maddubs_epi16(b, weights));
        _mm512_storeu_si512(words + i, _mm512_permutexvar_epi64(order, reverse_qword_bytes(bytes)));
    }
    bool bad_tail = false;
    for (; i < n_words; ++i) bad_tail |= pack_hex_word(raw + 16 * i, words[i]);
    return bad_tail || _mm512_test_epi8_mask(bad, bad) != 0;
}

void unpack_hex_avx512(const uint64_t* words, char* raw, uint64_t n_words) {
    const __m512i low_nibble = _mm512_set1_epi8(0x0F);
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        const __m512i x = reverse_qword_bytes(_mm512_loadu_si512(words + i));
        const __m512i first = _mm512_and_si512(_mm512_srli_epi16(x, 4), low_nibble);
        const __m512i second = _mm512_and_si512(x, low_nibble);
        const __m512i lo = _mm512_unpacklo_epi8(first, second);  // words 0, 2, 4, 6
        const __m512i hi = _mm512_unpackhi_epi8(first, second);  // words 1, 3, 5, 7
        char* out = raw + 16 * i;
        _mm512_storeu_si512(out, _mm512_permutex2var_epi64(lo, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), hi));
        _mm512_storeu_si512(out + 64, _mm512_permutex2var_epi64(lo, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), hi));
    }
    for (; i < n_words; ++i) unpack_hex_word(words[i], raw + 16 * i);
}

}  // namespace

const DigitPackKernels digit_pack_avx512 = {pack_dec_avx512, pack_hex_avx512, unpack_dec_avx512,
                                            unpack_hex_avx512};

}  // namespace qmp::detail

#pragma GCC diagnostic pop
#pragma GCC pop_options
