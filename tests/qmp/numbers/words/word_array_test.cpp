// Differential tests of the inline word-array primitives against the 16-bit-digit reference,
// for both word widths, with carry-heavy operands and results written over an input (r == a).
#include "qmp/numbers/words/word_array.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/qmp/numbers/words/reference.h"
#include "tests/qmp/numbers/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class WordArrayTest : public ::testing::Test {};
TYPED_TEST_SUITE(WordArrayTest, WordTypes);

const uint64_t kLengths[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 33, 100, 999, 1000, 1003};

TYPED_TEST(WordArrayTest, AddSubAgainstReference) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed);
    for (uint64_t n : kLengths) {
        for (int rep = 0; rep < 4; ++rep) {
            SCOPED_TRACE(seed_note(seed) + " n=" + std::to_string(n) + " rep=" + std::to_string(rep));
            const auto a = random_words<W>(rng, n), b = random_words<W>(rng, n);
            const Digits da = to_digits(a.data(), n), db = to_digits(b.data(), n);

            const Digits sum = ref_add(da, db);
            std::vector<W> r(n);
            EXPECT_EQ(add_n(r.data(), a.data(), b.data(), n), word_at<W>(sum, n));
            EXPECT_EQ(r, to_words<W>(sum, n));
            std::vector<W> in_place = a;  // r == a
            add_n(in_place.data(), in_place.data(), b.data(), n);
            EXPECT_EQ(in_place, r);

            bool borrow = false;
            const Digits diff = ref_sub(da, db, borrow);
            EXPECT_EQ(sub_n(r.data(), a.data(), b.data(), n), W(borrow));
            EXPECT_EQ(r, to_words<W>(diff, n));
            in_place = b;  // r == b
            sub_n(in_place.data(), a.data(), in_place.data(), n);
            EXPECT_EQ(in_place, r);

            // Unequal lengths and single words.
            const uint64_t bn = n == 0 ? 0 : rng() % (n + 1);
            const W x = rng() % 3 == 0 ? W(~W(0)) : W(rng());
            const Digits dbn = to_digits(b.data(), bn), dx = to_digits(&x, 1);
            const Digits sum2 = ref_add(da, dbn);
            EXPECT_EQ(add(r.data(), a.data(), n, b.data(), bn), word_at<W>(sum2, n));
            EXPECT_EQ(r, to_words<W>(sum2, n));
            const Digits diff2 = ref_sub(da, dbn, borrow);
            EXPECT_EQ(sub(r.data(), a.data(), n, b.data(), bn), W(borrow));
            EXPECT_EQ(r, to_words<W>(diff2, n));
            const Digits sum1 = ref_add(da, dx);
            EXPECT_EQ(add_1(r.data(), a.data(), n, x), n == 0 ? x : word_at<W>(sum1, n));
            EXPECT_EQ(r, to_words<W>(sum1, n));
            const Digits diff1 = ref_sub(da, dx, borrow);
            EXPECT_EQ(sub_1(r.data(), a.data(), n, x), n == 0 ? x : W(borrow));
            if (n > 0) {
                EXPECT_EQ(r, to_words<W>(diff1, n));
            }

            bool nborrow = false;
            const Digits negd = ref_sub(Digits(da.size(), 0), da, nborrow);
            EXPECT_EQ(neg(r.data(), a.data(), n), W(nborrow));
            EXPECT_EQ(r, to_words<W>(negd, n));
        }
    }
}

TYPED_TEST(WordArrayTest, ShiftsAndMultiplyByWordAgainstReference) {
    using W = TypeParam;
    constexpr unsigned w = sizeof(W) * 8;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed + 1);
    for (uint64_t n : kLengths) {
        for (int rep = 0; rep < 4; ++rep) {
            SCOPED_TRACE(seed_note(seed) + " n=" + std::to_string(n) + " rep=" + std::to_string(rep));
            const auto a = random_words<W>(rng, n), acc = random_words<W>(rng, n);
            const Digits da = to_digits(a.data(), n), dacc = to_digits(acc.data(), n);
            const unsigned bits = 1 + unsigned(rng() % (w - 1));
            std::vector<W> r(n);

            const Digits shl = ref_shl(da, bits);
            EXPECT_EQ(lshift(r.data(), a.data(), n, bits), word_at<W>(shl, n));
            EXPECT_EQ(r, to_words<W>(shl, n));
            // rshift by `bits` is lshift by (w - bits) read one word higher.
            const Digits shr = ref_shl(da, w - bits);
            EXPECT_EQ(rshift(r.data(), a.data(), n, bits), n == 0 ? W(0) : to_words<W>(shr, 1)[0]);
            std::vector<W> expect_shr(n);
            for (uint64_t i = 0; i < n; ++i) expect_shr[i] = word_at<W>(shr, i + 1);
            EXPECT_EQ(r, expect_shr);
            std::vector<W> in_place = a;
            lshift(in_place.data(), in_place.data(), n, bits);
            EXPECT_EQ(in_place, to_words<W>(shl, n));

            const W x = rng() % 4 == 0 ? W(~W(0)) : W(rng());
            const Digits prod = ref_mul(da, to_digits(&x, 1));
            EXPECT_EQ(mul_1(r.data(), a.data(), n, x), word_at<W>(prod, n));
            EXPECT_EQ(r, to_words<W>(prod, n));

            const Digits sum = ref_add(dacc, prod);
            r = acc;
            EXPECT_EQ(addmul_1(r.data(), a.data(), n, x), word_at<W>(sum, n));
            EXPECT_EQ(r, to_words<W>(sum, n));

            // acc - a*x = low words minus borrow * 2^(wn): borrow = ceil((a*x - acc) / 2^(wn)).
            r = acc;
            const W owed = submul_1(r.data(), a.data(), n, x);
            const Digits back = ref_add(to_digits(r.data(), n), prod);
            // r + a*x = acc + owed * 2^(wn)
            EXPECT_EQ(to_words<W>(back, n), acc);
            EXPECT_EQ(word_at<W>(back, n), owed);
        }
    }
}

TYPED_TEST(WordArrayTest, CompareAndNormalizedLength) {
    using W = TypeParam;
    std::vector<W> a = {5, 0, 7, 0, 0}, b = {5, 1, 7, 0, 0};
    EXPECT_EQ(cmp(a.data(), b.data(), 5), -1);
    EXPECT_EQ(cmp(b.data(), a.data(), 5), 1);
    EXPECT_EQ(cmp(a.data(), a.data(), 5), 0);
    EXPECT_EQ(cmp(a.data(), b.data(), 1), 0);
    EXPECT_EQ(cmp(a.data(), b.data(), 0), 0);
    b[4] = W(~W(0));  // the top word decides, whatever lies below
    a[1] = W(~W(0));
    EXPECT_EQ(cmp(a.data(), b.data(), 5), -1);
    EXPECT_EQ(normalized_length(a.data(), 5), 3u);
    EXPECT_EQ(normalized_length(a.data(), 0), 0u);
    std::vector<W> z(4, 0);
    EXPECT_EQ(normalized_length(z.data(), 4), 0u);
    EXPECT_TRUE(is_zero(z.data(), 4));
}

}  // namespace
}  // namespace qmp::test
