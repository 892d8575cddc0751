// "spawn": one new thread per task (task 0 runs on the caller), all joined before returning.
// Simple and obviously correct, with thread creation as its whole overhead; nested forks are
// safe because no thread ever waits for a pool. When the system refuses another thread the task
// runs on the caller instead, so deep recursions degrade to serial rather than fail. Exceptions
// are carried to the caller (the first one). Supports run_in_parallel_resource(): task threads
// are pinned round-robin to the resource's cores.
#pragma once

#include "qmp/parallel/parallel_framework.h"

namespace qmp {

class SpawnFramework final : public ParallelFramework {
public:
    void run_in_parallel(uint64_t task_count, TaskFunction task) override;
    void run_in_parallel_resource(const ParallelResource& resource, TaskFunction task) override;
    std::string description() const override { return "Thread Spawn (1 Thread/Task)"; }
    const char* key() const noexcept override { return "spawn"; }

    static std::unique_ptr<ParallelFramework> create(const ConfigObject& settings);
};

}  // namespace qmp
