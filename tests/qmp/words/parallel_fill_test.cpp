// bp_fill(): every word of every length written with the value and nothing outside it, under
// threaded runs with several task counts; a start off the 64-byte boundary is refused.
#include "qmp/words/parallel_fill.h"

#include <gtest/gtest.h>

#include "qmp/exception.h"
#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ParallelFillTest : public ::testing::Test {};
TYPED_TEST_SUITE(ParallelFillTest, WordTypes);

TYPED_TEST(ParallelFillTest, FillsExactlyTheArrayOrRefusesAMisalignedStart) {
    using W = TypeParam;
    TaskQueueFramework threads(2);
    constexpr uint64_t guard = 64 / sizeof(W);
    for (uint64_t L : {0, 1, 17, 16383, 16384, 100003}) {
        for (uint64_t tds : {1, 2, 3, 64, 100}) {
            SCOPED_TRACE("L=" + std::to_string(L) + " tds=" + std::to_string(tds));
            std::vector<W> mem(L + 3 * guard, W(0x33));
            W* base = mem.data() + (guard - (reinterpret_cast<uintptr_t>(mem.data()) % 64) / sizeof(W));
            bp_fill(base, L, W(~W(0) - 2), &threads, tds);
            std::vector<W> expect(mem.size(), W(0x33));
            std::fill_n(expect.begin() + (base - mem.data()), L, W(~W(0) - 2));
            EXPECT_TRUE(mem == expect);
            expect_throw<InvalidParametersException>([&] { bp_fill(base + 1, L, W(1), &threads, tds); }, "bp_fill()",
                                                     "T is misaligned.");
            EXPECT_TRUE(mem == expect);
        }
    }
}

}  // namespace
}  // namespace qmp::test
