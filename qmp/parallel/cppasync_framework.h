// "cppasync": each task is one asynchronous call of the standard library (std::async), with
// the launch policy "async" (a thread per call, shown "  (async only)") or "async | deferred"
// (the library may also defer a call until it is waited for, shown "  (async | deferred)").
//
// "MaxSequentialDispatch" bounds how many calls one thread launches one after another. Launching
// costs a thread creation each, so a run of N tasks launched by the caller alone takes N
// creations in series; above the bound the range is halved and one call launches the upper
// half's dispatch while the caller dispatches the lower, which makes the launch a tree of depth
// log2(N / bound). Default 16: small runs (the common case, two to a few dozen tasks) launch
// directly, and launching 1024 tasks takes ~7 levels instead of 1023 creations in a row.
//
// Nested forks are safe (no pool to exhaust); a refused thread runs its call on the caller.
// Exceptions are carried to the caller (the first one).
#pragma once

#include "qmp/parallel/parallel_framework.h"

namespace qmp {

class CppAsyncFramework final : public ParallelFramework {
public:
    static constexpr uint64_t kDefaultMaxSequentialDispatch = 16;

    // max_sequential_dispatch >= 1, else InvalidParametersException.
    explicit CppAsyncFramework(uint64_t max_sequential_dispatch = kDefaultMaxSequentialDispatch,
                               bool async_only = false);

    void run_in_parallel(uint64_t task_count, TaskFunction task) override;
    std::string description() const override;
    const char* key() const noexcept override { return "cppasync"; }
    ConfigObject to_config() const override;
    std::vector<FrameworkSettingLine> setting_lines() const override;

    uint64_t max_sequential_dispatch() const noexcept { return max_sequential_dispatch_; }
    bool async_only() const noexcept { return async_only_; }
    // "  (async only)" or "  (async | deferred)".
    const char* launch_policy_text() const noexcept;

    static std::unique_ptr<ParallelFramework> create(const ConfigObject& settings);
    static ConfigObject default_config();

private:
    void run_range(uint64_t first, uint64_t end, TaskFunction task);

    uint64_t max_sequential_dispatch_;
    bool async_only_;
};

}  // namespace qmp
