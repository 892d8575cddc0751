// Digit statistics of a digit stream: how often each digit value occurs (DigitCounts) and the
// digit hash (DigitHash), the digits from position A to position B read as one integer in the
// stream's radix, modulo the prime 2^61 - 1. Both are kept incrementally over blocks of raw
// digits (one value 0..radix-1 per byte), so a writer or a viewer can feed them as it goes and
// two streams can be compared by their statistics alone.
//   DigitCounts: radix 2..36 ("Radix is too large." above, at "DigitCounts::DigitCounts()").
//   DigitHash: radix 10 or 16 ("Invalid radix." at "top_hash()"); a digit outside the radix is
//   InvalidParametersException "Invalid Digit" at "DigitHash::push()".
#pragma once

#include <array>
#include <cstdint>

namespace qmp {

class DigitCounts {
public:
    static constexpr uint32_t kMaxRadix = 36;

    explicit DigitCounts(uint32_t radix);

    uint32_t radix() const noexcept { return radix_; }
    // Counts raw digits; values outside the radix are not checked here (the hash checks them).
    void push(const char* raw_digits, uint64_t count) noexcept;
    uint64_t operator[](uint32_t digit) const noexcept { return counts_[digit]; }
    uint64_t total() const noexcept;
    bool operator==(const DigitCounts& other) const noexcept {
        return radix_ == other.radix_ && counts_ == other.counts_;
    }

private:
    uint32_t radix_;
    std::array<uint64_t, kMaxRadix> counts_{};
};

class DigitHash {
public:
    explicit DigitHash(uint32_t radix);

    uint32_t radix() const noexcept { return radix_; }
    // Appends raw digits below the ones seen so far: hash = hash * radix^count + digits.
    void push(const char* raw_digits, uint64_t count);
    // Appends one packed word of digits_per_word digits (19 for radix 10, 16 for radix 16).
    void push_word(uint64_t word) noexcept;
    // Appends `count` zero digits (hash * radix^count).
    void push_zeros(uint64_t count) noexcept;
    uint64_t value() const noexcept { return hash_; }

private:
    uint32_t radix_;
    uint64_t hash_ = 0;
    uint64_t word_scale_;  // radix^(digits per word) mod p
};

// radix^e mod 2^61 - 1.
uint64_t pow_mod_m61(uint64_t radix, uint64_t e) noexcept;

// The hash of a single packed word's digits is the word mod p; this is the scale of one word
// in a stream: radix^(digits per word) mod p for radix 10 or 16, else "Invalid radix.".
uint64_t top_hash(uint32_t radix);

}  // namespace qmp
