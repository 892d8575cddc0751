// The reciprocal divider against 128-bit long division: the reciprocal words, the quotient and
// remainder of divmod() (both forms) and mod_words() for divisors at the edges (3, just under
// 2^(w-1), just above powers of two), and every precondition message.
#include "qmp/words/shoup_divider.h"

#include <gtest/gtest.h>

#include <array>

#include "qmp/exception.h"
#include "tests/qmp/words/reference.h"
#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ShoupDividerTest : public ::testing::Test {};
TYPED_TEST_SUITE(ShoupDividerTest, WordTypes);

TYPED_TEST(ShoupDividerTest, ReciprocalAndDivisionMatchLongDivision) {
    using W = TypeParam;
    using D = std::conditional_t<sizeof(W) == 8, unsigned __int128, uint64_t>;
    constexpr unsigned w = sizeof(W) * 8;
    std::mt19937_64 rng(test_seed());
    const W top = W(W(1) << (w - 1));
    std::vector<W> divisors = {3, 5, 7, 10, W(top - 1), W(top - 3), W(top / 2 + 1), W(top / 2 - 1), 1000000007};
    for (unsigned k = 2; k < w - 1; k += 7) divisors.push_back(W((W(1) << k) + 1));
    while (divisors.size() < 30) {
        const W d = W(rng() >> (rng() % w)) & W(top - 1);
        if ((d & (d - 1)) != 0) divisors.push_back(d);
    }
    for (W d : divisors) {
        const ShoupDivider<W> div(d);
        EXPECT_EQ(div.d, d);
        EXPECT_EQ(W(div.nd + d), W(0));
        // The reciprocal is floor(2^(2w) / d) = floor((2^(2w) - 1) / d), d not a power of two.
        const D R = D(~D(0)) / d;
        EXPECT_EQ(div.rcp_hi, W(R >> w)) << d;
        EXPECT_EQ(div.rcp_lo, W(R)) << d;
        for (uint64_t n : {0, 1, 2, 5, 64, 333}) {
            SCOPED_TRACE(seed_note() + " d=" + std::to_string(d) + " n=" + std::to_string(n));
            const auto a = random_words<W>(rng, n);
            const W r = rng() % 3 == 0 ? W(d - 1) : W(rng() % d);
            std::vector<W> q(n), ref(n);
            const W ref_rem = ref_divmod<W>(ref.data(), a.data(), n, d, r);
            EXPECT_EQ(divmod(q.data(), a.data(), n, div, r), ref_rem);
            EXPECT_EQ(q, ref);
            EXPECT_EQ(mod_words(a.data(), n, div, r), ref_rem);
            q = a;  // in place
            divmod(q.data(), q.data(), n, div, r);
            EXPECT_EQ(q, ref);
            const W ref_ex = ref_divmod<W>(ref.data(), nullptr, n, d, r);
            EXPECT_EQ(divmod(q.data(), n, div, r), ref_ex);
            EXPECT_EQ(q, ref);
        }
    }
}

// A step whose reciprocal estimate is three below the quotient (found by a search over divisors
// with a large low reciprocal word): it needs all three corrections.
TYPED_TEST(ShoupDividerTest, EstimateThreeBelowTheQuotientIsCorrected) {
    using W = TypeParam;
    const std::array<uint64_t, 3> hard = sizeof(W) == 4
        ? std::array<uint64_t, 3>{171799795, 100535746, 4294967290}
        : std::array<uint64_t, 3>{3689369962674854118ull, 2629418778158526819ull, 18446744073709551612ull};
    const W d = W(hard[0]), r = W(hard[1]), a = W(hard[2]);
    W q = 0, expect = 0;
    EXPECT_EQ(divmod(&q, &a, 1, ShoupDivider<W>(d), r), ref_divmod<W>(&expect, &a, 1, d, r));
    EXPECT_EQ(q, expect);
}

TYPED_TEST(ShoupDividerTest, PreconditionsThrowWithTheirMessages) {
    using W = TypeParam;
    constexpr unsigned w = sizeof(W) * 8;
    auto invalid = [](auto f, const char* function, const char* message) {
        expect_throw<InvalidParametersException>(f, function, message);
    };
    for (W d : {W(0), W(1), W(2), W(4), W(W(1) << (w - 2))})
        invalid([&] { ShoupDivider<W> x(d); }, "ShoupDivider()", "Untested with power-of-two.");
    // 2^(w-1) is a power of two as well: the size rule is checked first.
    for (W d : {W(W(1) << (w - 1)), W((W(1) << (w - 1)) + 1), W(~W(0))})
        invalid([&] { ShoupDivider<W> x(d); }, "ShoupDivider()", "Divisor is too large.");

    const ShoupDivider<W> div(12345);
    std::vector<W> a(3, 1), t(3, 0);
    invalid([&] { divmod(t.data(), a.data(), 3, div, W(12345)); }, "divmod()", "Top word is too large.");
    invalid([&] { divmod(t.data(), 3, div, W(12346)); }, "divmod()", "Top word is too large.");
    invalid([&] { mod_words(a.data(), 3, div, W(~W(0))); }, "mod_words()", "Top word is too large.");
    EXPECT_EQ(t, std::vector<W>(3, 0));
    EXPECT_EQ(divmod(t.data(), a.data(), 0, div, W(12344)), W(12344));
}

}  // namespace
}  // namespace qmp::test
