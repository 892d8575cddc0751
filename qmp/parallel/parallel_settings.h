// The parallel settings of a computation ("Parallelism" in a job): the task decomposition and
// the framework object. Read from and written to a configuration object:
//   {"TaskDecomposition": 16, "Framework": {"Framework": "pushpool", ...options}}
// "TaskDecomposition" must lie in 1..kMaxTaskDecomposition and a missing member takes the
// default; the framework key must be registered ("Invalid Parallel Framework: <key>"). The
// framework's own options are checked when it is made.
#pragma once

#include <cstdint>
#include <memory>

#include "config/config_object.h"
#include "qmp/parallel/parallel_framework.h"

namespace qmp {

// Large enough for 16-fold over-decomposition on a 1024-thread machine; far beyond it, task
// overhead and per-task scratch outweigh any balance gained.
inline constexpr uint32_t kMaxTaskDecomposition = 16384;

// Default task decomposition: twice the logical cores the process may use. Tasks of one
// operation are rarely equal in cost (carry blocks meet different carries, transform slices
// straddle cache levels) and cores are shared with the system; with twice as many tasks as
// cores a core that finishes early takes another, and the overhead of the extra tasks is small
// against the sizes at which operations go parallel. The menu also offers the physical core
// count ("no SMT").
uint32_t default_task_decomposition();

// Asks "Please choose a number between 1 and 16384: " until the reply is a number in range;
// false at the end of input (tds unchanged).
bool prompt_task_decomposition(uint32_t& tds);

struct ParallelSettings {
    uint32_t task_decomposition = 1;
    ConfigObject framework;  // {"Framework": key, options...}

    // The defaults: default_task_decomposition() and the default framework's default options.
    static ParallelSettings defaults();
    // Reads the settings; throws InvalidParametersException for an out-of-range task
    // decomposition or an unknown framework key.
    static ParallelSettings load_config(const ConfigObject& parallelism);
    ConfigObject to_config() const;

    std::unique_ptr<ParallelFramework> make_framework() const { return make_parallel_framework(framework); }
};

}  // namespace qmp
