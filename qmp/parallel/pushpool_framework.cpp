// Push pool: per-worker task slots, idle list, fatal worker exceptions.
#include "qmp/parallel/pushpool_framework.h"

#include "qmp/console.h"
#include "qmp/parallel/core_selector.h"
#include "qmp/parallel/fatal_error.h"
#include "qmp/parallel/first_error.h"
#include "qmp/parallel/thread_control.h"

#include <atomic>
#include <condition_variable>
#include <thread>

namespace qmp {

struct PushPoolFramework::Job {
    Job(uint64_t n, TaskFunction f) : count(n), task(f) {}

    const uint64_t count;
    const TaskFunction task;
    std::atomic<uint64_t> next{0};
    FirstError error;
    // Workers still running this job; guarded by mutex so that the last worker's notify happens
    // before the caller can see zero and destroy the job.
    std::mutex mutex;
    std::condition_variable done;
    uint32_t pending = 0;
};

struct PushPoolFramework::Worker {
    std::mutex mutex;
    std::condition_variable wake;
    Job* job = nullptr;  // the task slot
    bool terminate = false;
    uint32_t index = 0;
    std::thread thread;
};

namespace {

constexpr const char* kWorkerFailure = "PushPoolWorker: An exception was thrown from a task.";

uint64_t next_random() {
    // xorshift64*: only spreads the choice of workers, no statistical quality needed.
    thread_local uint64_t state =
        0x9E3779B97F4A7C15ull ^ std::hash<std::thread::id>()(std::this_thread::get_id());
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return state * 0x2545F4914F6CDD1Dull;
}

}  // namespace

PushPoolFramework::PushPoolFramework(Options options) : options_(std::move(options)) {
    CoreSelector check(options_.cores);  // throws "Invalid core #: N"
    uint32_t n = options_.worker_threads;
    if (n == 0) n = options_.cores.empty() ? logical_core_count() : static_cast<uint32_t>(options_.cores.size());
    workers_.reserve(n);
    idle_.reserve(n);
    for (uint32_t i = 0; i < n; ++i) {
        workers_.push_back(std::make_unique<Worker>());
        workers_.back()->index = i;
        // Idle from the start: a push reaching a worker before it first waits is kept in its
        // slot, so a run issued right after construction already has every worker.
        idle_.push_back(i);
    }
    try {
        for (auto& w : workers_) {
            Worker* worker = w.get();
            worker->thread = std::thread([this, worker] { worker_main(*worker); });
        }
    } catch (...) {
        for (auto& w : workers_) {
            {
                std::lock_guard<std::mutex> lock(w->mutex);
                w->terminate = true;
            }
            w->wake.notify_one();
            if (w->thread.joinable()) w->thread.join();
        }
        throw;
    }
}

PushPoolFramework::~PushPoolFramework() {
    for (auto& w : workers_) {
        {
            std::lock_guard<std::mutex> lock(w->mutex);
            w->terminate = true;
        }
        w->wake.notify_one();
    }
    for (auto& w : workers_) w->thread.join();
}

void PushPoolFramework::worker_main(Worker& worker) {
    if (!options_.cores.empty()) set_current_thread_affinity(options_.cores[worker.index % options_.cores.size()]);
    for (;;) {
        Job* job = nullptr;
        {
            std::unique_lock<std::mutex> lock(worker.mutex);
            worker.wake.wait(lock, [&] { return worker.job != nullptr || worker.terminate; });
            if (worker.terminate) return;
            job = worker.job;
            worker.job = nullptr;
        }
        while (!job->error.failed()) {
            const uint64_t i = job->next.fetch_add(1, std::memory_order_relaxed);
            if (i >= job->count) break;
            try {
                job->task(i);
            } catch (const std::exception& e) {
                fatal_error(kWorkerFailure, e.what());
            } catch (...) {
                fatal_error(kWorkerFailure, "Unknown exception.");
            }
        }
        // Idle again before reporting done, so the caller's next run can already use us.
        {
            std::lock_guard<std::mutex> lock(idle_mutex_);
            idle_.push_back(worker.index);
        }
        std::lock_guard<std::mutex> lock(job->mutex);
        if (--job->pending == 0) job->done.notify_one();
        // `job` may be gone once the lock is released.
    }
}

void PushPoolFramework::run_in_parallel(uint64_t task_count, TaskFunction task) {
    if (task_count == 0) return;
    if (task_count == 1) {
        task(0);
        return;
    }
    Job job(task_count, task);
    // The workers this run claims, kept on a per-thread stack: tasks may start nested runs on
    // this thread, which push and pop their own entries above ours. Reused, so runs do not
    // allocate once it has grown.
    thread_local std::vector<Worker*> claimed;
    const size_t base = claimed.size();
    {
        std::lock_guard<std::mutex> lock(idle_mutex_);
        while (!idle_.empty() && claimed.size() - base + 1 < task_count) {
            size_t pick = idle_.size() - 1;
            if (options_.randomization) {
                pick = static_cast<size_t>(next_random() % idle_.size());
                std::swap(idle_[pick], idle_.back());
            }
            claimed.push_back(workers_[idle_.back()].get());
            idle_.pop_back();
        }
    }
    const size_t end = claimed.size();
    job.pending = static_cast<uint32_t>(end - base);
    for (size_t k = base; k < end; ++k) {
        Worker* w = claimed[k];
        {
            std::lock_guard<std::mutex> lock(w->mutex);
            w->job = &job;
        }
        w->wake.notify_one();
    }
    while (!job.error.failed()) {
        const uint64_t i = job.next.fetch_add(1, std::memory_order_relaxed);
        if (i >= task_count) break;
        try {
            task(i);
        } catch (...) {
            job.error.record(std::current_exception());
        }
    }
    // Take back pushes that no worker has picked up yet: the caller ran out of indices, so those
    // workers would only wake to find nothing left. This spares the wake-up latency of runs
    // whose tasks are short enough for the caller to finish alone.
    uint32_t revoked = 0;
    for (size_t k = base; k < end; ++k) {
        Worker* w = claimed[k];
        bool taken_back = false;
        {
            std::lock_guard<std::mutex> lock(w->mutex);
            if (w->job == &job) {
                w->job = nullptr;
                taken_back = true;
            }
        }
        if (taken_back) {
            ++revoked;
            std::lock_guard<std::mutex> lock(idle_mutex_);
            idle_.push_back(w->index);
        }
    }
    claimed.resize(base);
    {
        std::unique_lock<std::mutex> lock(job.mutex);
        job.pending -= revoked;
        job.done.wait(lock, [&] { return job.pending == 0; });
    }
    job.error.rethrow_if_any();
}

std::string PushPoolFramework::description() const {
    std::string text = "Push Pool  (" + std::to_string(workers_.size()) + (workers_.size() == 1 ? " thread" : " threads");
    if (!options_.cores.empty()) text += ", pinned";
    if (options_.randomization) text += ", randomized";
    return text + ")";
}

ConfigObject PushPoolFramework::to_config() const {
    ConfigObject config = ParallelFramework::to_config();
    CoreSelector(options_.cores).add_to_config(config);
    config.add_integer("WorkerThreads", options_.worker_threads);
    config.add_bool("Randomization", options_.randomization);
    return config;
}

std::vector<FrameworkSettingLine> PushPoolFramework::setting_lines() const {
    return {{"    Cores Enabled:", CoreSelector(options_.cores).display()},
            {"    Worker Threads:", worker_threads_text(options_.worker_threads)},
            {"    Thread Randomization:", options_.randomization ? "Enabled" : "Disabled"}};
}

std::unique_ptr<ParallelFramework> PushPoolFramework::create(const ConfigObject& settings) {
    static constexpr const char* kFunction = "PushPoolFramework::create()";
    const ConfigObject& object = settings.as_object("Framework");
    CoreSelector cores;
    cores.load_config(object);
    const int64_t threads = object.get_integer("WorkerThreads", kFunction);
    if (threads < 0 || threads > 65535)
        throw InvalidParametersException(kFunction, "WorkerThreads must be between 0 and 65535.");
    Options options;
    options.cores = cores.cores();
    options.worker_threads = static_cast<uint32_t>(threads);
    options.randomization = object.get_bool("Randomization", kFunction);
    return std::make_unique<PushPoolFramework>(std::move(options));
}

ConfigObject PushPoolFramework::default_config() {
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", "pushpool");
    config.add_array("LogicalCores");
    config.add_integer("WorkerThreads", 0);
    config.add_bool("Randomization", false);
    return config;
}

bool parse_worker_threads(const std::string& text, uint32_t& threads) {
    if (text.empty() || text.size() > 5) return false;
    uint32_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + uint32_t(c - '0');
    }
    if (value > 65535) return false;
    threads = value;
    return true;
}

bool prompt_worker_threads(uint32_t& threads) {
    for (;;) {
        Console::print("Threads (0 for unlimited threads): ", Console::Colour::Prompt);
        std::string line;
        if (!Console::read_line(line)) return false;
        if (parse_worker_threads(line, threads)) return true;
    }
}

std::string worker_threads_text(uint32_t threads) { return threads == 0 ? "Unlimited" : std::to_string(threads); }

}  // namespace qmp
