// std::async framework with tree-shaped launching above MaxSequentialDispatch tasks.
#include "qmp/parallel/cppasync_framework.h"

#include "qmp/parallel/first_error.h"

#include <future>
#include <system_error>
#include <vector>

namespace qmp {

CppAsyncFramework::CppAsyncFramework(uint64_t max_sequential_dispatch, bool async_only)
    : max_sequential_dispatch_(max_sequential_dispatch), async_only_(async_only) {
    if (max_sequential_dispatch_ < 1)
        throw InvalidParametersException("CppAsyncFramework()", "MaxSequentialDispatch must be at least 1.");
}

const char* CppAsyncFramework::launch_policy_text() const noexcept {
    return async_only_ ? "  (async only)" : "  (async | deferred)";
}

std::string CppAsyncFramework::description() const {
    return std::string("std::async") + launch_policy_text();
}

void CppAsyncFramework::run_in_parallel(uint64_t task_count, TaskFunction task) {
    if (task_count == 0) return;
    if (task_count == 1) {
        task(0);
        return;
    }
    run_range(0, task_count, task);
}

void CppAsyncFramework::run_range(uint64_t first, uint64_t end, TaskFunction task) {
    const std::launch policy = async_only_ ? std::launch::async : (std::launch::async | std::launch::deferred);
    FirstError error;
    std::vector<std::future<void>> calls;
    // Launches `work` as an asynchronous call, or runs it here when no thread can be had.
    auto launch = [&](auto work) {
        try {
            calls.push_back(std::async(policy, work));
        } catch (const std::system_error&) {
            work();
        }
    };
    auto guarded = [&](auto work) {
        return [&error, work] {
            if (error.failed()) return;
            try {
                work();
            } catch (...) {
                error.record(std::current_exception());
            }
        };
    };

    uint64_t local_end = end;
    if (end - first > max_sequential_dispatch_) {
        const uint64_t mid = first + (end - first) / 2;
        launch(guarded([this, mid, end, task] { run_range(mid, end, task); }));
        local_end = mid;
    }
    if (local_end - first > max_sequential_dispatch_) {
        guarded([this, first, local_end, task] { run_range(first, local_end, task); })();
    } else {
        calls.reserve(calls.size() + (local_end - first - 1));
        for (uint64_t i = first + 1; i < local_end; ++i) launch(guarded([task, i] { task(i); }));
        guarded([task, first] { task(first); })();
    }
    // Every call is waited for before anything is rethrown: the tasks reference this frame.
    for (std::future<void>& call : calls) call.wait();
    for (std::future<void>& call : calls) call.get();  // the work itself never throws
    error.rethrow_if_any();
}

ConfigObject CppAsyncFramework::to_config() const {
    ConfigObject config = ParallelFramework::to_config();
    config.add_integer("MaxSequentialDispatch", static_cast<int64_t>(max_sequential_dispatch_));
    config.add_bool("AsyncOnly", async_only_);
    return config;
}

std::vector<FrameworkSettingLine> CppAsyncFramework::setting_lines() const {
    return {{"    Launch Policy:", launch_policy_text()},
            {"    Max Sequential Dispatch:", std::to_string(max_sequential_dispatch_)}};
}

std::unique_ptr<ParallelFramework> CppAsyncFramework::create(const ConfigObject& settings) {
    const ConfigObject& object = settings.as_object("Framework");
    const int64_t max_sequential = object.get_integer("MaxSequentialDispatch", "CppAsyncFramework::create()");
    if (max_sequential < 1)
        throw InvalidParametersException("CppAsyncFramework::create()", "MaxSequentialDispatch must be at least 1.");
    const bool async_only = object.get_bool("AsyncOnly", "CppAsyncFramework::create()");
    return std::make_unique<CppAsyncFramework>(static_cast<uint64_t>(max_sequential), async_only);
}

ConfigObject CppAsyncFramework::default_config() { return CppAsyncFramework().to_config(); }

}  // namespace qmp
