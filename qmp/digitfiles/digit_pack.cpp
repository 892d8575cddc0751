// The portable packing kernels and the dispatch. The portable kernels work eight digits at a
// time inside one 64-bit register (SWAR): pairs of digits are merged by one multiply-add, then
// pairs of pairs, so a decimal word costs a handful of multiplications instead of nineteen
// dependent ones. A byte above 9 (or 15) is found by a carry test on the whole register.
#include "qmp/digitfiles/digit_pack.h"

#include <cstring>

namespace qmp {
namespace detail {
namespace {

constexpr uint64_t kTen8 = 100000000ull;
constexpr uint64_t kTen16 = 10000000000000000ull;

inline uint64_t load8(const char* p) noexcept {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

// Nonzero when some byte of v exceeds 9: a byte b < 0x80 gains its top bit from b + 0x76
// exactly when b >= 10; bytes >= 0x80 have it already. Carries out of a byte can only come from
// a byte that is flagged itself.
inline uint64_t dec_bad_bytes(uint64_t v) noexcept {
    return ((v + 0x7676767676767676ull) | v) & 0x8080808080808080ull;
}

// Eight raw decimal digits (first digit in the lowest byte) as an integer.
inline uint64_t parse8_dec(uint64_t v) noexcept {
    v = v * 10 + (v >> 8);  // even bytes: d[2i] * 10 + d[2i+1]
    v = (((v & 0x000000FF000000FFull) * (100 + (1000000ull << 32))) +
         (((v >> 16) & 0x000000FF000000FFull) * (1 + (10000ull << 32)))) >> 32;
    return v;
}

// Eight raw hexadecimal digits (first digit in the lowest byte) as a 32-bit value, first digit
// in the top nibble.
inline uint64_t parse8_hex(uint64_t v) noexcept {
    uint64_t t = __builtin_bswap64(v);
    t = (t | (t >> 4)) & 0x00FF00FF00FF00FFull;
    t = (t | (t >> 8)) & 0x0000FFFF0000FFFFull;
    t = (t | (t >> 16)) & 0xFFFFFFFFull;
    return t;
}

// The inverse of parse8_hex: eight digit bytes, first digit in the lowest byte.
inline uint64_t spread8_hex(uint64_t x) noexcept {
    uint64_t t = (x | (x << 16)) & 0x0000FFFF0000FFFFull;
    t = (t | (t << 8)) & 0x00FF00FF00FF00FFull;
    t = (t | (t << 4)) & 0x0F0F0F0F0F0F0F0Full;
    return __builtin_bswap64(t);
}

// Eight decimal digits of x < 10^8.
inline void write8_dec(uint32_t x, char* raw) noexcept {
    const uint32_t hi = x / 10000, lo = x % 10000;
    const uint32_t q[4] = {hi / 100, hi % 100, lo / 100, lo % 100};
    for (int k = 0; k < 4; ++k) {
        raw[2 * k] = char(q[k] / 10);
        raw[2 * k + 1] = char(q[k] % 10);
    }
}

bool pack_dec_portable(const char* raw, uint64_t* words, uint64_t n_words) {
    bool bad = false;
    for (uint64_t i = 0; i < n_words; ++i) bad |= pack_dec_word(raw + 19 * i, words[i]);
    return bad;
}

bool pack_hex_portable(const char* raw, uint64_t* words, uint64_t n_words) {
    bool bad = false;
    for (uint64_t i = 0; i < n_words; ++i) bad |= pack_hex_word(raw + 16 * i, words[i]);
    return bad;
}

void unpack_dec_portable(const uint64_t* words, char* raw, uint64_t n_words) {
    for (uint64_t i = 0; i < n_words; ++i) unpack_dec_word(words[i], raw + 19 * i);
}

void unpack_hex_portable(const uint64_t* words, char* raw, uint64_t n_words) {
    for (uint64_t i = 0; i < n_words; ++i) unpack_hex_word(words[i], raw + 16 * i);
}

}  // namespace

bool pack_dec_word(const char* raw, uint64_t& word) noexcept {
    const uint8_t d0 = uint8_t(raw[0]), d1 = uint8_t(raw[1]), d2 = uint8_t(raw[2]);
    const uint64_t a = load8(raw + 3), b = load8(raw + 11);
    const bool bad = (d0 > 9) | (d1 > 9) | (d2 > 9) | ((dec_bad_bytes(a) | dec_bad_bytes(b)) != 0);
    word = (d0 * 100u + d1 * 10u + d2) * kTen16 + parse8_dec(a) * kTen8 + parse8_dec(b);
    return bad;
}

bool pack_hex_word(const char* raw, uint64_t& word) noexcept {
    const uint64_t a = load8(raw), b = load8(raw + 8);
    word = (parse8_hex(a) << 32) | parse8_hex(b);
    return ((a | b) & 0xF0F0F0F0F0F0F0F0ull) != 0;
}

void unpack_dec_word(uint64_t word, char* raw) noexcept {
    const uint32_t top = uint32_t(word / kTen16);
    const uint64_t rest = word % kTen16;
    raw[0] = char(top / 100);
    raw[1] = char(top / 10 % 10);
    raw[2] = char(top % 10);
    write8_dec(uint32_t(rest / kTen8), raw + 3);
    write8_dec(uint32_t(rest % kTen8), raw + 11);
}

void unpack_hex_word(uint64_t word, char* raw) noexcept {
    const uint64_t a = spread8_hex(word >> 32), b = spread8_hex(word & 0xFFFFFFFFull);
    std::memcpy(raw, &a, 8);
    std::memcpy(raw + 8, &b, 8);
}

const DigitPackKernels digit_pack_portable = {pack_dec_portable, pack_hex_portable,
                                              unpack_dec_portable, unpack_hex_portable};

}  // namespace detail

const DigitPackKernels& digit_pack_kernels(SimdLevel level) {
    if (level > detected_simd_level()) level = detected_simd_level();
    switch (level) {
        case SimdLevel::AVX512: return detail::digit_pack_avx512;
        case SimdLevel::AVX2: return detail::digit_pack_avx2;
        default: return detail::digit_pack_portable;
    }
}

namespace {
// active_simd_level() is read once by itself; asking per call keeps force_simd_level() honest.
const DigitPackKernels& active_kernels() { return digit_pack_kernels(active_simd_level()); }
}  // namespace

bool pack_digits(uint32_t radix, const char* raw, uint64_t* words, uint64_t n_words) {
    const DigitPackKernels& k = active_kernels();
    return radix == 10 ? k.pack_dec(raw, words, n_words) : k.pack_hex(raw, words, n_words);
}

void unpack_digits(uint32_t radix, const uint64_t* words, char* raw, uint64_t n_words) {
    const DigitPackKernels& k = active_kernels();
    radix == 10 ? k.unpack_dec(words, raw, n_words) : k.unpack_hex(words, raw, n_words);
}

}  // namespace qmp
