// Conversion of a parallel resource to its range of task indices.
#include "qmp/parallel/parallel_resource.h"

#include "qmp/exception.h"

#include <algorithm>

namespace qmp {

std::vector<uint32_t> ParallelResource::cores() const {
    std::vector<uint32_t> out;
    for (const SchedulingGroup& g : groups) out.insert(out.end(), g.cores().begin(), g.cores().end());
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

ParallelRange parallel_resource_to_parallel_range(const ParallelResource& resource,
                                                  uint64_t minimum_tasks) {
    const uint64_t rs = resource.task_start;
    const uint64_t re = resource.task_end;
    // Written as a subtraction so that a huge minimum cannot wrap around.
    if (rs > re || minimum_tasks > re - rs)
        throw AlgorithmFailedException("parallel_resource_to_parallel_range()", "Failed: rs + minR <= re");
    return ParallelRange{rs, re};
}

}  // namespace qmp
