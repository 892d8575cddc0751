// TaskQueue: a mutex, a condition variable, a closed flag and an ordered map from a signed
// 64-bit ID to a task. Workers serve the map from its front (smallest ID first).
//   push_back(): ID = largest + 1 (0 for an empty map); refused on a closed queue ("Queue is
//     closed.", the queue unchanged) or at ID 2^63 - 1 ("ID limit exceeded.").
//   dispatch(a, b): the two-way fork. b is queued at the front (ID = smallest - 1, "ID limit
//     exceeded." below -2^63), a runs on the caller; then b is taken back and run on the caller
//     if no worker has started it, else the caller waits for it. So forks go ahead of pushed
//     work, the newest fork first, and an unstolen fork is finished by the thread that made it.
//   close(): no more push_back(); workers drain what is queued and then stop.
// Tasks are owned by the caller and must outlive their run; queuing never copies them. A thread
// that waits for a stolen fork helps: it runs queued forks newer than the one it waits for,
// which are the only ones that can be the stolen fork's own children, so nested forks never
// leave a core idle behind a blocked parent and never deadlock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <vector>

namespace qmp {

class TaskQueue {
public:
    class Task {
    public:
        // Runs the work; an exception is caught by the queue and kept in error().
        virtual void run() = 0;

        int64_t id() const noexcept { return id_; }
        bool finished() const noexcept { return state_.load(std::memory_order_acquire) == kDone; }
        // The exception the run ended with; valid once finished().
        const std::exception_ptr& error() const noexcept { return error_; }

    protected:
        Task() = default;
        ~Task() = default;
        Task(const Task&) = delete;
        Task& operator=(const Task&) = delete;

    private:
        friend class TaskQueue;
        enum : uint32_t { kIdle, kQueued, kTaken, kDone };
        std::atomic<uint32_t> state_{kIdle};
        int64_t id_ = 0;
        std::exception_ptr error_;
    };

    // A Task that calls a callable kept by reference.
    template <typename F>
    class CallableTask final : public Task {
    public:
        explicit CallableTask(F& f) noexcept : f_(f) {}
        void run() override { f_(); }

    private:
        F& f_;
    };

    TaskQueue() = default;
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    // Appends `task` at the back and returns its ID.
    int64_t push_back(Task& task);
    // Queues `task` ahead of everything (the first half of dispatch()) and returns its ID.
    int64_t push_front(Task& task);
    // Finishes a task queued by push_front() (the second half of dispatch()): runs it here if no
    // worker took it, else waits for it, helping with newer forks meanwhile. Never throws; the
    // task's exception is in task.error().
    void join(Task& task) noexcept;

    // Runs a and b, possibly in parallel; rethrows a's exception, else b's.
    template <typename A, typename B>
    void dispatch(A&& a, B&& b) {
        CallableTask<std::remove_reference_t<B>> task_b(b);
        push_front(task_b);
        std::exception_ptr error_a;
        try {
            a();
        } catch (...) {
            error_a = std::current_exception();
        }
        join(task_b);
        if (error_a) std::rethrow_exception(error_a);
        if (task_b.error()) std::rethrow_exception(task_b.error());
    }

    // Worker side: takes the smallest-ID task and runs it, waiting while the queue is empty.
    // Returns false once the queue is closed and empty.
    bool run_next();
    // As run_next() without waiting: false when nothing is queued.
    bool try_run_next();
    // run_next() until the queue is closed and drained.
    void worker_loop();

    void close();
    bool closed() const;
    uint64_t size() const;
    // The queued IDs in serving order.
    std::vector<int64_t> ids() const;

protected:
    // Queues `task` under an explicit ID (used to test the ID limits without 2^63 pushes).
    void insert_with_id(int64_t id, Task& task);

private:
    Task* take_front_locked();
    void insert_locked(int64_t id, Task& task);
    // Runs a task taken from the map and publishes its completion.
    void execute(Task& task) noexcept;

    mutable std::mutex mutex_;
    std::condition_variable worker_cv_;  // workers: a task was queued or the queue closed
    std::condition_variable join_cv_;    // joiners: a task finished or a fork was queued
    std::map<int64_t, Task*> tasks_;
    bool closed_ = false;
    uint32_t join_waiters_ = 0;
};

}  // namespace qmp
