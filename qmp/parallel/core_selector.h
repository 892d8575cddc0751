// The logical cores that worker threads are pinned to, read from and written to a
// configuration object under "LogicalCores" (an array of core numbers). An empty list means
// "no affinity": threads keep the operating system's default placement. A core number must name
// a processor this machine has ("Invalid core #: N"); an empty list where one is required fails
// with "Must specify at least one core.". Both raise InvalidParametersException under
// "CoreSelector::load_config()".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/config_object.h"

namespace qmp {

// Processors the process is allowed to run on (its affinity mask); at least 1.
uint32_t logical_core_count();
// Physical cores among the processors the process may use (SMT siblings counted once), from
// the per-processor topology files; falls back to logical_core_count() where those are missing.
uint32_t physical_core_count();
// Processors the machine has configured, online or not: the bound for valid core numbers.
uint32_t configured_core_count();

class CoreSelector {
public:
    CoreSelector() = default;
    // Throws as load_config() does.
    explicit CoreSelector(std::vector<uint32_t> cores);

    // Reads "LogicalCores" from `config`; a missing member is an empty list.
    void load_config(const ConfigObject& config, bool required = false);
    // Adds "LogicalCores" to the Object `config`.
    void add_to_config(ConfigObject& config) const;

    const std::vector<uint32_t>& cores() const noexcept { return cores_; }
    bool empty() const noexcept { return cores_.empty(); }
    // "All" for no affinity, else the list with runs collapsed: "0-3, 8".
    std::string display() const;

private:
    std::vector<uint32_t> cores_;
};

// "0-3, 8" for {0,1,2,3,8}; the order of the list is kept, only consecutive runs are joined.
std::string format_core_list(const std::vector<uint32_t>& cores);

}  // namespace qmp
