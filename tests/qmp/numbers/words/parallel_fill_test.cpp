// bp_fill(): every word of every length written with the value and nothing outside it, under
// threaded runs with several task counts; a start off the 64-byte boundary is refused.
#include "qmp/numbers/words/parallel_fill.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "qmp/exception.h"
#include "tests/qmp/numbers/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ParallelFillTest : public ::testing::Test {};
TYPED_TEST_SUITE(ParallelFillTest, WordTypes);

TYPED_TEST(ParallelFillTest, FillsExactlyTheArray) {
    using W = TypeParam;
    ThreadParallelizer threads(3);
    const uint64_t guard = 64 / sizeof(W);
    for (uint64_t L : {0, 1, 17, 16383, 16384, 100003}) {
        for (uint64_t tds : {1, 2, 3, 64, 100}) {
            SCOPED_TRACE("L=" + std::to_string(L) + " tds=" + std::to_string(tds));
            const uint64_t total = L + 2 * guard;
            std::unique_ptr<W, decltype(&std::free)> mem(
                static_cast<W*>(std::aligned_alloc(64, (total * sizeof(W) + 63) / 64 * 64)), &std::free);
            W* base = mem.get();
            for (uint64_t i = 0; i < total; ++i) base[i] = W(0x33);
            bp_fill(base + guard, L, W(~W(0) - 2), &threads, tds);
            uint64_t wrong = 0;
            for (uint64_t i = 0; i < total; ++i) {
                const bool inside = i >= guard && i < guard + L;
                wrong += base[i] != (inside ? W(~W(0) - 2) : W(0x33));
            }
            EXPECT_EQ(wrong, 0u);
        }
    }
}

TYPED_TEST(ParallelFillTest, RefusesAMisalignedStart) {
    using W = TypeParam;
    alignas(64) W words[32] = {};
    expect_throw<InvalidParametersException>([&] { bp_fill(words + 1, 8, W(1), nullptr, 1); }, "bp_fill()",
                                             "T is misaligned.");
    EXPECT_EQ(words[1], W(0));
}

}  // namespace
}  // namespace qmp::test
