// Thread-per-task framework.
#include "qmp/parallel/spawn_framework.h"

#include "qmp/parallel/first_error.h"
#include "qmp/parallel/thread_control.h"

#include <system_error>
#include <thread>
#include <vector>

namespace qmp {
namespace {

// Runs tasks first..end-1 with thread i handling index first + i; cores, when not empty, are
// assigned round-robin from the first task on.
void spawn_range(uint64_t first, uint64_t end, TaskFunction task, const std::vector<uint32_t>& cores) {
    if (first >= end) return;
    FirstError error;
    auto run_one = [&](uint64_t index) {
        if (error.failed()) return;
        try {
            task(index);
        } catch (...) {
            error.record(std::current_exception());
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(end - first - 1);
    for (uint64_t i = first + 1; i < end; ++i) {
        const int64_t core = cores.empty() ? -1 : int64_t(cores[(i - first) % cores.size()]);
        try {
            threads.emplace_back([&run_one, i, core] {
                if (core >= 0) set_current_thread_affinity(uint32_t(core));
                run_one(i);
            });
        } catch (const std::system_error&) {
            run_one(i);  // out of threads: the caller does it
        }
    }
    // The caller is not pinned: it belongs to whoever called, and pinning it here would leak
    // the placement into the caller's later work.
    run_one(first);
    for (std::thread& t : threads) t.join();
    error.rethrow_if_any();
}

}  // namespace

void SpawnFramework::run_in_parallel(uint64_t task_count, TaskFunction task) {
    spawn_range(0, task_count, task, {});
}

void SpawnFramework::run_in_parallel_resource(const ParallelResource& resource, TaskFunction task) {
    spawn_range(resource.task_start, resource.task_end, task, resource.cores());
}

std::unique_ptr<ParallelFramework> SpawnFramework::create(const ConfigObject& settings) {
    settings.as_object("Framework");
    return std::make_unique<SpawnFramework>();
}

}  // namespace qmp
