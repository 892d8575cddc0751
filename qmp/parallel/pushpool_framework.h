// "pushpool": worker threads that each own one task slot; a run pushes work to idle workers,
// one push per worker. A run of N tasks is a job whose indices come from an atomic counter: the
// caller pushes the job to up to N - 1 idle workers, takes indices itself until none remain and
// waits for the workers it pushed to. When every worker is busy (a nested run) nothing is
// pushed and the caller runs the tasks itself, so nesting never deadlocks.
//
// A task that throws on a worker is fatal: "PushPoolWorker: An exception was thrown from a
// task." and the exception's text, then the process ends (fatal_error()). Tasks that run on the
// calling thread behave as in every other framework: the first exception is rethrown after the
// pushed workers have finished.
//
// This framework carries the thread-pool options:
//   "LogicalCores"  cores to pin workers to, round-robin (empty: no pinning), "    Cores Enabled:"
//   "WorkerThreads" number of workers; 0 means no limit of our own: one worker per enabled
//                   core, or per logical core when none are listed (shown "Unlimited")
//   "Randomization" idle workers are picked at random instead of lowest-index first, which
//                   spreads short runs over all cores rather than always waking the same few
//                   ("    Thread Randomization:")
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "qmp/parallel/parallel_framework.h"

namespace qmp {

class PushPoolFramework final : public ParallelFramework {
public:
    struct Options {
        std::vector<uint32_t> cores;  // validated as CoreSelector does
        uint32_t worker_threads = 0;  // 0: unlimited
        bool randomization = false;
    };

    explicit PushPoolFramework(Options options);
    PushPoolFramework() : PushPoolFramework(Options{}) {}
    ~PushPoolFramework() override;

    void run_in_parallel(uint64_t task_count, TaskFunction task) override;
    std::string description() const override;
    const char* key() const noexcept override { return "pushpool"; }
    ConfigObject to_config() const override;
    std::vector<FrameworkSettingLine> setting_lines() const override;

    uint32_t worker_count() const noexcept { return static_cast<uint32_t>(workers_.size()); }
    const Options& options() const noexcept { return options_; }

    static std::unique_ptr<ParallelFramework> create(const ConfigObject& settings);
    static ConfigObject default_config();

    struct Job;
    struct Worker;

private:
    void worker_main(Worker& worker);

    Options options_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::mutex idle_mutex_;
    std::vector<uint32_t> idle_;  // indices of workers waiting for a push
};

// Parses the reply to the prompt "Threads (0 for unlimited threads): "; false when the text is
// not a whole number from 0 to 65535.
bool parse_worker_threads(const std::string& text, uint32_t& threads);
// Asks "Threads (0 for unlimited threads): " until the reply parses; false at the end of input
// (threads unchanged).
bool prompt_worker_threads(uint32_t& threads);
// "Unlimited" for 0, else the number.
std::string worker_threads_text(uint32_t threads);

}  // namespace qmp
