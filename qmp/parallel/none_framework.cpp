// The sequential framework.
#include "qmp/parallel/none_framework.h"

namespace qmp {

void NoneFramework::run_in_parallel(uint64_t task_count, TaskFunction task) {
    for (uint64_t i = 0; i < task_count; ++i) task(i);
}

void NoneFramework::run_in_parallel_resource(const ParallelResource& resource, TaskFunction task) {
    for (uint64_t i = resource.task_start; i < resource.task_end; ++i) task(i);
}

std::unique_ptr<ParallelFramework> NoneFramework::create(const ConfigObject& settings) {
    settings.as_object("Framework");
    return std::make_unique<NoneFramework>();
}

}  // namespace qmp
