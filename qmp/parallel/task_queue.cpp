// TaskQueue: ID assignment, serving order, fork/join with helping, closing and draining.
#include "qmp/parallel/task_queue.h"

#include "qmp/exception.h"

#include <limits>

namespace qmp {

void TaskQueue::insert_locked(int64_t id, Task& task) {
    task.id_ = id;
    task.error_ = nullptr;
    task.state_.store(Task::kQueued, std::memory_order_relaxed);
    tasks_.emplace(id, &task);
}

int64_t TaskQueue::push_back(Task& task) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) throw InvalidParametersException("TaskQueue::push_back()", "Queue is closed.");
        int64_t id = 0;
        if (!tasks_.empty()) {
            const int64_t largest = tasks_.rbegin()->first;
            if (largest == std::numeric_limits<int64_t>::max())
                throw LimitExceededException("TaskQueue::push_back()", "ID limit exceeded.");
            id = largest + 1;
        }
        insert_locked(id, task);
    }
    worker_cv_.notify_one();
    return task.id_;
}

int64_t TaskQueue::push_front(Task& task) {
    int64_t id = 0;
    bool wake_joiners = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!tasks_.empty()) {
            const int64_t smallest = tasks_.begin()->first;
            if (smallest == std::numeric_limits<int64_t>::min())
                throw LimitExceededException("TaskQueue::dispatch()", "ID limit exceeded.");
            id = smallest - 1;
        }
        insert_locked(id, task);
        wake_joiners = join_waiters_ != 0;
    }
    worker_cv_.notify_one();
    // A thread blocked in join() may be waiting for exactly this kind of work to help with.
    if (wake_joiners) join_cv_.notify_all();
    return id;
}

void TaskQueue::insert_with_id(int64_t id, Task& task) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (tasks_.count(id) != 0)
            throw InvalidParametersException("TaskQueue::insert_with_id()", "ID is already in use.");
        insert_locked(id, task);
    }
    worker_cv_.notify_one();
}

TaskQueue::Task* TaskQueue::take_front_locked() {
    auto it = tasks_.begin();
    Task* task = it->second;
    tasks_.erase(it);
    task->state_.store(Task::kTaken, std::memory_order_relaxed);
    return task;
}

void TaskQueue::execute(Task& task) noexcept {
    try {
        task.run();
    } catch (...) {
        task.error_ = std::current_exception();
    }
    // The store is the last touch of `task`: its owner may destroy it as soon as it sees kDone.
    std::lock_guard<std::mutex> lock(mutex_);
    task.state_.store(Task::kDone, std::memory_order_release);
    if (join_waiters_ != 0) join_cv_.notify_all();
}

void TaskQueue::join(Task& task) noexcept {
    if (task.finished()) return;
    std::unique_lock<std::mutex> lock(mutex_);
    if (task.state_.load(std::memory_order_relaxed) == Task::kQueued) {
        // Nobody took it: take it back and run it here; no other thread can see it any more.
        tasks_.erase(task.id_);
        task.state_.store(Task::kTaken, std::memory_order_relaxed);
        lock.unlock();
        try {
            task.run();
        } catch (...) {
            task.error_ = std::current_exception();
        }
        task.state_.store(Task::kDone, std::memory_order_release);
        return;
    }
    while (task.state_.load(std::memory_order_acquire) != Task::kDone) {
        // Forks newer than `task` include its own children; running one here keeps this core
        // busy instead of idle while the thief's subtree waits for a free worker.
        if (!tasks_.empty() && tasks_.begin()->first < task.id_) {
            Task* other = take_front_locked();
            lock.unlock();
            execute(*other);
            lock.lock();
            continue;
        }
        ++join_waiters_;
        join_cv_.wait(lock);
        --join_waiters_;
    }
}

bool TaskQueue::run_next() {
    std::unique_lock<std::mutex> lock(mutex_);
    worker_cv_.wait(lock, [this] { return !tasks_.empty() || closed_; });
    if (tasks_.empty()) return false;
    Task* task = take_front_locked();
    lock.unlock();
    execute(*task);
    return true;
}

bool TaskQueue::try_run_next() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (tasks_.empty()) return false;
    Task* task = take_front_locked();
    lock.unlock();
    execute(*task);
    return true;
}

void TaskQueue::worker_loop() {
    while (run_next()) {
    }
}

void TaskQueue::close() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
    }
    worker_cv_.notify_all();
}

bool TaskQueue::closed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return closed_;
}

uint64_t TaskQueue::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return tasks_.size();
}

std::vector<int64_t> TaskQueue::ids() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<int64_t> out;
    out.reserve(tasks_.size());
    for (const auto& entry : tasks_) out.push_back(entry.first);
    return out;
}

}  // namespace qmp
