// Carry routines against the digit reference: add_carry() through runs of all-ones words,
// bp_add_multi_carry() and bp_add_carry_blocks() with many carries on all-ones and carry-heavy
// arrays (carries cross task-group boundaries) under every parallelizer and several task
// counts, and every precondition message with T left untouched. bp_increment() runs inside the
// far-memory carry tests.
#include "qmp/words/carry.h"

#include <gtest/gtest.h>

#include "qmp/exception.h"
#include "tests/qmp/words/reference.h"
#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class CarryTest : public ::testing::Test {};
TYPED_TEST_SUITE(CarryTest, WordTypes);

// x * 2^(w offset) as digits.
template <typename W>
Digits at_word(W x, uint64_t offset) {
    return ref_mul(to_digits(&x, 1), ref_pow2(unsigned(offset * sizeof(W) * 8)));
}

TYPED_TEST(CarryTest, MultiCarryAndBlocksMatchReferenceUnderEveryParallelizer) {
    using W = TypeParam;
    std::mt19937_64 rng(test_seed());
    const auto runners = parallelizers();
    for (uint64_t L : {1, 7, 999, 1000, 5003}) {
        for (int rep = 0; rep < 3; ++rep) {
            // rep 0: all ones, so every carry runs to the top through every group.
            const auto t0 = rep == 0 ? std::vector<W>(L, W(~W(0))) : random_words<W>(rng, L);
            std::vector<CarryInfo<W>> carries;
            for (uint64_t off = rng() % 3; off < L; off += 1 + rng() % (L / 20 + 1))
                carries.push_back({off, rng() % 4 == 0 ? W(~W(0)) : W(rng() % 5)});
            std::vector<uint64_t> offsets;
            std::vector<W> block_carries;
            for (uint64_t off = 0; off < L; off += 1 + rng() % (L / 10 + 1)) {
                offsets.push_back(off);
                block_carries.push_back(W(rng() % 2));
            }
            Digits expect = to_digits(t0.data(), L), expect_blocks = expect;
            for (const auto& c : carries) expect = ref_add(expect, at_word(c.carry, c.offset));
            for (size_t k = 0; k + 1 < offsets.size(); ++k)
                expect_blocks = ref_add(expect_blocks, at_word(block_carries[k], offsets[k + 1]));

            for (uint64_t tds : {1, 2, 3, 64, 100}) {
                for (const auto& par : runners) {
                    SCOPED_TRACE(seed_note() + " L=" + std::to_string(L) + " rep=" + std::to_string(rep) +
                                 " tds=" + std::to_string(tds) + " " + par->description());
                    std::vector<W> t = t0;
                    EXPECT_EQ(bp_add_multi_carry(t.data(), L, carries.data(), carries.size(), par.get(), tds),
                              word_at<W>(expect, L));
                    EXPECT_EQ(t, to_words<W>(expect, L));
                    t = t0;
                    EXPECT_EQ(bp_add_carry_blocks(t.data(), L, offsets.data(), block_carries.data(), offsets.size(),
                                                  par.get(), tds),
                              W(word_at<W>(expect_blocks, L) + block_carries.back()));
                    EXPECT_EQ(t, to_words<W>(expect_blocks, L));
                }
            }
        }
    }
}

TYPED_TEST(CarryTest, SingleCarryAndPreconditions) {
    using W = TypeParam;
    const W ones = W(~W(0));
    std::vector<W> t = {ones, ones, W(ones - 1), 1, 1, 1, 1, 1, 1, 1};
    const std::vector<W> before = t;
    auto invalid = [](auto f, const char* function, const char* message) {
        expect_throw<InvalidParametersException>(f, function, message);
    };
    // The carry needs the third word to settle.
    invalid([&] { add_carry(t.data(), 2, W(1)); }, "add_carry()", "Block is too small: Required = 3, Actual = 2.");
    invalid([&] { add_carry(t.data(), 0, W(7)); }, "add_carry()", "Block is too small: Required = 1, Actual = 0.");
    const std::vector<CarryInfo<W>> beyond = {{2, 1}, {10, 1}}, equal = {{2, 1}, {2, 1}}, down = {{5, 1}, {3, 1}};
    invalid([&] { bp_add_multi_carry(t.data(), 10, beyond.data(), 2, nullptr, 1); }, "bp_add_multi_carry()",
            "CarryInfo has invalid offset.");
    for (const auto* list : {&equal, &down})
        invalid([&] { bp_add_multi_carry(t.data(), 10, list->data(), 2, nullptr, 1); }, "bp_add_multi_carry()",
                "CarryInfo offsets are not increasing.");
    const std::vector<uint64_t> off_down = {0, 6, 4}, off_end = {0, 10};
    const std::vector<W> c = {1, 1, 1};
    for (const auto* offsets : {&off_down, &off_end})
        invalid([&] { bp_add_carry_blocks(t.data(), 10, offsets->data(), c.data(), offsets->size(), nullptr, 1); },
                "bp_add_carry_blocks()", "Block offsets are not increasing.");
    EXPECT_EQ(t, before);
    add_carry(t.data(), 4, W(3));
    EXPECT_EQ(t, (std::vector<W>{2, 0, ones, 1, 1, 1, 1, 1, 1, 1}));
}

}  // namespace
}  // namespace qmp::test
