// Scheduling groups: sets of logical cores that a branch of a computation runs on. A group is
// either a plain set of cores or a set of whole NUMA nodes (which also names the nodes, so that
// memory can follow the threads). Groups of the same kind combine with |= (union) and ^=
// (symmetric difference); an empty group takes the kind of whatever is combined into it.
// Mixing kinds throws InvalidParametersException "<kind> is not compatible with existing
// scheduling group.". SchedulingGroupSelector builds groups from the machine's NUMA layout,
// read from <node_root>/nodeN/cpulist.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qmp {

enum class SchedulingGroupKind : uint8_t { Empty, LogicalCores, NumaNodes };

class SchedulingGroup {
public:
    SchedulingGroup() = default;
    static SchedulingGroup from_cores(std::vector<uint32_t> cores);
    static SchedulingGroup from_numa_node(uint32_t node, std::vector<uint32_t> cores);

    SchedulingGroup& operator|=(const SchedulingGroup& other);
    SchedulingGroup& operator^=(const SchedulingGroup& other);

    SchedulingGroupKind kind() const noexcept { return kind_; }
    // Sorted, without duplicates.
    const std::vector<uint32_t>& cores() const noexcept { return cores_; }
    const std::vector<uint32_t>& numa_nodes() const noexcept { return nodes_; }
    bool empty() const noexcept { return cores_.empty(); }
    // "Logical Cores", "NUMA Nodes" or "Empty Group".
    const char* kind_name() const noexcept;

private:
    void check_compatible(const SchedulingGroup& other, const char* function) const;

    SchedulingGroupKind kind_ = SchedulingGroupKind::Empty;
    std::vector<uint32_t> cores_;
    std::vector<uint32_t> nodes_;
};

// Parses a Linux CPU list ("0-3,8,10-11\n") into sorted unique core numbers; malformed text
// throws ParseException under "parse_cpu_list()".
std::vector<uint32_t> parse_cpu_list(std::string_view text);

class SchedulingGroupSelector {
public:
    explicit SchedulingGroupSelector(std::string node_root = "/sys/devices/system/node/");

    // Selects the cores of NUMA node `node`. A node without cores, or one the system does not
    // list, throws InvalidParametersException "There are no cores on node N".
    void set_to_numa_node(uint32_t node);
    const SchedulingGroup& group() const noexcept { return group_; }

private:
    std::string node_root_;
    SchedulingGroup group_;
};

}  // namespace qmp
