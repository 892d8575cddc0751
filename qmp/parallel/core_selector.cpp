// Core lists: reading, validating against the machine and formatting for the menus.
#include "qmp/parallel/core_selector.h"

#include "qmp/exception.h"

#include <sched.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <utility>

namespace qmp {

uint32_t logical_core_count() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) == 0) {
        const int n = CPU_COUNT(&set);
        if (n > 0) return static_cast<uint32_t>(n);
    }
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<uint32_t>(online) : 1;
}

uint32_t physical_core_count() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return logical_core_count();
    std::set<std::pair<long, long>> cores;  // (package, core id)
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &set)) continue;
        const std::string dir = "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/";
        long package = -1, core = -1;
        std::ifstream(dir + "physical_package_id") >> package;
        std::ifstream(dir + "core_id") >> core;
        if (package < 0 || core < 0) return logical_core_count();
        cores.emplace(package, core);
    }
    return cores.empty() ? logical_core_count() : static_cast<uint32_t>(cores.size());
}

uint32_t configured_core_count() {
    const long n = sysconf(_SC_NPROCESSORS_CONF);
    return n > 0 ? static_cast<uint32_t>(n) : logical_core_count();
}

namespace {

void validate(const std::vector<int64_t>& cores, bool required) {
    static constexpr const char* kFunction = "CoreSelector::load_config()";
    if (required && cores.empty())
        throw InvalidParametersException(kFunction, "Must specify at least one core.");
    const int64_t limit = configured_core_count();
    for (int64_t c : cores) {
        if (c < 0 || c >= limit)
            throw InvalidParametersException(kFunction, "Invalid core #: " + std::to_string(c));
    }
}

}  // namespace

CoreSelector::CoreSelector(std::vector<uint32_t> cores) {
    validate(std::vector<int64_t>(cores.begin(), cores.end()), false);
    cores_ = std::move(cores);
}

void CoreSelector::load_config(const ConfigObject& config, bool required) {
    std::vector<int64_t> read;
    if (const ConfigObject* list = config.find("LogicalCores")) {
        for (const ConfigObject& item : list->as_array("LogicalCores"))
            read.push_back(item.as_integer("LogicalCores"));
    }
    validate(read, required);
    cores_.assign(read.begin(), read.end());
}

void CoreSelector::add_to_config(ConfigObject& config) const {
    ConfigObject& list = config.add_array("LogicalCores");
    for (uint32_t c : cores_) list.push_back(ConfigObject::make_integer(c));
}

std::string CoreSelector::display() const { return cores_.empty() ? "All" : format_core_list(cores_); }

std::string format_core_list(const std::vector<uint32_t>& cores) {
    std::string out;
    for (size_t i = 0; i < cores.size();) {
        size_t j = i;
        while (j + 1 < cores.size() && cores[j + 1] == cores[j] + 1) ++j;
        if (!out.empty()) out += ", ";
        out += std::to_string(cores[i]);
        if (j > i) out += "-" + std::to_string(cores[j]);
        i = j + 1;
    }
    return out;
}

}  // namespace qmp
