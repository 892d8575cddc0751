// "none": every task runs inline on the calling thread, in index order. The reference for
// every other framework (results must be identical) and the choice for debugging. No options.
#pragma once

#include "qmp/parallel/parallel_framework.h"

namespace qmp {

class NoneFramework final : public ParallelFramework {
public:
    void run_in_parallel(uint64_t task_count, TaskFunction task) override;
    void run_in_parallel_resource(const ParallelResource& resource, TaskFunction task) override;
    std::string description() const override { return "None (No Multi-threading)"; }
    const char* key() const noexcept override { return "none"; }

    static std::unique_ptr<ParallelFramework> create(const ConfigObject& settings);
};

}  // namespace qmp
