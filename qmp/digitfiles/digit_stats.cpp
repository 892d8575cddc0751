// Digit counts and the digit hash modulo 2^61 - 1. The hash runs word-wise where it can: 19
// decimal digits (or 16 hexadecimal ones) are first gathered into one 64-bit value exactly, then
// folded in with one modular multiply-add, so a block of digits costs one multiplication per
// word rather than per digit.
#include "qmp/digitfiles/digit_stats.h"

#include "qmp/exception.h"
#include "qmp/words/mod_m61.h"

namespace qmp {

DigitCounts::DigitCounts(uint32_t radix) : radix_(radix) {
    if (radix > kMaxRadix) throw InvalidParametersException("DigitCounts::DigitCounts()", "Radix is too large.");
}

void DigitCounts::push(const char* raw_digits, uint64_t count) noexcept {
    // Four tables so that runs of one digit do not serialise on one counter.
    uint64_t c[4][kMaxRadix] = {};
    uint64_t i = 0;
    for (; i + 4 <= count; i += 4) {
        c[0][uint8_t(raw_digits[i]) % kMaxRadix]++;
        c[1][uint8_t(raw_digits[i + 1]) % kMaxRadix]++;
        c[2][uint8_t(raw_digits[i + 2]) % kMaxRadix]++;
        c[3][uint8_t(raw_digits[i + 3]) % kMaxRadix]++;
    }
    for (; i < count; ++i) c[0][uint8_t(raw_digits[i]) % kMaxRadix]++;
    for (uint32_t d = 0; d < kMaxRadix; ++d) counts_[d] += c[0][d] + c[1][d] + c[2][d] + c[3][d];
}

uint64_t DigitCounts::total() const noexcept {
    uint64_t t = 0;
    for (uint64_t c : counts_) t += c;
    return t;
}

uint64_t pow_mod_m61(uint64_t radix, uint64_t e) noexcept {
    uint64_t result = 1, base = reduce_m61(radix);
    while (e != 0) {
        if (e & 1) result = mul_m61(result, base);
        base = mul_m61(base, base);
        e >>= 1;
    }
    return result;
}

uint64_t top_hash(uint32_t radix) {
    if (radix == 10) return pow_mod_m61(10, 19);
    if (radix == 16) return pow_mod_m61(16, 16);
    throw InvalidParametersException("top_hash()", "Invalid radix.");
}

DigitHash::DigitHash(uint32_t radix) : radix_(radix), word_scale_(top_hash(radix)) {}

void DigitHash::push_word(uint64_t word) noexcept {
    hash_ = add_m61(mul_m61(hash_, word_scale_), reduce_m61(word));
}

void DigitHash::push_zeros(uint64_t count) noexcept { hash_ = mul_m61(hash_, pow_mod_m61(radix_, count)); }

void DigitHash::push(const char* raw_digits, uint64_t count) {
    const uint64_t per_word = radix_ == 10 ? 19 : 16;
    uint64_t i = 0;
    for (; i + per_word <= count; i += per_word) {
        uint64_t word = 0;
        uint8_t bad = 0;
        for (uint64_t k = 0; k < per_word; ++k) {
            const uint8_t d = uint8_t(raw_digits[i + k]);
            bad |= uint8_t(d >= radix_);
            word = word * radix_ + d;
        }
        if (bad) throw InvalidParametersException("DigitHash::push()", "Invalid Digit");
        push_word(word);
    }
    for (; i < count; ++i) {
        const uint8_t d = uint8_t(raw_digits[i]);
        if (d >= radix_) throw InvalidParametersException("DigitHash::push()", "Invalid Digit");
        hash_ = add_m61(mul_m61(hash_, radix_), d);
    }
}

}  // namespace qmp
