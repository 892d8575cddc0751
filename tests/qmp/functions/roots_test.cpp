// Inverse square roots (of floats and of words), square roots and inverse n-th roots against the
// exact oracle: |x y^2 - 1| < 3 B^(-p), |y^2 - x| < 3 B^(-p) x, |x y^n - 1| < (n + 1) B^(-p)
// (a relative error d of y gives about n d), with exact results where the root is a power of 2.
#include <gtest/gtest.h>

#include <random>

#include "qmp/functions/inv_nth_root.h"
#include "qmp/functions/invsqrt.h"
#include "qmp/functions/reciprocal.h"
#include "tests/qmp/functions/functions_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class RootsTest : public ::testing::Test {};
TYPED_TEST_SUITE(RootsTest, WordTypes);

template <typename W>
uint64_t rel_bits(uint64_t p) {
    return p == 0 ? 48 : p * sizeof(W) * 8;
}

template <typename W>
void expect_shape(const BigFloat<W>& y, uint64_t p) {
    ASSERT_GT(y.L, 0u);
    EXPECT_NE(y.T[y.L - 1], W(0));
    EXPECT_LE(y.L, p == 0 ? 3 : p + 2);
    EXPECT_TRUE(y.sign);
}

TYPED_TEST(RootsTest, InverseSquareRootAndSquareRootMeetTheBound) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 2);
    const auto& table = default_table();
    for (uint64_t p : test_precisions()) {
        const InvsqrtFloat_BigFloatR<W> inv(table, p);
        const SqrtFloat_BigFloatR<W> sqrt(table, p);
        for (int trial = 0; trial < (p < 100 ? 3 : 1); ++trial) {
            SCOPED_TRACE("p=" + std::to_string(p) + " trial=" + std::to_string(trial));
            // Odd and even word exponents take the two starting estimates.
            const TestFloat<W> x(rng, 1 + rng() % (p + 6), int64_t(rng() % 9) - 4);
            Result<W> r(p), s(p);
            GuardedScratch scratch(std::max(inv.scratch_bytes(), sqrt.scratch_bytes()));
            inv.run(r.y, x.x, p, scratch.buffer);
            expect_shape(r.y, p);
            const Exact ex = exact_of(x.x), ey = exact_of(r.y);
            EXPECT_TRUE(within(exact_mul(ex, exact_mul(ey, ey)), exact_one(), rel_bits<W>(p), 3));
            if (p <= newton_small_max_p) {
                Result<W> e(p);
                InvsqrtFloat_BigFloatR_E<W>::run(e.y, x.x, p, scratch.buffer);
                EXPECT_TRUE(equal(exact_of(e.y), ey));
            }
            sqrt.run(s.y, x.x, p, scratch.buffer);
            expect_shape(s.y, p == 0 ? 1 : p);
            const Exact es = exact_of(s.y);
            EXPECT_TRUE(within(exact_mul(es, es), ex, rel_bits<W>(p == 0 ? 1 : p), 3));
            EXPECT_TRUE(r.buffer.intact() && s.buffer.intact() && scratch.intact());
        }
    }
}

TYPED_TEST(RootsTest, InverseSquareRootOfAWord) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 3);
    const auto& table = default_table();
    for (uint64_t p : test_precisions()) {
        const InvsqrtWord_BigFloatR<W> plan(table, p);
        for (W n : {W(10005), W(8), W(2), W(~W(0)), W(rng() | 1)}) {
            SCOPED_TRACE("p=" + std::to_string(p) + " n=" + std::to_string(n));
            Result<W> r(p);
            GuardedScratch scratch(plan.scratch_bytes());
            plan.run(r.y, n, p, scratch.buffer);
            expect_shape(r.y, p);
            const Exact ey = exact_of(r.y);
            EXPECT_TRUE(within(exact_mul(Exact{to_mag(&n, 1), 0}, exact_mul(ey, ey)), exact_one(), rel_bits<W>(p), 3));
            EXPECT_TRUE(r.buffer.intact() && scratch.intact());
        }
    }
}

TYPED_TEST(RootsTest, InverseNthRootsBothForms) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 4);
    const auto& table = default_table();
    for (uint32_t n : {3u, 4u, 6u, 12u}) {
        const uint64_t max_p = n == 12 ? 40 : n == 4 ? 1001 : 199;
        for (uint64_t p : test_precisions()) {
            if (p > max_p) break;
            if (n == 4 && p > 20 && p < 200) continue;  // 4: the schedule's edges and the wrapped steps
            const InvNthRootFloat_BigFloatR_P<W> plan(table, n, p);
            SCOPED_TRACE("n=" + std::to_string(n) + " p=" + std::to_string(p));
            const TestFloat<W> x(rng, 1 + rng() % (p + 6), int64_t(rng() % 13) - 6);
            Result<W> e(p), f(p);
            GuardedScratch scratch(plan.scratch_bytes());
            plan.run_expanded(e.y, x.x, p, scratch.buffer);
            plan.run_factored(f.y, x.x, p, scratch.buffer);
            for (const BigFloat<W>* y : {&e.y, &f.y}) {
                expect_shape(*y, p);
                EXPECT_TRUE(within(exact_mul(exact_of(x.x), exact_pow(exact_of(*y), n)), exact_one(), rel_bits<W>(p),
                                   n + 1));
            }
            EXPECT_TRUE(e.buffer.intact() && f.buffer.intact() && scratch.intact());
        }
    }
}

// Powers of two that the word radix makes exact: x = 2^(32 k) has 1/x = 2^(-32 k) and
// x^(-1/2) = 2^(-16 k) (the sqrt(B) estimate for an odd word exponent), 2^(96 k) has
// x^(-1/3) = 2^(-32 k); the error words are zero at every step.
TYPED_TEST(RootsTest, ExactPowersOfTwo) {
    using W = TypeParam;
    constexpr int64_t w = sizeof(W) * 8;
    const auto& table = default_table();
    auto power_of_two = [](int64_t bits) {
        const int64_t e = bits >= 0 ? bits / w : -((-bits + w - 1) / w);
        return TestFloat<W>(std::vector<W>{W(W(1) << (bits - e * w))}, e);
    };
    for (uint64_t p : {0, 1, 2, 9, 10, 33, 400, 1100}) {
        const Reciprocal_BigFloatR<W> recip(table, p);
        const InvsqrtFloat_BigFloatR<W> inv(table, p);
        const InvNthRootFloat_BigFloatR_P<W> cube(table, 3, p);
        GuardedScratch scratch(std::max({recip.scratch_bytes(), inv.scratch_bytes(), cube.scratch_bytes()}));
        for (int64_t k = -3; k <= 3; ++k) {
            SCOPED_TRACE("p=" + std::to_string(p) + " k=" + std::to_string(k));
            Result<W> r(p), c(p);
            recip.run(r.y, power_of_two(32 * k).x, p, scratch.buffer);
            EXPECT_TRUE(equal(exact_of(r.y), Exact{{1}, -32 * k}));
            inv.run(r.y, power_of_two(32 * k).x, p, scratch.buffer);
            EXPECT_TRUE(equal(exact_of(r.y), Exact{{1}, -16 * k}));
            cube.run_expanded(c.y, power_of_two(96 * k).x, p, scratch.buffer);
            EXPECT_TRUE(equal(exact_of(c.y), Exact{{1}, -32 * k}));
        }
    }
}

}  // namespace
}  // namespace qmp::test
