// Task-queue pool: self-scheduled index ranges run by forked helpers.
#include "qmp/parallel/taskqueue_framework.h"

#include "qmp/parallel/core_selector.h"
#include "qmp/parallel/first_error.h"

#include <atomic>

namespace qmp {
namespace {

struct QueueJob {
    QueueJob(TaskQueue& q, uint64_t n, TaskFunction f, uint64_t helpers)
        : queue(q), count(n), task(f), helper_budget(static_cast<int64_t>(helpers)) {}

    TaskQueue& queue;
    const uint64_t count;
    const TaskFunction task;
    std::atomic<uint64_t> next{0};
    std::atomic<int64_t> helper_budget;
    FirstError error;

    // Takes indices until none remain or a task has failed.
    void work() noexcept {
        while (!error.failed()) {
            const uint64_t i = next.fetch_add(1, std::memory_order_relaxed);
            if (i >= count) return;
            try {
                task(i);
            } catch (...) {
                error.record(std::current_exception());
            }
        }
    }

    // True when one more helper may be forked: budget left and indices a helper could take.
    bool take_helper_slot() noexcept {
        if (next.load(std::memory_order_relaxed) + 1 >= count) return false;
        return helper_budget.fetch_sub(1, std::memory_order_relaxed) > 0;
    }
};

void participate(QueueJob& job) noexcept;

class Helper final : public TaskQueue::Task {
public:
    explicit Helper(QueueJob& job) noexcept : job_(job) {}
    void run() override { participate(job_); }

private:
    QueueJob& job_;
};

void participate(QueueJob& job) noexcept {
    Helper first(job), second(job);
    bool forked_first = false, forked_second = false;
    try {
        if (job.take_helper_slot()) {
            job.queue.push_front(first);
            forked_first = true;
        }
        if (job.take_helper_slot()) {
            job.queue.push_front(second);
            forked_second = true;
        }
    } catch (...) {
        // Out of IDs (or memory for the map node): the work still gets done by fewer threads.
    }
    job.work();
    // Newest first: the second fork has the smaller ID and is the likelier one still queued.
    if (forked_second) job.queue.join(second);
    if (forked_first) job.queue.join(first);
}

}  // namespace

TaskQueueFramework::TaskQueueFramework(uint32_t worker_count) {
    const uint32_t n = worker_count != 0 ? worker_count : logical_core_count();
    workers_.reserve(n);
    try {
        for (uint32_t i = 0; i < n; ++i) workers_.emplace_back([this] { queue_.worker_loop(); });
    } catch (...) {
        queue_.close();
        for (std::thread& t : workers_) t.join();
        throw;
    }
}

TaskQueueFramework::~TaskQueueFramework() {
    queue_.close();
    for (std::thread& t : workers_) t.join();
}

void TaskQueueFramework::run_in_parallel(uint64_t task_count, TaskFunction task) {
    if (task_count == 0) return;
    if (task_count == 1) {
        task(0);
        return;
    }
    const uint64_t helpers = std::min<uint64_t>(task_count - 1, workers_.size());
    QueueJob job(queue_, task_count, task, helpers);
    participate(job);
    job.error.rethrow_if_any();
}

std::unique_ptr<ParallelFramework> TaskQueueFramework::create(const ConfigObject& settings) {
    settings.as_object("Framework");
    return std::make_unique<TaskQueueFramework>();
}

}  // namespace qmp
