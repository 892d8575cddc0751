// The environment configuration: machine-dependent defaults kept in "environment.cfg" in the
// working directory, loaded once per run at start-up. The file records the hardware it was made
// for ("DetectedHardware"); a file made on other hardware, or one that cannot be read, is
// reported and replaced by the defaults for this run (the file itself is left for the user to fix
// or delete). A missing file is generated, written under a working name and then renamed.
//
// Key set of the file (all members are written with comments):
//   DetectedHardware  Object   CpuVendor (String, CPUID vendor), CpuBrand (String, CPUID brand),
//                              LogicalCores (Integer, online logical processors),
//                              TotalMemoryBytes (Integer, physical memory)
//   TuningProfile     String   the tuning profile active at start-up ("NT")
//   Framework         String   default parallel framework of new jobs ("pushpool")
//   TaskDecomposition Integer  default task decomposition of new jobs: 4 x logical cores
//   WorkingMemoryBytes Integer default working memory of new jobs: 3/4 of physical memory
#pragma once

#include <cstdint>
#include <string>

#include "config/config_object.h"

namespace qv {

inline constexpr const char* kEnvironmentFileName = "environment.cfg";

struct DetectedHardware {
    std::string cpu_vendor;
    std::string cpu_brand;
    int64_t logical_cores = 0;
    int64_t total_memory_bytes = 0;
};

DetectedHardware detect_hardware();
// The "DetectedHardware" object for this hardware, members in file order.
qmp::ConfigObject hardware_record(const DetectedHardware& hw);
// The whole default environment object for this hardware.
qmp::ConfigObject default_environment(const DetectedHardware& hw);
// The file text: the two header comment lines, then the object in .cfg syntax with comments.
std::string environment_file_text(const qmp::ConfigObject& environment);

// Whether the loaded object's "DetectedHardware" equals the record of `hw`; throws when the
// member is missing or is not an Object.
bool hardware_matches(const qmp::ConfigObject& environment, const DetectedHardware& hw);
// Checks the other members against the key set above; throws a qmp::Exception that names the
// member that is missing, of the wrong kind or out of range.
void check_environment_settings(const qmp::ConfigObject& environment);

// The start-up step: prints the progress lines, generates or loads `path`, falls back to the
// defaults on a mismatch or an unreadable file, applies the tuning profile, and returns the
// settings in force for this run (also available through environment_settings()).
const qmp::ConfigObject& load_environment(const std::string& path = kEnvironmentFileName);
// The settings in force; the defaults for this hardware when load_environment() has not run.
const qmp::ConfigObject& environment_settings();

}  // namespace qv
