// The inline word-array primitives against the 16-bit-digit reference, for both word widths,
// on carry-heavy operands, with results also written over an input (r == a).
#include "qmp/words/word_array.h"

#include <gtest/gtest.h>

#include "tests/qmp/words/reference.h"
#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class WordArrayTest : public ::testing::Test {};
TYPED_TEST_SUITE(WordArrayTest, WordTypes);

TYPED_TEST(WordArrayTest, ArithmeticMatchesReference) {
    using W = TypeParam;
    constexpr unsigned w = sizeof(W) * 8;
    std::mt19937_64 rng(test_seed());
    for (uint64_t n : {0, 1, 2, 3, 4, 5, 7, 8, 9, 33, 100, 1003}) {
        for (int rep = 0; rep < 4; ++rep) {
            SCOPED_TRACE(seed_note() + " n=" + std::to_string(n) + " rep=" + std::to_string(rep));
            const auto a = random_words<W>(rng, n), b = random_words<W>(rng, n);
            const uint64_t bn = rng() % (n + 1);
            const W x = rng() % 3 == 0 ? W(~W(0)) : W(rng());
            const unsigned bits = 1 + unsigned(rng() % (w - 1));
            const Digits da = to_digits(a.data(), n), db = to_digits(b.data(), bn), dx = to_digits(&x, 1);
            bool borrow = false;
            std::vector<W> r(n);
            auto expect = [&](W result, const Digits& value, W high) {
                EXPECT_EQ(result, high);
                EXPECT_EQ(r, to_words<W>(value, n));
            };
            const Digits sum = ref_add(da, db), diff = ref_sub(da, db, borrow);
            expect(add(r.data(), a.data(), n, b.data(), bn), sum, word_at<W>(sum, n));
            expect(sub(r.data(), a.data(), n, b.data(), bn), diff, W(borrow));
            r = a;  // in place, r == a
            expect(add_n(r.data(), r.data(), b.data(), n), ref_add(da, to_digits(b.data(), n)),
                   word_at<W>(ref_add(da, to_digits(b.data(), n)), n));
            const Digits sum1 = ref_add(da, dx), diff1 = ref_sub(da, dx, borrow);
            expect(add_1(r.data(), a.data(), n, x), sum1, n == 0 ? x : word_at<W>(sum1, n));
            if (n > 0) expect(sub_1(r.data(), a.data(), n, x), diff1, W(borrow));
            const Digits negated = ref_sub(Digits(da.size()), da, borrow);
            expect(neg(r.data(), a.data(), n), negated, W(borrow));

            const Digits shl = ref_mul(da, ref_pow2(bits)), shr = ref_mul(da, ref_pow2(w - bits));
            expect(lshift(r.data(), a.data(), n, bits), shl, word_at<W>(shl, n));
            EXPECT_EQ(rshift(r.data(), a.data(), n, bits), n == 0 ? W(0) : word_at<W>(shr, 0));
            EXPECT_EQ(r, to_words<W>(shr, n, 1));

            const Digits prod = ref_mul(da, dx), acc = to_digits(b.data(), n);
            expect(mul_1(r.data(), a.data(), n, x), prod, word_at<W>(prod, n));
            r = b;
            const Digits accumulated = ref_add(acc, prod);
            expect(addmul_1(r.data(), a.data(), n, x), accumulated, word_at<W>(accumulated, n));
            // b - a x = r - owed 2^(wn), i.e. r + a x = b + owed 2^(wn).
            r = b;
            const W owed = submul_1(r.data(), a.data(), n, x);
            const Digits back = ref_add(to_digits(r.data(), n), prod);
            EXPECT_EQ(to_words<W>(back, n), b);
            EXPECT_EQ(word_at<W>(back, n), owed);

            // Flipping the low bit of one word decides the comparison, whatever lies around it.
            if (n > 0) {
                std::vector<W> c = a;
                const uint64_t k = rng() % n;
                c[k] ^= W(1);
                EXPECT_EQ(cmp(a.data(), c.data(), n), (a[k] & 1) ? 1 : -1);
                std::fill(c.begin() + k, c.end(), W(0));  // zero top words
                const auto last = std::find_if(c.rbegin(), c.rend(), [](W x) { return x != 0; });
                EXPECT_EQ(normalized_length(c.data(), n), uint64_t(c.rend() - last));
                EXPECT_EQ(is_zero(c.data(), n), last == c.rend());
            }
            EXPECT_EQ(cmp(a.data(), a.data(), n), 0);
        }
    }
}

}  // namespace
}  // namespace qmp::test
