// ExactFloat -> BigFloat at both word widths against the oracle on 32-bit halves: exact at full
// precision whatever the parity of the exponent, the same top words as set_BigFloat() when
// truncated, the refusal of a buffer one word short; signed 64-bit values and negation.
#include "qmp/numbers/exact_float.h"

#include <limits>

#include "qmp/numbers/big_float.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ExactFloatTest : public ::testing::Test {};
TYPED_TEST_SUITE(ExactFloatTest, WordTypes);

TYPED_TEST(ExactFloatTest, ConversionIsExactAndTruncatesLikeSetBigFloat) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 40);
    for (uint64_t n32 : {1, 2, 3, 5, 8}) {
        for (int64_t e : {-7, -4, -1, 0, 1, 2, 5}) {
            SCOPED_TRACE(testing::Message() << "n32=" << n32 << " e=" << e);
            const Mag m = random_operand<uint32_t>(rng, n32);
            BasicIntO magnitude(m[n32 - 1]);
            for (uint64_t i = n32 - 1; i-- > 0; magnitude += m[i])  // Horner in base 2^32
                for (int k = 0; k < 2; ++k) magnitude.set_mulB(magnitude, 0x10000u);
            const ExactFloat x = rng() & 1 ? ExactFloat(magnitude, e) : -ExactFloat(magnitude, e);
            Guarded<W> out(n32 + 1);
            BigFloat<W> full(out.data(), out.n);
            full.set_ExactFloat(x);
            const int64_t f_exp32 = int64_t(sizeof(W) / 4) * full.exp, lo = std::min(f_exp32, e);
            EXPECT_EQ(to_mag(full.T, full.L, uint64_t(f_exp32 - lo)), to_mag(m.data(), n32, uint64_t(e - lo)));
            EXPECT_EQ(full.sign, x.sign());
            EXPECT_NO_THROW(full.check_normalization());
            EXPECT_TRUE(out.intact());
            for (uint64_t p : {1, 2, 3}) {
                std::vector<W> room(2 * p);
                BigFloat<W> cut(room.data(), p), want(room.data() + p, p);
                cut.set_ExactFloat(x, p);
                want.set_BigFloat(full, p);
                EXPECT_EQ(to_mag(cut.T, cut.L), to_mag(want.T, want.L)) << "p=" << p;
                EXPECT_TRUE(cut.L == want.L && cut.exp == want.exp && cut.sign == want.sign) << "p=" << p;
            }
            Guarded<W> tight(full.L - 1);
            BigFloat<W> small(tight.data(), tight.n);
            expect_throw<BufferTooSmallException>([&] { small.set_ExactFloat(x); }, "BigFloat::set_ExactFloat()",
                                                  "Buffer is too small:\n    Buffer Size: " + std::to_string(tight.n) +
                                                      "\n    Required Size: " + std::to_string(full.L));
        }
    }
    // Signed 64-bit values, both signs of each, and zero (which stays unsigned under negation).
    std::vector<W> room(2);
    BigFloat<W> f(room.data(), 2);
    for (int64_t v : {int64_t(1), int64_t(0x100000000), int64_t(-12345678901234), std::numeric_limits<int64_t>::max(),
                      std::numeric_limits<int64_t>::min()}) {
        const unsigned __int128 a = v < 0 ? -(unsigned __int128)v : (unsigned __int128)v;
        for (const auto& [x, positive] : {std::pair{ExactFloat(v), v > 0}, std::pair{-ExactFloat(v), v < 0}}) {
            f.set_ExactFloat(x);
            EXPECT_EQ(to_mag(f.T, f.L), trimmed({uint32_t(a), uint32_t(a >> 32)})) << v;
            EXPECT_TRUE(f.exp == 0 && f.sign == positive) << v;
        }
    }
    const ExactFloat zero = -ExactFloat(0);
    f.exp = 7;
    f.set_ExactFloat(zero);
    EXPECT_TRUE(zero.is_zero() && zero.sign() && f.L == 0 && f.exp == 0);
}

}  // namespace
}  // namespace qmp::test
