// A parallel resource: the share of the machine handed to one branch of a computation, a
// contiguous range of task slots [task_start, task_end) out of the operation's task
// decomposition plus the scheduling groups whose cores should run them. A recursive algorithm
// splits its resource between its halves; a leaf turns it back into a range of task indices
// with parallel_resource_to_parallel_range(), which checks that the range can hold the tasks the
// leaf needs (AlgorithmFailedException "Failed: rs + minR <= re": a planning bug, not bad input).
#pragma once

#include <cstdint>
#include <vector>

#include "qmp/parallel/scheduling_group.h"

namespace qmp {

struct ParallelResource {
    uint64_t task_start = 0;
    uint64_t task_end = 1;
    std::vector<SchedulingGroup> groups;

    uint64_t task_count() const noexcept { return task_end > task_start ? task_end - task_start : 0; }
    // The union of the cores of all groups, sorted (empty: no placement wanted).
    std::vector<uint32_t> cores() const;
};

struct ParallelRange {
    uint64_t start = 0;
    uint64_t end = 0;
    uint64_t size() const noexcept { return end - start; }
};

// The resource's task range, after checking that it holds at least `minimum_tasks` slots.
ParallelRange parallel_resource_to_parallel_range(const ParallelResource& resource,
                                                  uint64_t minimum_tasks);

}  // namespace qmp
