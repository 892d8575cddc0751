// The parallel division against 128-bit long division around the 1000-word split point and at
// tens of thousands of words, under every parallelizer with task counts 1 to 100, in place and
// with a longer output; the block rule; the preconditions; and the block self-check made to fire
// by corrupting one block's incoming remainder.
#include "qmp/words/parallel_division.h"

#include <gtest/gtest.h>

#include <array>

#include "qmp/exception.h"
#include "tests/qmp/words/reference.h"
#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ParallelDivisionTest : public ::testing::Test {};
TYPED_TEST_SUITE(ParallelDivisionTest, WordTypes);

TEST(DivisionBlocksTest, SplitsFromThousandWordsIntoAtMost64Blocks) {
    EXPECT_EQ(division_blocks(999, 100).blocks, 0u);  // sequential however many tasks
    EXPECT_EQ(division_blocks(5000, 1).blocks, 0u);
    const std::vector<std::array<uint64_t, 4>> cases = {
        // L, tds, blocks, block words
        {1000, 2, 1, 1000}, {1001, 2, 2, 1000}, {2001, 2, 2, 1001}, {100000, 3, 3, 33334}, {64001, 1000, 64, 1001}};
    for (const auto& [L, tds, blocks, words] : cases) {
        EXPECT_EQ(division_blocks(L, tds).blocks, blocks) << L;
        EXPECT_EQ(division_blocks(L, tds).block_words, words) << L;
    }
}

TYPED_TEST(ParallelDivisionTest, MatchesLongDivisionForAnySplit) {
    using W = TypeParam;
    constexpr unsigned w = sizeof(W) * 8;
    std::mt19937_64 rng(test_seed());
    const auto runners = parallelizers();
    const W d_choices[] = {3, 10, 1000000007, W((W(1) << (w - 1)) - 1), W(W(rng()) >> 1 | 5)};
    for (uint64_t L : {0, 1, 999, 1000, 1001, 4096, 70001}) {
        const W d = d_choices[rng() % 5];
        const ShoupDivider<W> div(d);
        const auto a = random_words<W>(rng, L);
        const W r = W(rng() % d);
        const uint64_t extra = rng() % 1500;
        std::vector<W> ref_np(L), ref_ex(L), ref_long(L + extra);
        const W rem_np = ref_divmod<W>(ref_np.data(), a.data(), L, d, r);
        const W rem_ex = ref_divmod<W>(ref_ex.data(), nullptr, L, d, r);
        const W rem_long = ref_divmod<W>(ref_long.data(), nullptr, extra, d,
                                         ref_divmod<W>(ref_long.data() + extra, a.data(), L, d, r));
        for (uint64_t tds : {1, 2, 3, 64, 100}) {
            for (const auto& par : runners) {
                SCOPED_TRACE(seed_note() + " L=" + std::to_string(L) + " d=" + std::to_string(d) +
                             " tds=" + std::to_string(tds) + " " + par->description());
                // A guard word on each side catches writes outside T.
                std::vector<W> t(L + 2, W(0x5A5A5A5A)), expect(L + 2, W(0x5A5A5A5A));
                std::copy(ref_np.begin(), ref_np.end(), expect.begin() + 1);
                EXPECT_EQ(bp_div_np(t.data() + 1, a.data(), L, div, r, par.get(), tds), rem_np);
                EXPECT_TRUE(t == expect);
                EXPECT_EQ(bp_div_ex(t.data() + 1, L, div, r, par.get(), tds), rem_ex);
                EXPECT_TRUE(std::equal(ref_ex.begin(), ref_ex.end(), t.begin() + 1));

                std::vector<W> in_place = a;
                EXPECT_EQ(bp_div_np(in_place.data(), in_place.data(), L, div, r, par.get(), tds), rem_np);
                EXPECT_TRUE(in_place == ref_np);
                std::vector<W> longer(L + extra, W(7));
                EXPECT_EQ(bp_div_np(longer.data(), L + extra, a.data(), L, div, r, par.get(), tds), rem_long);
                EXPECT_TRUE(longer == ref_long);
                // In place with A already at the top of T.
                std::copy(a.begin(), a.end(), longer.begin() + extra);
                EXPECT_EQ(bp_div_np(longer.data(), L + extra, longer.data() + extra, L, div, r, par.get(), tds),
                          rem_long);
                EXPECT_TRUE(longer == ref_long);
            }
        }
    }
}

TYPED_TEST(ParallelDivisionTest, PreconditionsThrowWithTheirMessages) {
    using W = TypeParam;
    const ShoupDivider<W> div(1000003);
    std::vector<W> t(2000, 1), a(2000, 2);
    SequentialParallelizer par;
    for (uint64_t tds : {1, 4}) {
        expect_throw<InvalidParametersException>(
            [&] { bp_div_np(t.data(), 999, a.data(), 1000, div, W(0), &par, tds); }, "bp_div_np()", "TL < AL");
        expect_throw<InvalidParametersException>(
            [&] { bp_div_np(t.data(), a.data(), 2000, div, W(1000003), &par, tds); }, "bp_div_np()",
            "Top word is too large.");
        expect_throw<InvalidParametersException>([&] { bp_div_ex(t.data(), 2000, div, W(1000004), &par, tds); },
                                                 "bp_div_ex()", "Top word is too large.");
    }
    EXPECT_EQ(t, std::vector<W>(2000, 1));
}

// Models a fault in one block: its incoming remainder is moved by one before it divides.
uint64_t g_fault_block = 0;
uint64_t g_divisor = 0;
void corrupt_block(uint64_t block, uint64_t& incoming) {
    if (block == g_fault_block) incoming = (incoming + 1) % g_divisor;
}

TYPED_TEST(ParallelDivisionTest, CorruptedBlockRemainderFiresTheSelfCheck) {
    using W = TypeParam;
    std::mt19937_64 rng(test_seed() + 5);
    TaskQueueFramework threads(2);
    const W d = 999999937;
    const ShoupDivider<W> div(d);
    g_divisor = d;
    const auto a = random_words<W>(rng, 10000);
    std::vector<W> t(10000), ref(10000);
    set_division_block_hook(corrupt_block);
    for (uint64_t block : {0, 3, 9}) {  // bottom, middle and top of 10 blocks
        g_fault_block = block;
        SCOPED_TRACE(seed_note() + " block=" + std::to_string(block));
        expect_throw<AlgorithmFailedException>([&] { bp_div_np(t.data(), a.data(), 10000, div, W(5), &threads, 10); },
                                               "bp_div_np()", "Mismatching block residuals.");
        expect_throw<AlgorithmFailedException>([&] { bp_div_ex(t.data(), 10000, div, W(5), &threads, 10); },
                                               "bp_div_ex()", "Mismatching block residuals.");
    }
    // Without the fault the same calls pass and agree with the reference.
    set_division_block_hook(nullptr);
    EXPECT_EQ(bp_div_np(t.data(), a.data(), 10000, div, W(5), &threads, 10),
              ref_divmod<W>(ref.data(), a.data(), 10000, d, W(5)));
    EXPECT_EQ(t, ref);
}

}  // namespace
}  // namespace qmp::test
