// TaskQueue: serving order (forks ahead of pushed work, newest fork first), fork ownership (an
// unstolen fork runs on its caller), closing (refuses, unchanged, still drains), the ID limits
// and the exceptions dispatch() carries back.
#include "qmp/parallel/task_queue.h"

#include "qmp/exception.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using qmp::TaskQueue;

// A queued task that appends its name to a log when it runs.
class LogTask final : public TaskQueue::Task {
public:
    LogTask(std::vector<std::string>& log, std::string name) : log_(log), name_(std::move(name)) {}
    void run() override { log_.push_back(name_); }

private:
    std::vector<std::string>& log_;
    std::string name_;
};

// Exposes the explicit-ID insertion to reach the ID limits without 2^63 pushes.
class TestQueue : public TaskQueue {
public:
    using TaskQueue::insert_with_id;
};

TEST(TaskQueue, PushBackNumbersFromZeroAndServesSmallestFirst) {
    TaskQueue q;
    std::vector<std::string> log;
    LogTask a(log, "a"), b(log, "b"), c(log, "c");
    EXPECT_EQ(q.push_back(a), 0);
    EXPECT_EQ(q.push_back(b), 1);
    EXPECT_EQ(q.push_back(c), 2);
    while (q.try_run_next()) {
    }
    EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c"}));
    // An emptied queue numbers from zero again.
    EXPECT_EQ(q.push_back(a), 0);
    EXPECT_TRUE(q.try_run_next());
}

TEST(TaskQueue, ForksGoAheadOfPushedWorkNewestFirst) {
    TaskQueue q;
    std::vector<std::string> log;
    LogTask p0(log, "pushed0"), p1(log, "pushed1");
    q.push_back(p0);
    q.push_back(p1);
    std::vector<int64_t> ids_inside;
    std::vector<std::string> stolen;
    q.dispatch(
        [&] {
            q.dispatch(
                [&] {
                    ids_inside = q.ids();
                    // Acting as a worker: it must take the newest fork, then the older one.
                    ASSERT_TRUE(q.try_run_next());
                    ASSERT_TRUE(q.try_run_next());
                    stolen = log;
                },
                [&] { log.push_back("inner fork"); });
        },
        [&] { log.push_back("outer fork"); });
    EXPECT_EQ(ids_inside, (std::vector<int64_t>{-2, -1, 0, 1}));
    EXPECT_EQ(stolen, (std::vector<std::string>{"inner fork", "outer fork"}));
    // Pushed work is untouched by the forks and still served in order.
    EXPECT_EQ(q.ids(), (std::vector<int64_t>{0, 1}));
}

TEST(TaskQueue, UnstolenForkRunsOnItsCaller) {
    TaskQueue q;
    std::thread::id a_thread, b_thread;
    int order = 0, a_order = -1, b_order = -1;
    q.dispatch([&] { a_thread = std::this_thread::get_id(); a_order = order++; },
               [&] { b_thread = std::this_thread::get_id(); b_order = order++; });
    EXPECT_EQ(a_thread, std::this_thread::get_id());
    EXPECT_EQ(b_thread, std::this_thread::get_id());
    EXPECT_EQ(a_order, 0);
    EXPECT_EQ(b_order, 1);
    EXPECT_EQ(q.size(), 0u);
}

TEST(TaskQueue, StolenForkIsWaitedFor) {
    TaskQueue q;
    std::thread worker([&] { q.worker_loop(); });
    std::atomic<bool> b_done{false};
    std::thread::id b_thread;
    q.dispatch(
        [&] {
            // Give the worker time to take b while a is still running.
            while (q.size() != 0) std::this_thread::yield();
        },
        [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            b_thread = std::this_thread::get_id();
            b_done = true;
        });
    EXPECT_TRUE(b_done.load());  // dispatch() returned only after the worker finished b
    EXPECT_EQ(b_thread, worker.get_id());
    q.close();
    worker.join();
}

TEST(TaskQueue, ClosedQueueRefusesAndIsUnchanged) {
    TaskQueue q;
    std::vector<std::string> log;
    LogTask a(log, "a"), b(log, "b");
    q.push_back(a);
    q.close();
    EXPECT_TRUE(q.closed());
    try {
        q.push_back(b);
        FAIL() << "push_back() on a closed queue did not throw";
    } catch (const qmp::Exception& e) {
        EXPECT_EQ(e.function(), "TaskQueue::push_back()");
        EXPECT_EQ(e.message(), "Queue is closed.");
    }
    EXPECT_EQ(q.ids(), (std::vector<int64_t>{0}));
    EXPECT_TRUE(log.empty());
}

TEST(TaskQueue, ClosedQueueStillDrains) {
    TaskQueue q;
    std::vector<std::string> log;
    LogTask a(log, "a"), b(log, "b"), c(log, "c");
    q.push_back(a);
    q.push_back(b);
    q.push_back(c);
    q.close();
    // A worker started after closing runs everything left, in order, then stops.
    std::thread worker([&] { q.worker_loop(); });
    worker.join();
    EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(q.size(), 0u);
    EXPECT_FALSE(q.run_next());
}

TEST(TaskQueue, IdLimits) {
    std::vector<std::string> log;
    LogTask a(log, "a"), b(log, "b");
    {
        TestQueue q;
        q.insert_with_id(std::numeric_limits<int64_t>::max(), a);
        try {
            q.push_back(b);
            FAIL() << "no ID limit at the back";
        } catch (const qmp::LimitExceededException& e) {
            EXPECT_EQ(e.function(), "TaskQueue::push_back()");
            EXPECT_EQ(e.message(), "ID limit exceeded.");
        }
        EXPECT_EQ(q.size(), 1u);
        // The front still has room.
        EXPECT_EQ(q.push_front(b), std::numeric_limits<int64_t>::max() - 1);
        while (q.try_run_next()) {
        }
    }
    {
        TestQueue q;
        q.insert_with_id(std::numeric_limits<int64_t>::min(), a);
        bool a_ran_here = false;
        try {
            q.dispatch([&] { a_ran_here = true; }, [] {});
            FAIL() << "no ID limit at the front";
        } catch (const qmp::LimitExceededException& e) {
            EXPECT_EQ(e.function(), "TaskQueue::dispatch()");
            EXPECT_EQ(e.message(), "ID limit exceeded.");
        }
        EXPECT_FALSE(a_ran_here);  // refused before any work started
        EXPECT_EQ(q.size(), 1u);
        EXPECT_EQ(q.push_back(b), std::numeric_limits<int64_t>::min() + 1);
        while (q.try_run_next()) {
        }
    }
}

TEST(TaskQueue, DispatchRethrowsFirstHalfThenSecond) {
    TaskQueue q;
    std::thread worker([&] { q.worker_loop(); });
    for (int stolen = 0; stolen < 2; ++stolen) {
        SCOPED_TRACE(stolen ? "second half stolen" : "second half on caller");
        auto wait_if_stolen = [&] {
            if (stolen) while (q.size() != 0) std::this_thread::yield();
        };
        bool b_ran = false;
        try {
            q.dispatch([&] { wait_if_stolen(); throw std::runtime_error("a"); },
                       [&] { b_ran = true; throw std::runtime_error("b"); });
            FAIL();
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "a");
        }
        EXPECT_TRUE(b_ran);  // a's failure does not abandon b, which references this frame
        try {
            q.dispatch([&] { wait_if_stolen(); }, [&] { throw std::runtime_error("b"); });
            FAIL();
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "b");
        }
    }
    q.close();
    worker.join();
}

}  // namespace
