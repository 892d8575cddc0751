// The paths that end the program (death tests) and the status frames whose misuse leads there:
// a push-pool worker's exception, a frame stack destroyed unbalanced, and the thrown errors of
// unbalanced pops.
#include "qmp/parallel/parallel_local.h"

#include "qmp/exception.h"
#include "qmp/parallel/pushpool_framework.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace {

class FatalPaths : public ::testing::Test {
protected:
    // The pools below have threads; fork()+exec is the safe way to die in a child.
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FatalPaths, PushPoolWorkerExceptionEndsTheProgram) {
    EXPECT_EXIT(
        {
            qmp::PushPoolFramework pool(qmp::PushPoolFramework::Options{{}, 2, false});
            const std::thread::id caller = std::this_thread::get_id();
            // Every task not on the caller throws; the caller keeps itself busy so that the
            // workers certainly get tasks.
            pool.run(64, [&](uint64_t) {
                if (std::this_thread::get_id() == caller) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                    return;
                }
                throw qmp::AlgorithmFailedException("Test::task()", "Deliberate failure.");
            });
            std::exit(0);  // not reached when the fatal path works
        },
        ::testing::ExitedWithCode(1),
        "PushPoolWorker: An exception was thrown from a task.\nTest::task\\(\\): Deliberate failure.");
}

TEST_F(FatalPaths, DestroyingFramesWithSubnodes) {
    EXPECT_EXIT(
        {
            qmp::ParallelLocalNode root("root");
            root.push_frame("outer").push_frame("inner");
        },
        ::testing::ExitedWithCode(1), "ParallelLocalNode: Attempted to destroy a node with subnodes.");
    EXPECT_EXIT(
        {
            qmp::ParallelLocalIteration it("loop", 3);
            it.push_frame("step");
        },
        ::testing::ExitedWithCode(1), "ParallelLocalIteration: Attempted to destroy a node with subnodes.");
}

TEST(ParallelLocal, FramesPushPopAndStatus) {
    qmp::ParallelLocalNode root("Multiply");
    EXPECT_EQ(root.status(), "Multiply");
    qmp::ParallelLocalIteration& pass = root.push_iteration("FFT pass", 3);
    pass.set_iteration(2);
    pass.push_frame("twiddle");
    EXPECT_EQ(root.status(), "Multiply > FFT pass (2/3) > twiddle");

    // Popping a frame that has frames of its own is refused and changes nothing.
    try {
        root.pop_frame();
        FAIL();
    } catch (const qmp::AlgorithmFailedException& e) {
        EXPECT_EQ(e.message(), "ParallelLocalIteration: Attempted to destroy a node with subnodes.");
    }
    qmp::ParallelLocalNode& plain = pass.push_frame("plain");
    plain.push_frame("leaf");
    try {
        pass.pop_frame();
        FAIL();
    } catch (const qmp::AlgorithmFailedException& e) {
        EXPECT_EQ(e.message(), "ParallelLocalNode: Attempted to destroy a node with subnodes.");
    }
    EXPECT_EQ(pass.frame_count(), 2u);
    plain.pop_frame();
    pass.pop_frame();
    pass.pop_frame();
    root.pop_frame();
    EXPECT_EQ(root.frame_count(), 0u);
    try {
        root.pop_frame();
        FAIL();
    } catch (const qmp::AlgorithmFailedException& e) {
        EXPECT_EQ(e.message(), "Attempted to pop a non-existent node.");
    }
}

TEST(ParallelLocal, UnwindingDropsFramesQuietly) {
    // An exception skipping the pops must surface as itself, not as a fatal frame error.
    try {
        qmp::ParallelLocalNode root("root");
        root.push_iteration("loop", 10).push_frame("step");
        throw std::runtime_error("real failure");
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "real failure");
    }
}

}  // namespace
