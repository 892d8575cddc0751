// Reciprocal and division against the exact oracle: |x y - 1| < B^(-p) and |b q - a| < B^(-p) |a|
// at every precision of test_precisions(), for random operands longer and shorter than p, both
// signs, and exact quotients.
#include <gtest/gtest.h>

#include <random>

#include "qmp/functions/division.h"
#include "qmp/functions/reciprocal.h"
#include "tests/qmp/functions/functions_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ReciprocalTest : public ::testing::Test {};
TYPED_TEST_SUITE(ReciprocalTest, WordTypes);

constexpr uint64_t kEstimateBits = 50;  // the double estimate's guaranteed precision

template <typename W>
uint64_t rel_bits(uint64_t p) {
    return p == 0 ? kEstimateBits : p * sizeof(W) * 8;
}

template <typename W>
void expect_shape(const BigFloat<W>& y, uint64_t p) {
    ASSERT_GT(y.L, 0u);
    EXPECT_NE(y.T[y.L - 1], W(0));
    EXPECT_LE(y.L, p == 0 ? 3 : p + 2);
}

TYPED_TEST(ReciprocalTest, RandomOperandsMeetTheBound) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed());
    const auto& table = default_table();
    for (uint64_t p : test_precisions()) {
        const Reciprocal_BigFloatR<W> plan(table, p);
        for (int trial = 0; trial < (p < 100 ? 4 : 2); ++trial) {
            SCOPED_TRACE("p=" + std::to_string(p) + " trial=" + std::to_string(trial));
            const uint64_t n = trial == 0 ? 1 + rng() % 3 : trial == 1 ? p + 3 + rng() % 20 : 1 + rng() % (p + 4);
            const TestFloat<W> x(rng, n, int64_t(rng() % 9) - 4, rng() % 2 == 0);
            Result<W> r(p);
            GuardedScratch scratch(plan.scratch_bytes());
            plan.run(r.y, x.x, p, scratch.buffer);
            expect_shape(r.y, p);
            EXPECT_EQ(r.y.sign, x.x.sign);
            EXPECT_TRUE(within(exact_mul(exact_of(x.x), exact_of(r.y)), exact_one(), rel_bits<W>(p)));
            EXPECT_TRUE(r.buffer.intact());
            EXPECT_TRUE(scratch.intact());
            // The oracle fires on a result off by one unit of its top word.
            Exact off = exact_of(r.y);
            off.mag = mag_add(off.mag, shift_left(Mag{1}, (r.y.L - 1) * sizeof(W) * 8));
            EXPECT_FALSE(within(exact_mul(exact_of(x.x), off), exact_one(), rel_bits<W>(p)));
            if (p <= newton_small_max_p) {
                // The large form hands small precisions to the small form: the same words.
                Result<W> s(p);
                GuardedScratch small_scratch(Reciprocal_BigFloatR_E<W>::scratch_bytes(p));
                Reciprocal_BigFloatR_E<W>::run(s.y, x.x, p, small_scratch.buffer);
                ASSERT_EQ(s.y.L, r.y.L);
                EXPECT_TRUE(std::equal(s.y.T, s.y.T + s.y.L, r.y.T));
                EXPECT_EQ(s.y.exp, r.y.exp);
            }
        }
    }
}

TYPED_TEST(ReciprocalTest, DivisionMeetsTheBound) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 1);
    const auto& table = default_table();
    for (uint64_t p : test_precisions()) {
        const Division_BigFloatR<W> plan(table, p);
        for (int trial = 0; trial < (p < 100 ? 4 : 2); ++trial) {
            SCOPED_TRACE("p=" + std::to_string(p) + " trial=" + std::to_string(trial));
            const TestFloat<W> a(rng, 1 + rng() % (p + 6), int64_t(rng() % 9) - 4, rng() % 2 == 0);
            const TestFloat<W> b(rng, trial == 1 ? 1 : 1 + rng() % (2 * p + 6), int64_t(rng() % 9) - 4,
                                 rng() % 2 == 0);
            Result<W> q(p);
            GuardedScratch scratch(plan.scratch_bytes());
            plan.run(q.y, a.x, b.x, p, scratch.buffer);
            expect_shape(q.y, p == 0 ? 1 : p);
            EXPECT_EQ(q.y.sign, a.x.sign == b.x.sign);
            EXPECT_TRUE(within(exact_mul(exact_of(b.x), exact_of(q.y)), exact_of(a.x), rel_bits<W>(p)));
            EXPECT_TRUE(q.buffer.intact());
            EXPECT_TRUE(scratch.intact());
        }
    }
}

// a = 0 gives zero with the sign cleared; a divisor whose reciprocal is exact gives an exact
// quotient: (6 B^3) / (4 B^-2) = 3/2 B^5.
TYPED_TEST(ReciprocalTest, DivisionSpecialOperands) {
    using W = TypeParam;
    for (uint64_t p : {3, 30, 1200}) {
        const Division_BigFloatR<W> plan(default_table(), p);
        GuardedScratch scratch(plan.scratch_bytes());
        Result<W> z(p), q(p);
        const TestFloat<W> a(std::vector<W>{W(6)}, 3), b(std::vector<W>{W(4)}, -2);
        plan.run(z.y, BigFloat<W>(), b.x, p, scratch.buffer);
        EXPECT_EQ(z.y.L, 0u);
        EXPECT_FALSE(z.y.sign);
        plan.run(q.y, a.x, b.x, p, scratch.buffer);
        EXPECT_TRUE(equal(exact_of(q.y), Exact{{3}, 5 * int64_t(sizeof(W) * 8) - 1}));
    }
}

}  // namespace
}  // namespace qmp::test
