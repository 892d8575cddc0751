// Core placement: CPU-list parsing, scheduling-group algebra and its incompatibility error, the
// NUMA node reader (against a fake node directory), resource-to-range conversion, and the
// warnings of thread pinning and priority.
#include "qmp/parallel/parallel_resource.h"

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/parallel/none_framework.h"
#include "qmp/parallel/spawn_framework.h"
#include "qmp/parallel/taskqueue_framework.h"
#include "qmp/parallel/thread_control.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <unistd.h>

namespace {

using qmp::SchedulingGroup;
using V = std::vector<uint32_t>;

TEST(SchedulingGroup, CpuListParsing) {
    EXPECT_EQ(qmp::parse_cpu_list("0-3,8,10-11\n"), (V{0, 1, 2, 3, 8, 10, 11}));
    EXPECT_EQ(qmp::parse_cpu_list("5"), (V{5}));
    EXPECT_EQ(qmp::parse_cpu_list("3,1-2,2"), (V{1, 2, 3}));
    EXPECT_EQ(qmp::parse_cpu_list("\n"), V{});
    for (const char* bad : {"1-", "-1", "3-1", "1,,2", "1,", "a", "1 2", "99999999999"})
        EXPECT_THROW(qmp::parse_cpu_list(bad), qmp::ParseException) << bad;
}

TEST(SchedulingGroup, UnionXorAndKinds) {
    SchedulingGroup g;  // empty: takes the kind of the first group combined into it
    g |= SchedulingGroup::from_cores({4, 1});
    g |= SchedulingGroup::from_cores({2, 1});
    EXPECT_EQ(g.cores(), (V{1, 2, 4}));
    g ^= SchedulingGroup::from_cores({2, 3});
    EXPECT_EQ(g.cores(), (V{1, 3, 4}));

    SchedulingGroup n = SchedulingGroup::from_numa_node(0, {0, 1});
    n |= SchedulingGroup::from_numa_node(1, {2, 3});
    EXPECT_EQ(n.numa_nodes(), (V{0, 1}));
    n ^= SchedulingGroup::from_numa_node(0, {0, 1});
    EXPECT_EQ(n.numa_nodes(), (V{1}));
    EXPECT_EQ(n.cores(), (V{2, 3}));

    for (int op = 0; op < 2; ++op) {
        SchedulingGroup cores = SchedulingGroup::from_cores({7});
        try {
            if (op == 0) cores |= n; else cores ^= n;
            FAIL() << "mixed kinds accepted";
        } catch (const qmp::InvalidParametersException& e) {
            EXPECT_EQ(e.message(), "NUMA Nodes is not compatible with existing scheduling group.");
            EXPECT_EQ(e.function(), op == 0 ? "SchedulingGroup::operator|=()" : "SchedulingGroup::operator^=()");
        }
        EXPECT_EQ(cores.cores(), (V{7}));  // unchanged by the refused operation
    }
}

TEST(SchedulingGroup, NumaNodeFromSystemFiles) {
    const std::filesystem::path root =
        std::filesystem::temp_directory_path() / ("qmp_numa_test_" + std::to_string(getpid()));
    std::filesystem::create_directories(root / "node0");
    std::filesystem::create_directories(root / "node1");
    std::ofstream(root / "node0" / "cpulist") << "0-2,6\n";
    std::ofstream(root / "node1" / "cpulist") << "\n";  // a memory-only node
    qmp::SchedulingGroupSelector selector(root.string());
    selector.set_to_numa_node(0);
    EXPECT_EQ(selector.group().cores(), (V{0, 1, 2, 6}));
    EXPECT_EQ(selector.group().numa_nodes(), (V{0}));
    for (uint32_t node : {1u, 2u}) {
        try {
            selector.set_to_numa_node(node);
            ADD_FAILURE() << "node " << node;
        } catch (const qmp::InvalidParametersException& e) {
            EXPECT_EQ(e.message(), "There are no cores on node " + std::to_string(node));
            EXPECT_EQ(e.function(), "SchedulingGroupSelector::set_to_numa_node()");
        }
    }
    EXPECT_EQ(selector.group().cores(), (V{0, 1, 2, 6}));  // failed selections change nothing
    std::filesystem::remove_all(root);
    // This machine's own node 0, when it has one, lists the core we run on.
    if (std::filesystem::exists("/sys/devices/system/node/node0/cpulist")) {
        qmp::SchedulingGroupSelector real;
        real.set_to_numa_node(0);
        EXPECT_FALSE(real.group().empty());
    }
}

TEST(ParallelResource, RangeConversionAndRunning) {
    qmp::ParallelResource r{4, 10, {SchedulingGroup::from_cores({0})}};
    const qmp::ParallelRange range = qmp::parallel_resource_to_parallel_range(r, 6);
    EXPECT_EQ(range.start, 4u);
    EXPECT_EQ(range.end, 10u);
    for (uint64_t min_tasks : {uint64_t(7), std::numeric_limits<uint64_t>::max()}) {
        try {
            qmp::parallel_resource_to_parallel_range(r, min_tasks);
            ADD_FAILURE() << min_tasks;
        } catch (const qmp::AlgorithmFailedException& e) {
            EXPECT_EQ(e.message(), "Failed: rs + minR <= re");
        }
    }
    // Frameworks that can run over a resource run exactly its range; the others refuse.
    qmp::NoneFramework none;
    qmp::SpawnFramework spawn;
    for (qmp::Parallelizer* p : {static_cast<qmp::Parallelizer*>(&none), static_cast<qmp::Parallelizer*>(&spawn)}) {
        std::vector<std::atomic<int>> hits(12);
        std::atomic<bool> off_core{false};
        p->run_resource(r, [&](uint64_t i) {
            hits[i]++;
            if (p == &spawn && i != r.task_start && sched_getcpu() != 0) off_core = true;
        });
        for (uint64_t i = 0; i < hits.size(); ++i) EXPECT_EQ(hits[i].load(), (i >= 4 && i < 10) ? 1 : 0) << i;
        EXPECT_FALSE(off_core.load()) << "spawned task not pinned to the resource's core";
    }
    qmp::TaskQueueFramework pool(1);
    try {
        pool.run_resource(r, [](uint64_t) {});
        FAIL();
    } catch (const qmp::InvalidParametersException& e) {
        EXPECT_EQ(e.function(), "Parallelizer::run_in_parallel_resource()");
        EXPECT_EQ(e.message(), "Not supported.");
    }
}

TEST(ThreadControl, AffinityAndPriorityWarnings) {
    qmp::Console::set_colours_enabled(false);
    std::thread t([] {
        EXPECT_TRUE(qmp::set_current_thread_affinity(0u));
        EXPECT_EQ(sched_getcpu(), 0);
        testing::internal::CaptureStdout();
        // A core far beyond any machine cannot be set.
        EXPECT_FALSE(qmp::set_current_thread_affinity(4000u));
        EXPECT_TRUE(qmp::set_current_thread_priority(5));  // lowering our own priority is always allowed
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_NE(out.find("Failed to set core affinity to core: 4000\n"), std::string::npos) << out;
    });
    t.join();

    qmp::ThreadPriorityReporter reporter;
    testing::internal::CaptureStdout();
    reporter.report(EPERM);
    reporter.report(EACCES);
    reporter.report(EPERM);
    reporter.report(EINVAL);
    reporter.report(ESRCH);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Insufficient permissions to set thread priority. Please retry as root.\n"
              "Further messages for this warning will be suppressed.\n"
              "Unable to set thread priority: errno = " + std::to_string(EINVAL) + "\n"
              "Unable to set thread priority: errno = " + std::to_string(ESRCH) + "\n");
}

}  // namespace
