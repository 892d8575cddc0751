// The residue modulo 2^61 - 1 against Horner evaluation with 128-bit remainders, for every
// length around the four-chain grouping, both word widths (odd 32-bit lengths included) and
// words at and above the modulus, plus the small helpers against 128-bit arithmetic.
#include "qmp/words/mod_m61.h"

#include <gtest/gtest.h>

#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

constexpr uint64_t P = (uint64_t(1) << 61) - 1;

template <typename W>
uint64_t horner(const std::vector<W>& a) {
    unsigned __int128 h = 0;
    for (size_t i = a.size(); i > 0; --i) h = ((h << (sizeof(W) * 8)) + a[i - 1]) % P;
    return uint64_t(h);
}

TEST(ModM61Test, ArrayResidueAndHelpersMatch128BitArithmetic) {
    std::mt19937_64 rng(test_seed());
    for (uint64_t n = 0; n < 4200; n += n < 40 ? 1 : 1031) {
        SCOPED_TRACE(seed_note() + " n=" + std::to_string(n));
        auto a = random_words<uint64_t>(rng, n);
        if (n > 2) a[1] = P, a[2] = ~uint64_t(0);
        EXPECT_EQ(mod_m61(a.data(), n), horner(a));
        const auto b = random_words<uint32_t>(rng, n);
        EXPECT_EQ(mod_m61(b.data(), n), horner(b));
    }
    for (int i = 0; i < 2000; ++i) {
        const uint64_t x = rng(), a = rng() % P, b = i == 0 ? P - 1 : rng() % P;
        const unsigned k = unsigned(rng() % 200);
        SCOPED_TRACE(seed_note() + " i=" + std::to_string(i));
        EXPECT_EQ(reduce_m61(x), x % P);
        EXPECT_EQ(mul_m61(a, b), uint64_t((unsigned __int128)a * b % P));
        EXPECT_EQ(sub_m61(a, b), (a + P - b) % P);
        unsigned __int128 pw = 1;
        for (unsigned j = 0; j < k % 61; ++j) pw = pw * 2 % P;
        EXPECT_EQ(mul_pow2_m61(a, k), uint64_t(pw * a % P));
    }
}

}  // namespace
}  // namespace qmp::test
