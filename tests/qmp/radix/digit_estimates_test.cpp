// The digit-count estimators against exact decimal arithmetic: x times the factor's 50-digit
// decimal string, multiplied out digit by digit in the test; points whose exact product lies
// too close to an integer (or, rounding to nearest, to a half) for the path's precision are
// skipped.
#include "qmp/radix/digit_estimates.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

// floor(x * factor) (or to nearest) for factor = "I.FFFF" with 50 fraction digits; sets
// `ambiguous` when the fraction lies within `tolerance` of the rounding boundary.
int64_t exact_scale(uint64_t x, const std::string& factor, bool nearest, double tolerance, bool& ambiguous) {
    std::string digits = factor;
    digits.erase(digits.find('.'), 1);
    std::string product(digits.size() + 20, '0');
    unsigned __int128 carry = 0;
    for (size_t i = 0; i < product.size(); ++i) {
        const unsigned __int128 d = i < digits.size() ? unsigned(digits[digits.size() - 1 - i] - '0') : 0;
        const unsigned __int128 t = d * x + carry;
        product[product.size() - 1 - i] = char('0' + unsigned(t % 10));
        carry = t / 10;
    }
    const std::string integer = product.substr(0, product.size() - 50), fraction = product.substr(product.size() - 50);
    const double f = std::stod("0." + fraction.substr(0, 18)), boundary = nearest ? 0.5 : 0.0;
    ambiguous = std::fabs(f - boundary) < tolerance || std::fabs(f - boundary - 1) < tolerance;
    return int64_t(std::stoull(integer)) + (nearest && f >= 0.5 ? 1 : 0);
}

TEST(DigitEstimates, MatchExactProductsOnBothPaths) {
    const std::string log10_2 = "0.30102999566398119521373889472449302676818988146211";
    const std::string word_factor = "9.63295986124739824683964463118377685658207620678752";  // 32 log10(2)
    std::mt19937_64 rng(test_seed());
    int checked = 0;
    for (int i = 0; i < 2000; ++i) {
        const int bits = 1 + int(rng() % 61);
        const uint64_t x = rng() >> (64 - bits);
        // The plain path is good to a few units of the product's last bit plus the error of its
        // 17-digit factor; the double-double path to ~2^-100 relative.
        auto guard = [](uint64_t a) { return a < (uint64_t(1) << 48) ? double(a) * 10 * 0x1p-52 + double(a) * 1e-15 : 1e-9; };
        bool a1, a2, a3, a4;
        const int64_t dec = exact_scale(x, log10_2, false, guard(x), a1);
        const int64_t hex = exact_scale(x, "0.83048202372184058696757985737234754396620784825615", false, guard(x), a2);
        const int64_t back = exact_scale(x, "1.20411998265592478085495557889797210707275952584840", false, guard(x), a3);
        const int64_t words = exact_scale(x >> 4, word_factor, true, guard(x >> 4), a4);  // below 2^58
        if (!a1) {
            EXPECT_EQ(bit_to_dec_si(int64_t(x)), dec) << x;
            EXPECT_EQ(bit_to_dec_si(-int64_t(x)), -dec) << x;
        }
        if (!a2) {
            EXPECT_EQ(dec_to_hex_si(int64_t(x)), hex) << x;
        }
        if (!a3) {
            EXPECT_EQ(hex_to_dec_ui(x), uint64_t(back)) << x;
        }
        if (!a4) {
            EXPECT_EQ(word_to_dec_si(int64_t(x >> 4)), words) << x;
        }
        checked += !a1;
    }
    EXPECT_GT(checked, 1800);
    expect_throw<InvalidParametersException>([] { bit_to_dec_si(int64_t(1) << 62); }, "bit_to_dec_si()",
                                             "Argument is out of range.");
    expect_throw<InvalidParametersException>([] { hex_to_dec_ui(~0ull); }, "hex_to_dec_ui()",
                                             "Argument is out of range.");
}

}  // namespace
}  // namespace qmp::test
