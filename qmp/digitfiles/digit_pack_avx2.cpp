// AVX2 packing kernels: eight words per step, the rest through the single-word helpers.
// Decimal packing: the last 16 digits of each word are merged in vector lanes (pairs by
// maddubs, fours by madd, eights by a second madd, sixteen by a 32x32->64 multiply); the first
// three digits are added as top * 10^16 from scalar code. Decimal unpacking splits each word
// into its top three digits and two 8-digit halves with scalar division by constants, then
// turns the halves into digits with exact reciprocal multiplications in 32- and 16-bit lanes.
// Hexadecimal digits are pairs of nibbles: maddubs, pack and a byte reversal per word.
#include "qmp/digitfiles/digit_pack.h"

#include <immintrin.h>

#include <cstring>

namespace qmp::detail {
namespace {

constexpr uint64_t kTen8 = 100000000ull;
constexpr uint64_t kTen16 = 10000000000000000ull;

// Two words' last 16 digits (raw + 19*i + 3) as their value, in 64-bit lanes 0 and 2.
inline __m256i merge16_dec(const char* first, const char* second, __m256i& bad) {
    const __m256i x = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(second),
                                          reinterpret_cast<const __m128i*>(first));
    bad = _mm256_or_si256(bad, _mm256_subs_epu8(x, _mm256_set1_epi8(9)));
    const __m256i pairs = _mm256_maddubs_epi16(x, _mm256_set1_epi16(0x010A));   // d0*10 + d1
    const __m256i fours = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00010064));  // *100 +
    const __m256i packed = _mm256_packus_epi32(fours, fours);
    const __m256i eights = _mm256_madd_epi16(packed, _mm256_set1_epi32(0x00012710));  // *10^4 +
    const __m256i high = _mm256_mul_epu32(eights, _mm256_set1_epi64x(int64_t(kTen8)));
    return _mm256_add_epi64(high, _mm256_srli_epi64(eights, 32));
}

bool pack_dec_avx2(const char* raw, uint64_t* words, uint64_t n_words) {
    __m256i bad = _mm256_setzero_si256();
    bool bad_top = false;
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        const char* r = raw + 19 * i;
        __m256i v[4];
        for (int p = 0; p < 4; ++p) v[p] = merge16_dec(r + 38 * p + 3, r + 38 * p + 22, bad);
        // v[p] holds words 2p and 2p+1 in lanes 0 and 2; gather them in order.
        const __m256i w03 = _mm256_permute4x64_epi64(_mm256_unpacklo_epi64(v[0], v[1]), 0xD8);
        const __m256i w47 = _mm256_permute4x64_epi64(_mm256_unpacklo_epi64(v[2], v[3]), 0xD8);
        alignas(32) uint64_t low[8];
        _mm256_store_si256(reinterpret_cast<__m256i*>(low), w03);
        _mm256_store_si256(reinterpret_cast<__m256i*>(low + 4), w47);
        for (int k = 0; k < 8; ++k) {
            const uint8_t* d = reinterpret_cast<const uint8_t*>(r + 19 * k);
            bad_top |= (d[0] > 9) | (d[1] > 9) | (d[2] > 9);
            words[i + k] = (d[0] * 100u + d[1] * 10u + d[2]) * kTen16 + low[k];
        }
    }
    for (; i < n_words; ++i) bad_top |= pack_dec_word(raw + 19 * i, words[i]);
    return bad_top || !_mm256_testz_si256(bad, bad);
}

// Eight values below 10^8 (32-bit lanes) as 64 digit bytes, value 0 first.
inline void digits8x8(__m256i x, char* out) {
    // a = x / 10^4 exactly for x < 10^8: 109951163 = ceil(2^40 / 10^4).
    const __m256i m = _mm256_set1_epi64x(109951163);
    const __m256i a_even = _mm256_srli_epi64(_mm256_mul_epu32(x, m), 40);
    const __m256i a_odd = _mm256_slli_epi64(
        _mm256_srli_epi64(_mm256_mul_epu32(_mm256_srli_epi64(x, 32), m), 40), 32);
    const __m256i a = _mm256_or_si256(a_even, a_odd);
    const __m256i b = _mm256_sub_epi32(x, _mm256_mullo_epi32(a, _mm256_set1_epi32(10000)));
    const __m256i y = _mm256_or_si256(a, _mm256_slli_epi32(b, 16));  // 16-bit groups of 4 digits
    // q = y / 100 = (y * 5243) >> 19 for y < 10^4; then tens and ones of q and r = y - 100 q.
    const __m256i q = _mm256_srli_epi16(_mm256_mulhi_epu16(y, _mm256_set1_epi16(5243)), 3);
    const __m256i r = _mm256_sub_epi16(y, _mm256_mullo_epi16(q, _mm256_set1_epi16(100)));
    const __m256i ten = _mm256_set1_epi16(10), recip10 = _mm256_set1_epi16(6554);
    const __m256i qt = _mm256_mulhi_epu16(q, recip10), rt = _mm256_mulhi_epu16(r, recip10);
    const __m256i qo = _mm256_sub_epi16(q, _mm256_mullo_epi16(qt, ten));
    const __m256i ro = _mm256_sub_epi16(r, _mm256_mullo_epi16(rt, ten));
    const __m256i first = _mm256_or_si256(qt, _mm256_slli_epi16(qo, 8));
    const __m256i second = _mm256_or_si256(rt, _mm256_slli_epi16(ro, 8));
    const __m256i lo = _mm256_unpacklo_epi16(first, second);  // values 0,1 | 4,5
    const __m256i hi = _mm256_unpackhi_epi16(first, second);  // values 2,3 | 6,7
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32), _mm256_permute2x128_si256(lo, hi, 0x31));
}

