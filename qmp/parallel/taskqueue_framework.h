// "taskqueue": a pool of worker threads fed by one TaskQueue. A run of N tasks is a job whose
// indices are handed out from an atomic counter; the caller and up to min(N - 1, workers)
// helpers take indices until none remain. Helpers are queued as forks (TaskQueue::push_front)
// in a fan-out tree: each participant forks up to two more while the budget lasts, so waking W
// workers takes about log2(W) steps rather than W notifications in a row from the caller. The
// caller then joins its forks: one nobody took it runs itself, one a worker took it waits for
// while helping with newer forks, so a nested run never blocks a core (see task_queue.h).
// Exceptions are carried to the caller (the first one); later indices are skipped.
// No options in the menus; the worker count is one per logical core the process may use.
#pragma once

#include <thread>
#include <vector>

#include "qmp/parallel/parallel_framework.h"
#include "qmp/parallel/task_queue.h"

namespace qmp {

class TaskQueueFramework final : public ParallelFramework {
public:
    // worker_count 0: one per logical core.
    explicit TaskQueueFramework(uint32_t worker_count = 0);
    ~TaskQueueFramework() override;

    void run_in_parallel(uint64_t task_count, TaskFunction task) override;
    std::string description() const override { return "Task Queue"; }
    const char* key() const noexcept override { return "taskqueue"; }

    uint32_t worker_count() const noexcept { return static_cast<uint32_t>(workers_.size()); }
    // The queue itself, for algorithms that fork with dispatch() directly.
    TaskQueue& queue() noexcept { return queue_; }

    static std::unique_ptr<ParallelFramework> create(const ConfigObject& settings);

private:
    TaskQueue queue_;
    std::vector<std::thread> workers_;
};

}  // namespace qmp
