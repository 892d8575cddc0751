// The reciprocal divider against 128-bit long division: the reciprocal words themselves, the
// quotient and remainder of divmod()/mod_words() and of the expansion form for divisors near
// the edges (3, just under 2^(w-1), just above powers of two), and every precondition message.
#include "qmp/numbers/words/shoup_divider.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

#include "qmp/exception.h"
#include "tests/qmp/numbers/words/reference.h"
#include "tests/qmp/numbers/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ShoupDividerTest : public ::testing::Test {};
TYPED_TEST_SUITE(ShoupDividerTest, WordTypes);

template <typename W>
std::vector<W> edge_divisors(std::mt19937_64& rng) {
    constexpr unsigned w = sizeof(W) * 8;
    const W top = W(W(1) << (w - 1));
    std::vector<W> ds = {3, 5, 7, 10, W(top - 1), W(top - 3), W(top / 2 + 1), W(top / 2 - 1), 1000000007};
    for (unsigned k = 2; k < w - 1; k += 7) ds.push_back(W((W(1) << k) + 1));
    for (int i = 0; i < 12; ++i) {
        W d = W(rng() >> (rng() % w)) & W(top - 1);
        if ((d & (d - 1)) != 0) ds.push_back(d);
    }
    return ds;
}

TYPED_TEST(ShoupDividerTest, ReciprocalIsFloorOfTwoToTwiceWidthOverD) {
    using W = TypeParam;
    constexpr unsigned w = sizeof(W) * 8;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed);
    for (W d : edge_divisors<W>(rng)) {
        SCOPED_TRACE(seed_note(seed) + " d=" + std::to_string(d));
        const ShoupDivider<W> div(d);
        EXPECT_EQ(div.d, d);
        EXPECT_EQ(W(div.nd + d), W(0));
        // R = hi*2^w + lo must satisfy R*d <= 2^(2w) < (R+1)*d; checked in 192-bit pieces.
        if constexpr (w == 32) {
            EXPECT_EQ((uint64_t(div.rcp_hi) << 32) | div.rcp_lo, UINT64_MAX / d);
        } else {
            const unsigned __int128 lo_prod = (unsigned __int128)div.rcp_lo * d;
            const unsigned __int128 hi_prod = (unsigned __int128)div.rcp_hi * d;
            // R*d = hi_prod*2^64 + lo_prod; compare with 2^128 as (top, rest).
            const unsigned __int128 mid = (hi_prod & UINT64_MAX) + (lo_prod >> 64);
            const unsigned __int128 top = (hi_prod >> 64) + (mid >> 64);
            EXPECT_EQ(top, 0u) << "R*d above 2^128";
            const unsigned __int128 Rd = (mid << 64) | (lo_prod & UINT64_MAX);
            EXPECT_LT(Rd + d, Rd) << "(R+1)*d must reach 2^128";  // the sum wraps
        }
    }
}

TYPED_TEST(ShoupDividerTest, DivmodMatchesLongDivision) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed + 7);
    for (W d : edge_divisors<W>(rng)) {
        const ShoupDivider<W> div(d);
        for (uint64_t n : {0, 1, 2, 5, 64, 333}) {
            SCOPED_TRACE(seed_note(seed) + " d=" + std::to_string(d) + " n=" + std::to_string(n));
            const auto a = random_words<W>(rng, n);
            const W r = rng() % 3 == 0 ? W(d - 1) : W(rng() % d);
            std::vector<W> q(n), ref(n);
            const W ref_rem = ref_divmod<W>(ref.data(), a.data(), n, d, r);
            EXPECT_EQ(divmod(q.data(), a.data(), n, div, r), ref_rem);
            EXPECT_EQ(q, ref);
            EXPECT_EQ(mod_words(a.data(), n, div, r), ref_rem);
            std::vector<W> in_place = a;
            divmod(in_place.data(), in_place.data(), n, div, r);
            EXPECT_EQ(in_place, ref);

            const W ref_ex = ref_divmod<W>(ref.data(), nullptr, n, d, r);
            EXPECT_EQ(divmod(q.data(), n, div, r), ref_ex);
            EXPECT_EQ(q, ref);
        }
    }
}

TYPED_TEST(ShoupDividerTest, PreconditionsThrowWithTheirMessages) {
    using W = TypeParam;
    constexpr unsigned w = sizeof(W) * 8;
    const auto expect_invalid = expect_throw<InvalidParametersException, std::function<void()>>;
    for (W d : {W(0), W(1), W(2), W(4), W(W(1) << (w - 2))})
        expect_invalid([&] { ShoupDivider<W> x(d); }, "ShoupDivider()", "Untested with power-of-two.");
    for (W d : {W(W(1) << (w - 1)), W((W(1) << (w - 1)) + 1), W(~W(0))})
        expect_invalid([&] { ShoupDivider<W> x(d); }, "ShoupDivider()", "Divisor is too large.");

    const ShoupDivider<W> div(12345);
    std::vector<W> a(3, 1), t(3, 0);
    expect_invalid([&] { divmod(t.data(), a.data(), 3, div, W(12345)); }, "divmod()", "Top word is too large.");
    expect_invalid([&] { divmod(t.data(), 3, div, W(12346)); }, "divmod()", "Top word is too large.");
    expect_invalid([&] { mod_words(a.data(), 3, div, W(~W(0))); }, "mod_words()", "Top word is too large.");
    EXPECT_EQ(divmod(t.data(), a.data(), 0, div, W(12344)), W(12344));
}

}  // namespace
}  // namespace qmp::test
