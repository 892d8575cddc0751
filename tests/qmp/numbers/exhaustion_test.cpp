// Every operation given a result buffer of each size from 0 up to what it needs either succeeds
// with the right value or throws BufferTooSmallException before writing anything, and never
// writes past the buffer (guard words on both sides). Operands sit at odd word offsets, so
// 32-bit products also take the copy path for pointers that are not 8-byte aligned.
#include <functional>

#include "qmp/farmemory/malloc_far_memory.h"
#include "qmp/numbers/big_float.h"
#include "qmp/numbers/big_int.h"
#include "qmp/numbers/exact_float.h"
#include "qmp/numbers/swap_float.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ExhaustionTest : public ::testing::Test {};
TYPED_TEST_SUITE(ExhaustionTest, WordTypes);

// Runs op on result buffers of 0..max_words words; the value of the first success must stay the
// value of every larger buffer, and some buffer must succeed. A refusal leaves the buffer as it
// was, unless the op writes on purpose before the step that fails (untouched = false).
template <typename W, typename Result>
void sweep(const char* label, uint64_t max_words, const std::function<void(Result&)>& op, bool untouched = true) {
    SCOPED_TRACE(label);
    bool seen = false;
    Mag first;
    for (uint64_t c = 0; c <= max_words; ++c) {
        Guarded<W> out(c);
        Result r(out.data(), c);
        try {
            op(r);
            const Mag got = to_mag(r.T, r.L);
            if (seen) {
                EXPECT_EQ(got, first) << "capacity " << c;
            }
            seen = true;
            first = got;
            EXPECT_NO_THROW(r.check_normalization());
        } catch (const BufferTooSmallException&) {
            EXPECT_FALSE(seen) << "capacity " << c << " failed after a smaller one worked";
            if (untouched) {
                EXPECT_EQ(out.words, Guarded<W>(c).words) << "capacity " << c << ": written before refusing";
            }
        }
        EXPECT_TRUE(out.intact()) << "capacity " << c;
    }
    EXPECT_TRUE(seen);
}

TYPED_TEST(ExhaustionTest, ShortBuffersThrowAndNeverOverrun) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 30);
    const auto& table = default_table();
    for (uint64_t n : {1, 3, 40}) {
        SCOPED_TRACE(testing::Message() << "n=" << n);
        std::vector<W> wa = random_operand<W>(rng, n + 1), wb = random_operand<W>(rng, n + 4);
        BigFloat<W> a(wa.data() + 1, n), b(wb.data() + 1, n + 3);
        a.L = n;
        b.L = n + 3;
        a.exp = -2;
        b.exp = 1;
        b.sign = false;
        BigInt<W> ia(wa.data() + 1, n), ib(wb.data() + 1, n + 3);
        ia.L = n;
        ib.L = n + 3;
        ib.sign = false;
        const uint64_t m = 2 * n + 6;
        Scratch scratch(BigFloat<W>::mul_scratch_bytes(table, n, n + 3));
        using F = BigFloat<W>;
        using I = BigInt<W>;
        sweep<W, F>("set_uadd", m, [&](F& r) { r.set_uadd(a, b); });
        sweep<W, F>("set_usub", m, [&](F& r) { r.set_usub(a, b, 4); });
        sweep<W, F>("set_mul_uW", m, [&](F& r) { r.set_mul_uW(a, W(~W(0))); });
        sweep<W, F>("set_div_sW", m, [&](F& r) { r.set_div_sW(b, 7, n + 5); });
        sweep<W, F>("set_mul_small", m, [&](F& r) { r.set_mul_small(a, b); });
        sweep<W, F>("set_mul", m, [&](F& r) { r.set_mul(a, b, n, table, scratch.buffer); });
        sweep<W, F>("set_BigFloat", m, [&](F& r) { r.set_BigFloat(b, n); });
        sweep<W, F>("set_BigInt", m, [&](F& r) { r.set_BigInt(ib); });
        BasicIntO magnitude(~uint64_t(0));
        for (uint64_t i = 0; i < n; ++i) magnitude.set_mulB(magnitude, uint32_t(rng() | 1));
        const ExactFloat exact(magnitude, -3, false);
        sweep<W, F>("set_ExactFloat", m, [&](F& r) { r.set_ExactFloat(exact); });
        sweep<W, F>("set_ExactFloat p", m, [&](F& r) { r.set_ExactFloat(exact, n); });
        MallocFarMemory framework;
        auto memory = framework.create("sweep", (n + 3) * sizeof(W));
        SwapFloat<W> swap(*memory, 0, n + 3);
        swap.store_from(b);
        sweep<W, F>("set_SwapFloat", m, [&](F& r) { r.set_SwapFloat(swap, n + 1); });
        sweep<W, I>("BigInt::set_add", m, [&](I& r) { r.set_add(ia, ib); });
        sweep<W, I>("BigInt::set_sub", m, [&](I& r) { r.set_sub(ia, ib); });
        sweep<W, I>("BigInt::set_mul", m, [&](I& r) { r.set_mul(ia, ib, table, scratch.buffer); });
        sweep<W, I>("BigInt::operator<<=", m + 3, [&](I& r) {
            r.set_BigInt(ia);
            r <<= 2 * sizeof(W) * 8 + 1;
        }, false);  // the copy lands before the shift finds no room
    }
}

}  // namespace
}  // namespace qmp::test
