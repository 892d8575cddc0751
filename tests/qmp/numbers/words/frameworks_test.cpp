// The parallel word routines under every real task framework give the same words as under the
// sequential one: division (whose block self-check would also fire on a lost or repeated
// block) and many carries joined across task groups.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "qmp/numbers/words/carry.h"
#include "qmp/numbers/words/parallel_division.h"
#include "qmp/parallel/cppasync_framework.h"
#include "qmp/parallel/pushpool_framework.h"
#include "qmp/parallel/spawn_framework.h"
#include "qmp/parallel/taskqueue_framework.h"
#include "tests/qmp/numbers/words/test_support.h"

namespace qmp::test {
namespace {

TEST(FrameworksTest, ParallelRoutinesAgreeWithSequentialRuns) {
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed);
    std::vector<std::unique_ptr<Parallelizer>> frameworks;
    frameworks.push_back(std::make_unique<CppAsyncFramework>());
    frameworks.push_back(std::make_unique<SpawnFramework>());
    frameworks.push_back(std::make_unique<TaskQueueFramework>(2));
    frameworks.push_back(std::make_unique<PushPoolFramework>());

    const uint64_t L = 50001;
    const auto a = random_words<uint64_t>(rng, L);
    const ShoupDivider<uint64_t> div(0x3FFFFFFFFFFFFFC5ull);
    std::vector<uint64_t> q_ref(L);
    const uint64_t rem_ref = bp_div_np(q_ref.data(), a.data(), L, div, uint64_t(17), nullptr, 1);
    std::vector<CarryInfo<uint64_t>> carries;
    for (uint64_t off = 0; off < L; off += 1 + rng() % 700) carries.push_back({off, rng() % 3});
    std::vector<uint64_t> c_ref = std::vector<uint64_t>(L, ~uint64_t(0));
    const uint64_t top_ref = bp_add_multi_carry(c_ref.data(), L, carries.data(), carries.size(), nullptr, 1);

    for (auto& fw : frameworks) {
        for (uint64_t tds : {2, 3, 64}) {
            SCOPED_TRACE(seed_note(seed) + " " + fw->description() + " tds=" + std::to_string(tds));
            std::vector<uint64_t> q(L);
            EXPECT_EQ(bp_div_np(q.data(), a.data(), L, div, uint64_t(17), fw.get(), tds), rem_ref);
            EXPECT_EQ(q, q_ref);

            std::vector<uint64_t> c(L, ~uint64_t(0));
            EXPECT_EQ(bp_add_multi_carry(c.data(), L, carries.data(), carries.size(), fw.get(), tds), top_ref);
            EXPECT_EQ(c, c_ref);

        }
    }
}

}  // namespace
}  // namespace qmp::test
