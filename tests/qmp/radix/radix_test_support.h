// Oracles of the radix-conversion tests, sharing no code with the library: decimal digits of a
// binary fraction by repeated multiplication by 10 on 32-bit halves, the binary fraction of a
// decimal string by repeated multiplication by 2^32 of a decimal digit array (rounded up), the
// reference files, and a small-FFT table so that the tree has levels at small sizes.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "qmp/parallel/parallel_framework.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {

// Decimal digits of the fraction f = sum F[i] 2^(64 (i - n)), the first `count` of them.
inline std::string slow_decimal_digits(const std::vector<uint64_t>& F, uint64_t count) {
    std::vector<uint32_t> h;
    for (uint64_t w : F) {
        h.push_back(uint32_t(w));
        h.push_back(uint32_t(w >> 32));
    }
    std::string s;
    for (uint64_t d = 0; d < count; ++d) {
        uint64_t carry = 0;
        for (uint32_t& x : h) {
            const uint64_t t = uint64_t(x) * 10 + carry;
            x = uint32_t(t);
            carry = t >> 32;
        }
        s.push_back(char('0' + carry));
    }
    return s;
}

// The fraction words (n words) of 0.digits rounded up: ceil(D / 10^len * 2^(64 n)).
inline std::vector<uint64_t> decimal_to_fraction_rounded_up(const std::string& digits, uint64_t n) {
    std::vector<uint32_t> dec(digits.size());  // base-10 digits, most significant first
    for (size_t i = 0; i < digits.size(); ++i) dec[i] = uint32_t(digits[i] - '0');
    std::vector<uint32_t> halves(2 * n);
    for (uint64_t k = 2 * n; k-- > 0;) {
        uint64_t carry = 0;
        for (size_t i = dec.size(); i-- > 0;) {
            const uint64_t t = uint64_t(dec[i]) * (uint64_t(1) << 32) + carry;
            dec[i] = uint32_t(t % 10);
            carry = t / 10;
        }
        halves[k] = uint32_t(carry);
    }
    bool exact = true;
    for (uint32_t d : dec) exact = exact && d == 0;
    if (!exact)
        for (uint64_t k = 0; k < 2 * n && ++halves[k] == 0; ++k) {}
    std::vector<uint64_t> F(n);
    for (uint64_t i = 0; i < n; ++i) F[i] = uint64_t(halves[2 * i]) | uint64_t(halves[2 * i + 1]) << 32;
    return F;
}

// Decimal words (19 digits each) of a digit string, zero-padded to `words` words.
inline std::vector<uint64_t> decimal_words(const std::string& digits, uint64_t words) {
    std::vector<uint64_t> w(words, 0);
    for (uint64_t i = 0; i < words * 19; ++i) w[i / 19] = w[i / 19] * 10 + (i < digits.size() ? digits[i] - '0' : 0);
    return w;
}

inline std::string read_reference(const std::string& name) {
    std::ifstream in("/work/shared/reference/" + name, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Integer and fraction words of "I.hhhh..." using the first `hex_digits` fraction digits.
inline void hex_reference_words(const std::string& text, uint64_t hex_digits, uint64_t& integer_part,
                                std::vector<uint64_t>& fraction) {
    const size_t point = text.find('.');
    integer_part = std::stoull(text.substr(0, point));
    const uint64_t n = (hex_digits + 15) / 16;
    fraction.assign(n, 0);
    for (uint64_t i = 0; i < n * 16; ++i) {
        const char c = i < hex_digits ? text[point + 1 + i] : '0';
        const uint64_t v = c <= '9' ? uint64_t(c - '0') : uint64_t(c - 'a' + 10);
        fraction[n - 1 - i / 16] |= v << (4 * (15 - i % 16));
    }
}

// "BKT" up to 64-word products and "FFTv4" above: stored transforms from the third level of an 8-word block.
inline const AlgorithmTableB& small_fft_table() {
    static AlgorithmRegistry registry;
    static const AlgorithmTableB table = [] {
        register_builtin_algorithms(registry);
        return AlgorithmTableB(registry, {{64, "BKT", {}}, {uint64_t(1) << 30, "FFTv4", {}}});
    }();
    return table;
}

inline std::unique_ptr<ParallelFramework> pushpool(int64_t threads) {
    ConfigObject settings = find_parallel_framework("pushpool").default_config();
    settings.get("WorkerThreads", "test") = ConfigObject::make_integer(threads);
    return make_parallel_framework(settings);
}

}  // namespace qmp::test