void unpack_dec_avx2(const uint64_t* words, char* raw, uint64_t n_words) {
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        alignas(32) uint32_t halves[16];
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
        alignas(32) char digits[128];
        digits8x8(_mm256_load_si256(reinterpret_cast<const __m256i*>(halves)), digits);
        digits8x8(_mm256_load_si256(reinterpret_cast<const __m256i*>(halves + 8)), digits + 64);
        for (int k = 0; k < 8; ++k) std::memcpy(r + 19 * k + 3, digits + 16 * k, 16);
    }
    for (; i < n_words; ++i) unpack_dec_word(words[i], raw + 19 * i);
}

// Reverses the bytes of each 64-bit lane: the first digit pair becomes the top byte.
inline __m256i reverse_qword_bytes(__m256i x) {
    const __m256i rev = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,
                                         7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
    return _mm256_shuffle_epi8(x, rev);
}

bool pack_hex_avx2(const char* raw, uint64_t* words, uint64_t n_words) {
    __m256i bad = _mm256_setzero_si256();
    const __m256i high_nibbles = _mm256_set1_epi8(char(0xF0));
    const __m256i weights = _mm256_set1_epi16(0x0110);  // d0*16 + d1
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        const __m256i* in = reinterpret_cast<const __m256i*>(raw + 16 * i);
        for (int h = 0; h < 2; ++h) {
            const __m256i a = _mm256_loadu_si256(in + 2 * h), b = _mm256_loadu_si256(in + 2 * h + 1);
            bad = _mm256_or_si256(bad, _mm256_and_si256(_mm256_or_si256(a, b), high_nibbles));
            const __m256i bytes = _mm256_packus_epi16(_mm256_maddubs_epi16(a, weights),
                                                      _mm256_maddubs_epi16(b, weights));
            // bytes holds words (0, 2 | 1, 3) of this half.
            const __m256i w = _mm256_permute4x64_epi64(reverse_qword_bytes(bytes), 0xD8);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(words + i + 4 * h), w);
        }
    }
    bool bad_tail = false;
    for (; i < n_words; ++i) bad_tail |= pack_hex_word(raw + 16 * i, words[i]);
    return bad_tail || !_mm256_testz_si256(bad, bad);
}

void unpack_hex_avx2(const uint64_t* words, char* raw, uint64_t n_words) {
    const __m256i low_nibble = _mm256_set1_epi8(0x0F);
    uint64_t i = 0;
    for (; i + 8 <= n_words; i += 8) {
        for (int h = 0; h < 2; ++h) {
            const __m256i x = reverse_qword_bytes(
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + i + 4 * h)));
            const __m256i first = _mm256_and_si256(_mm256_srli_epi16(x, 4), low_nibble);
            const __m256i second = _mm256_and_si256(x, low_nibble);
            const __m256i lo = _mm256_unpacklo_epi8(first, second);  // words 0 | 2
            const __m256i hi = _mm256_unpackhi_epi8(first, second);  // words 1 | 3
            __m256i* out = reinterpret_cast<__m256i*>(raw + 16 * (i + 4 * h));
            _mm256_storeu_si256(out, _mm256_permute2x128_si256(lo, hi, 0x20));
            _mm256_storeu_si256(out + 1, _mm256_permute2x128_si256(lo, hi, 0x31));
        }
    }
    for (; i < n_words; ++i) unpack_hex_word(words[i], raw + 16 * i);
}

}  // namespace

const DigitPackKernels digit_pack_avx2 = {pack_dec_avx2, pack_hex_avx2, unpack_dec_avx2,
                                          unpack_hex_avx2};

}  // namespace qmp::detail
