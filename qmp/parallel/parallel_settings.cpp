// Reading and writing the parallel settings of a computation.
#include "qmp/parallel/parallel_settings.h"

#include "qmp/console.h"
#include "qmp/parallel/core_selector.h"

#include <algorithm>

namespace qmp {

uint32_t default_task_decomposition() {
    return std::min<uint32_t>(2 * logical_core_count(), kMaxTaskDecomposition);
}

bool prompt_task_decomposition(uint32_t& tds) {
    const std::string prompt = "Please choose a number between 1 and " + std::to_string(kMaxTaskDecomposition) + ": ";
    for (;;) {
        Console::print(prompt, Console::Colour::Prompt);
        std::string line;
        if (!Console::read_line(line)) return false;
        if (line.empty() || line.size() > 5 || line.find_first_not_of("0123456789") != std::string::npos) continue;
        const uint32_t value = static_cast<uint32_t>(std::stoul(line));
        if (value >= 1 && value <= kMaxTaskDecomposition) {
            tds = value;
            return true;
        }
    }
}

ParallelSettings ParallelSettings::defaults() {
    ParallelSettings s;
    s.task_decomposition = default_task_decomposition();
    s.framework = find_parallel_framework(default_parallel_framework_key()).default_config();
    return s;
}

ParallelSettings ParallelSettings::load_config(const ConfigObject& parallelism) {
    static constexpr const char* kFunction = "ParallelSettings::load_config()";
    const ConfigObject& object = parallelism.as_object("Parallelism");
    ParallelSettings s = defaults();
    if (const ConfigObject* tds = object.find("TaskDecomposition")) {
        const int64_t value = tds->as_integer("TaskDecomposition");
        if (value < 1 || value > int64_t(kMaxTaskDecomposition))
            throw InvalidParametersException(
                kFunction, "TaskDecomposition must be between 1 and " + std::to_string(kMaxTaskDecomposition) + ".");
        s.task_decomposition = static_cast<uint32_t>(value);
    }
    const ConfigObject& framework = object.get("Framework", kFunction).as_object("Framework");
    find_parallel_framework(framework.get_string("Framework", kFunction));  // rejects unknown keys now
    s.framework = framework;
    return s;
}

ConfigObject ParallelSettings::to_config() const {
    ConfigObject config = ConfigObject::make_object();
    config.add_integer("TaskDecomposition", task_decomposition);
    config.add_node("Framework", framework);
    return config;
}

}  // namespace qmp
