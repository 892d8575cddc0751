// Set algebra on scheduling groups and the NUMA node reader.
#include "qmp/parallel/scheduling_group.h"

#include "qmp/exception.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace qmp {
namespace {

std::vector<uint32_t> sorted_unique(std::vector<uint32_t> v) {
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    return v;
}

std::vector<uint32_t> set_union(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    std::vector<uint32_t> out;
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

std::vector<uint32_t> set_xor(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    std::vector<uint32_t> out;
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

}  // namespace

SchedulingGroup SchedulingGroup::from_cores(std::vector<uint32_t> cores) {
    SchedulingGroup g;
    g.kind_ = SchedulingGroupKind::LogicalCores;
    g.cores_ = sorted_unique(std::move(cores));
    return g;
}

SchedulingGroup SchedulingGroup::from_numa_node(uint32_t node, std::vector<uint32_t> cores) {
    SchedulingGroup g;
    g.kind_ = SchedulingGroupKind::NumaNodes;
    g.cores_ = sorted_unique(std::move(cores));
    g.nodes_ = {node};
    return g;
}

const char* SchedulingGroup::kind_name() const noexcept {
    switch (kind_) {
        case SchedulingGroupKind::LogicalCores: return "Logical Cores";
        case SchedulingGroupKind::NumaNodes: return "NUMA Nodes";
        case SchedulingGroupKind::Empty: break;
    }
    return "Empty Group";
}

void SchedulingGroup::check_compatible(const SchedulingGroup& other, const char* function) const {
    if (kind_ == SchedulingGroupKind::Empty || other.kind_ == SchedulingGroupKind::Empty) return;
    if (kind_ != other.kind_)
        throw InvalidParametersException(
            function, std::string(other.kind_name()) + " is not compatible with existing scheduling group.");
}

SchedulingGroup& SchedulingGroup::operator|=(const SchedulingGroup& other) {
    check_compatible(other, "SchedulingGroup::operator|=()");
    if (kind_ == SchedulingGroupKind::Empty) kind_ = other.kind_;
    cores_ = set_union(cores_, other.cores_);
    nodes_ = set_union(nodes_, other.nodes_);
    return *this;
}

SchedulingGroup& SchedulingGroup::operator^=(const SchedulingGroup& other) {
    check_compatible(other, "SchedulingGroup::operator^=()");
    if (kind_ == SchedulingGroupKind::Empty) kind_ = other.kind_;
    cores_ = set_xor(cores_, other.cores_);
    nodes_ = set_xor(nodes_, other.nodes_);
    return *this;
}

std::vector<uint32_t> parse_cpu_list(std::string_view text) {
    std::vector<uint32_t> cores;
    size_t i = 0;
    auto fail = [&]() {
        throw ParseException("parse_cpu_list()", "Invalid core list: " + std::string(text));
    };
    auto read_number = [&]() -> uint32_t {
        if (i >= text.size() || text[i] < '0' || text[i] > '9') fail();
        uint64_t v = 0;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
            v = v * 10 + uint64_t(text[i++] - '0');
            if (v > 0xffffffu) fail();  // no machine has 16M cores; stops absurd ranges
        }
        return static_cast<uint32_t>(v);
    };
    while (i < text.size() && text[i] != '\n') {
        const uint32_t lo = read_number();
        uint32_t hi = lo;
        if (i < text.size() && text[i] == '-') {
            ++i;
            hi = read_number();
            if (hi < lo) fail();
        }
        for (uint32_t c = lo; c <= hi; ++c) cores.push_back(c);
        if (i < text.size() && text[i] == ',') {
            ++i;
            if (i >= text.size() || text[i] == '\n') fail();
        } else if (i < text.size() && text[i] != '\n') {
            fail();
        }
    }
    return sorted_unique(std::move(cores));
}

SchedulingGroupSelector::SchedulingGroupSelector(std::string node_root) : node_root_(std::move(node_root)) {
    if (!node_root_.empty() && node_root_.back() != '/') node_root_ += '/';
}

void SchedulingGroupSelector::set_to_numa_node(uint32_t node) {
    std::ifstream file(node_root_ + "node" + std::to_string(node) + "/cpulist");
    std::vector<uint32_t> cores;
    if (file) {
        std::stringstream text;
        text << file.rdbuf();
        cores = parse_cpu_list(text.str());
    }
    // A node that is not listed (no such node, or a kernel without NUMA) has no cores either.
    if (cores.empty())
        throw InvalidParametersException("SchedulingGroupSelector::set_to_numa_node()",
                                         "There are no cores on node " + std::to_string(node));
    group_ = SchedulingGroup::from_numa_node(node, std::move(cores));
}

}  // namespace qmp
