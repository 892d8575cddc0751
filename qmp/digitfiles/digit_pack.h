// Packing of raw digits (one value 0..radix-1 per byte, earliest digit first) into 64-bit
// words and back. Radix 10: 19 digits per word, value sum digit[k] * 10^(18-k), at most
// 9999999999999999999. Radix 16: 16 digits per word, first digit in bits 63..60.
// pack_* read exactly digits_per_word * n_words bytes and write n_words words; they return
// true when some byte was out of range (the words are then unspecified). unpack_* are the exact
// inverses for legal words. The dispatching entry points choose the AVX-512, AVX2 or portable
// kernel once from active_simd_level() (QMP_SIMD may force a lower one); the kernels are also
// reachable by level so that tests can compare every path the machine runs.
#pragma once

#include "qmp/cpu_features.h"

#include <cstdint>

namespace qmp {

constexpr uint32_t digits_per_word(uint32_t radix) noexcept { return radix == 10 ? 19 : 16; }
// The largest legal packed word of a radix (10 or 16).
constexpr uint64_t max_packed_word(uint32_t radix) noexcept {
    return radix == 10 ? 9999999999999999999ull : ~uint64_t(0);
}

struct DigitPackKernels {
    bool (*pack_dec)(const char* raw, uint64_t* words, uint64_t n_words);
    bool (*pack_hex)(const char* raw, uint64_t* words, uint64_t n_words);
    void (*unpack_dec)(const uint64_t* words, char* raw, uint64_t n_words);
    void (*unpack_hex)(const uint64_t* words, char* raw, uint64_t n_words);
};

// The kernels of one level (a level above the detected one gives the detected one's).
const DigitPackKernels& digit_pack_kernels(SimdLevel level);

// Radix 10 or 16 through the active level's kernels.
bool pack_digits(uint32_t radix, const char* raw, uint64_t* words, uint64_t n_words);
void unpack_digits(uint32_t radix, const uint64_t* words, char* raw, uint64_t n_words);

namespace detail {
extern const DigitPackKernels digit_pack_portable;
extern const DigitPackKernels digit_pack_avx2;
extern const DigitPackKernels digit_pack_avx512;
// Single-word helpers shared by the vector kernels' tails.
bool pack_dec_word(const char* raw, uint64_t& word) noexcept;
bool pack_hex_word(const char* raw, uint64_t& word) noexcept;
void unpack_dec_word(uint64_t word, char* raw) noexcept;
void unpack_hex_word(uint64_t word, char* raw) noexcept;
}  // namespace detail

}  // namespace qmp
