// Carry routines against the digit reference: add_carry() with carries that run through long
// runs of all-ones words, bp_add_multi_carry() and bp_add_carry_blocks() with many carries on
// all-ones arrays (so carries cross group boundaries) under sequential and threaded runs with
// several task counts, bp_increment(), and every precondition message with T left untouched.
#include "qmp/numbers/words/carry.h"

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
class CarryTest : public ::testing::Test {};
TYPED_TEST_SUITE(CarryTest, WordTypes);

template <typename W>
Digits shifted(W carry, uint64_t offset) {
    std::vector<W> v(offset + 1, 0);
    v[offset] = carry;
    return to_digits(v.data(), offset + 1);
}

TYPED_TEST(CarryTest, AddCarrySettlesOrReportsTheWordsItNeeds) {
    using W = TypeParam;
    const W ones = W(~W(0));
    std::vector<W> t = {ones, ones, ones, 5, 9};
    add_carry(t.data(), 5, W(3));
    EXPECT_EQ(t, (std::vector<W>{2, 0, 0, 6, 9}));
    add_carry(t.data(), 0, W(0));  // nothing to add needs no words
    const auto expect_invalid = expect_throw<InvalidParametersException, std::function<void()>>;
    std::vector<W> all = {ones, ones, W(ones - 1)};
    const std::vector<W> before = all;
    expect_invalid([&] { add_carry(all.data(), 2, W(1)); }, "add_carry()", "Block is too small: Required = 3, Actual = 2.");
    EXPECT_EQ(all, before);  // checked before any word changed
    expect_invalid([&] { add_carry(all.data(), 0, W(7)); }, "add_carry()", "Block is too small: Required = 1, Actual = 0.");
    add_carry(all.data(), 3, W(1));
    EXPECT_EQ(all, (std::vector<W>{0, 0, ones}));
}

TYPED_TEST(CarryTest, MultiCarryAndBlocksMatchReferenceForAnyTaskCount) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed);
    SequentialParallelizer sequential;
    ThreadParallelizer threads(3);
    for (uint64_t L : {1, 7, 999, 1000, 5003}) {
        for (int rep = 0; rep < 3; ++rep) {
            // rep 0: all ones, every carry runs to the top; others: carry-heavy random words.
            const auto t0 = rep == 0 ? std::vector<W>(L, W(~W(0))) : random_words<W>(rng, L);
            std::vector<CarryInfo<W>> carries;
            for (uint64_t off = rng() % 3; off < L; off += 1 + rng() % (L / 20 + 1))
                carries.push_back({off, rng() % 4 == 0 ? W(~W(0)) : W(rng() % 5)});
            Digits expect = to_digits(t0.data(), L);
            for (const auto& c : carries) expect = ref_add(expect, shifted(c.carry, c.offset));
            std::vector<uint64_t> offsets;
            std::vector<W> block_carries;
            Digits expect_blocks = to_digits(t0.data(), L);
            for (uint64_t off = 0; off < L; off += 1 + rng() % (L / 10 + 1)) {
                offsets.push_back(off);
                block_carries.push_back(W(rng() % 2));
            }
            for (size_t k = 0; k + 1 < offsets.size(); ++k)
                expect_blocks = ref_add(expect_blocks, shifted(block_carries[k], offsets[k + 1]));

            for (uint64_t tds : {1, 2, 3, 64, 100}) {
                for (Parallelizer* par : {static_cast<Parallelizer*>(&sequential), static_cast<Parallelizer*>(&threads)}) {
                    SCOPED_TRACE(seed_note(seed) + " L=" + std::to_string(L) + " rep=" + std::to_string(rep) +
                                 " tds=" + std::to_string(tds) + " " + par->description());
                    std::vector<W> t = t0;
                    const W top = bp_add_multi_carry(t.data(), L, carries.data(), carries.size(), par, tds);
                    EXPECT_EQ(t, to_words<W>(expect, L));
                    EXPECT_EQ(top, word_at<W>(expect, L));

                    t = t0;
                    const W out = bp_add_carry_blocks(t.data(), L, offsets.data(), block_carries.data(), offsets.size(), par, tds);
                    EXPECT_EQ(t, to_words<W>(expect_blocks, L));
                    EXPECT_EQ(out, W(word_at<W>(expect_blocks, L) + block_carries.back()));
                }
            }
        }
    }
}

TYPED_TEST(CarryTest, IncrementFindsTheEndOfTheCarryInParallel) {
    using W = TypeParam;
    ThreadParallelizer threads(3);
    for (uint64_t L : {1, 100, 40000}) {
        for (uint64_t stop : {uint64_t(0), L / 2, L - 1, L}) {
            SCOPED_TRACE("L=" + std::to_string(L) + " stop=" + std::to_string(stop));
            std::vector<W> t(L, W(~W(0)));
            if (stop < L) t[stop] = 41;
            const W carry = bp_increment(t.data(), L, &threads, 4, 1000);
            EXPECT_EQ(carry, W(stop == L));
            for (uint64_t i = 0; i < L; ++i) {
                const W expect = i < stop ? W(0) : i == stop ? W(42) : W(~W(0));
                if (t[i] != expect) {
                    ADD_FAILURE() << "word " << i;
                    break;
                }
            }
        }
    }
}

TYPED_TEST(CarryTest, CarryListPreconditions) {
    using W = TypeParam;
    std::vector<W> t(10, 1);
    const std::vector<W> before = t;
    const auto expect_invalid = expect_throw<InvalidParametersException, std::function<void()>>;
    const std::vector<CarryInfo<W>> beyond = {{2, 1}, {10, 1}}, equal = {{2, 1}, {2, 1}}, down = {{5, 1}, {3, 1}};
    expect_invalid([&] { bp_add_multi_carry(t.data(), 10, beyond.data(), 2, nullptr, 1); }, "bp_add_multi_carry()",
                   "CarryInfo has invalid offset.");
    expect_invalid([&] { bp_add_multi_carry(t.data(), 10, equal.data(), 2, nullptr, 1); }, "bp_add_multi_carry()",
                   "CarryInfo offsets are not increasing.");
    expect_invalid([&] { bp_add_multi_carry(t.data(), 10, down.data(), 2, nullptr, 1); }, "bp_add_multi_carry()",
                   "CarryInfo offsets are not increasing.");
    const std::vector<uint64_t> off_down = {0, 6, 4}, off_end = {0, 10};
    const std::vector<W> c = {1, 1, 1};
    expect_invalid([&] { bp_add_carry_blocks(t.data(), 10, off_down.data(), c.data(), 3, nullptr, 1); },
                   "bp_add_carry_blocks()", "Block offsets are not increasing.");
    expect_invalid([&] { bp_add_carry_blocks(t.data(), 10, off_end.data(), c.data(), 2, nullptr, 1); },
                   "bp_add_carry_blocks()", "Block offsets are not increasing.");
    EXPECT_EQ(t, before);
}

}  // namespace
}  // namespace qmp::test
