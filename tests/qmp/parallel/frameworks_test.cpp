// Every framework against the Parallelizer contract: each index runs exactly once and the call
// returns only after all have finished (a slow task would be caught unfinished), for task
// counts from 0 to far above the core count; nesting three levels deep and a fork-join
// recursion that would deadlock a pool whose waiting threads do not work; results identical to
// "none"; the first exception carried to the caller.
#include "qmp/parallel/cppasync_framework.h"
#include "qmp/parallel/none_framework.h"
#include "qmp/parallel/pushpool_framework.h"
#include "qmp/parallel/spawn_framework.h"
#include "qmp/parallel/taskqueue_framework.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/test_support.h"

namespace {

using qmp::ParallelFramework;

struct FrameworkCase {
    const char* name;
    std::function<std::unique_ptr<ParallelFramework>()> make;
};

// Test listings show the case's name rather than its bytes.
void PrintTo(const FrameworkCase& c, std::ostream* os) { *os << c.name; }

std::vector<FrameworkCase> framework_cases() {
    using namespace qmp;
    return {
        {"none", [] { return std::make_unique<NoneFramework>(); }},
        {"cppasync", [] { return std::make_unique<CppAsyncFramework>(); }},
        {"cppasync_async_only_tree", [] { return std::make_unique<CppAsyncFramework>(1, true); }},
        {"spawn", [] { return std::make_unique<SpawnFramework>(); }},
        {"taskqueue", [] { return std::make_unique<TaskQueueFramework>(); }},
        {"taskqueue_1_worker", [] { return std::make_unique<TaskQueueFramework>(1); }},
        {"taskqueue_7_workers", [] { return std::make_unique<TaskQueueFramework>(7); }},
        {"pushpool", [] { return std::make_unique<PushPoolFramework>(); }},
        {"pushpool_1_worker_random",
         [] { return std::make_unique<PushPoolFramework>(PushPoolFramework::Options{{}, 1, true}); }},
        {"pushpool_7_workers",
         [] { return std::make_unique<PushPoolFramework>(PushPoolFramework::Options{{}, 7, false}); }},
    };
}

using qmp::test::test_seed;

class Frameworks : public ::testing::TestWithParam<FrameworkCase> {
protected:
    void SetUp() override { framework_ = GetParam().make(); }
    // spawn and cppasync create a thread per task: large counts only measure thread creation.
    bool thread_per_task() const {
        return framework_->key() == std::string("spawn") || framework_->key() == std::string("cppasync");
    }
    uint64_t large_count() const { return thread_per_task() ? 200 : 1000; }
    std::unique_ptr<ParallelFramework> framework_;
};

TEST_P(Frameworks, EachTaskOnceAndAllFinishedOnReturn) {
    const uint32_t cores = std::max(1u, std::thread::hardware_concurrency());
    for (uint64_t n : {uint64_t(0), uint64_t(1), uint64_t(2), uint64_t(3), uint64_t(cores), uint64_t(cores) + 1,
                       uint64_t(64), large_count()}) {
        SCOPED_TRACE("task_count = " + std::to_string(n));
        std::vector<std::atomic<uint32_t>> runs(n + 1);
        framework_->run(n, [&](uint64_t i) {
            // The last task is slow: a framework that returns early is caught with it unfinished.
            if (i + 1 == n) std::this_thread::sleep_for(std::chrono::milliseconds(5));
            runs[i].fetch_add(1);
        });
        for (uint64_t i = 0; i < n; ++i) ASSERT_EQ(runs[i].load(), 1u) << "index " << i;
        EXPECT_EQ(runs[n].load(), 0u) << "ran an index past the end";
    }
}

TEST_P(Frameworks, NestedThreeLevels) {
    std::vector<std::atomic<uint32_t>> runs(5 * 6 * 7);
    framework_->run(5, [&](uint64_t i) {
        framework_->run(6, [&](uint64_t j) {
            framework_->run(7, [&](uint64_t k) { runs[(i * 6 + j) * 7 + k].fetch_add(1); });
        });
    });
    for (size_t x = 0; x < runs.size(); ++x) ASSERT_EQ(runs[x].load(), 1u) << "leaf " << x;
}

// A binary-splitting-shaped recursion: every fork is run(2), the leaves sum their indices. On a
// pool whose waiting threads sit idle this deadlocks once the depth exceeds the worker count.
uint64_t fork_join_sum(ParallelFramework& p, uint64_t first, uint32_t depth) {
    if (depth == 0) return first;
    uint64_t halves[2] = {0, 0};
    p.run(2, [&](uint64_t h) { halves[h] = fork_join_sum(p, first + (h << (depth - 1)), depth - 1); });
    return halves[0] + halves[1];
}

TEST_P(Frameworks, ForkJoinRecursionCompletes) {
    const uint32_t depth = thread_per_task() ? 8 : 14;
    const uint64_t leaves = uint64_t(1) << depth;
    EXPECT_EQ(fork_join_sum(*framework_, 0, depth), leaves * (leaves - 1) / 2);
}

TEST_P(Frameworks, ParallelSumMatchesSequential) {
    const uint64_t seed = test_seed();
    SCOPED_TRACE("seed = " + std::to_string(seed) + " (QMP_TEST_SEED)");
    std::mt19937_64 rng(seed);
    std::vector<uint64_t> data(100000);
    for (uint64_t& x : data) x = rng();
    for (uint64_t tasks : {1ull, 7ull, 64ull}) {
        auto block_sums = [&](qmp::Parallelizer& p) {
            std::vector<uint64_t> sums(tasks);
            p.run(tasks, [&](uint64_t t) {
                const size_t lo = data.size() * t / tasks, hi = data.size() * (t + 1) / tasks;
                uint64_t s = 0;
                for (size_t i = lo; i < hi; ++i) s = s * 31 + data[i];  // order-sensitive
                sums[t] = s;
            });
            return sums;
        };
        qmp::NoneFramework none;
        EXPECT_EQ(block_sums(*framework_), block_sums(none)) << "tasks = " << tasks;
    }
}

TEST_P(Frameworks, FirstExceptionIsCarriedToCaller) {
    // A push-pool worker's exception is fatal (death test elsewhere); a task on the calling
    // thread is carried as everywhere. Throwing on the calling thread covers every framework.
    const std::thread::id caller = std::this_thread::get_id();
    for (uint64_t n : {1ull, 2ull, 50ull}) {
        std::atomic<uint32_t> started{0};
        try {
            framework_->run(n, [&](uint64_t) {
                started.fetch_add(1);
                if (std::this_thread::get_id() == caller) throw std::runtime_error("task failed");
            });
            // cppasync/spawn may hand every task to another thread; then nothing throws.
            EXPECT_NE(framework_->key(), std::string("none"));
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "task failed");
        }
        EXPECT_GE(started.load(), 1u);
    }
    if (framework_->key() == std::string("pushpool")) return;
    // Elsewhere a task on any thread is carried: index 3 throws wherever it runs.
    try {
        framework_->run(40, [&](uint64_t i) {
            if (i == 3) throw std::runtime_error("index 3");
        });
        FAIL() << "exception lost";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "index 3");
    }
    // The framework is still usable after a failed run.
    std::atomic<uint64_t> sum{0};
    framework_->run(100, [&](uint64_t i) { sum += i; });
    EXPECT_EQ(sum.load(), 4950u);
}

TEST_P(Frameworks, ConcurrentCallersShareOneFramework) {
    // Two threads issuing runs on the same pool at once must not mix up their jobs.
    const uint64_t n = large_count() / 4;
    std::vector<std::atomic<uint32_t>> runs(2 * n);
    std::thread other([&] { framework_->run(n, [&](uint64_t i) { runs[n + i].fetch_add(1); }); });
    framework_->run(n, [&](uint64_t i) { runs[i].fetch_add(1); });
    other.join();
    for (size_t x = 0; x < runs.size(); ++x) ASSERT_EQ(runs[x].load(), 1u) << "slot " << x;
}

INSTANTIATE_TEST_SUITE_P(All, Frameworks, ::testing::ValuesIn(framework_cases()),
                         [](const ::testing::TestParamInfo<FrameworkCase>& info) { return info.param.name; });

}  // namespace
