#include "app/environment.h"

#include "app/active_profile.h"
#include "qmp/console.h"
#include "qmp/cpu_features.h"
#include "qmp/exception.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

namespace qv {
namespace {

constexpr const char* kFunction = "Environment::load()";

std::optional<qmp::ConfigObject>& settings_in_force() {
    static std::optional<qmp::ConfigObject> settings;
    return settings;
}

std::string read_whole_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw qmp::FileIO::FileException(kFunction, path, std::strerror(errno));
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) throw qmp::FileIO::FileException(kFunction, path, "Unable to read file.");
    return text.str();
}

// Writes under "<path>.tmp" and renames, so that an interrupted run never leaves a truncated
// environment file that would then fail to parse on every later start.
void write_file_atomically(const std::string& path, const std::string& text) {
    const std::string working = path + ".tmp";
    {
        std::ofstream out(working, std::ios::binary | std::ios::trunc);
        if (!out) throw qmp::FileIO::FileException(kFunction, working, std::strerror(errno));
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.flush();
        if (!out) {
            std::remove(working.c_str());
            throw qmp::FileIO::FileException(kFunction, working, "Unable to write file.");
        }
    }
    if (std::rename(working.c_str(), path.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        std::remove(working.c_str());
        throw qmp::FileIO::FileException(kFunction, path, reason);
    }
}

bool file_exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

DetectedHardware detect_hardware() {
    DetectedHardware hw;
    const qmp::CpuIdentity id = qmp::cpu_identity();
    hw.cpu_vendor = id.vendor;
    hw.cpu_brand = id.brand;
    const long cores = ::sysconf(_SC_NPROCESSORS_ONLN);
    hw.logical_cores = cores > 0 ? cores : 1;
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long page_bytes = ::sysconf(_SC_PAGE_SIZE);
    hw.total_memory_bytes =
        (pages > 0 && page_bytes > 0) ? static_cast<int64_t>(pages) * page_bytes : 0;
    return hw;
}

qmp::ConfigObject hardware_record(const DetectedHardware& hw) {
    qmp::ConfigObject record = qmp::ConfigObject::make_object();
    record.add_string("CpuVendor", hw.cpu_vendor);
    record.add_string("CpuBrand", hw.cpu_brand);
    record.add_integer("LogicalCores", hw.logical_cores);
    record.add_integer("TotalMemoryBytes", hw.total_memory_bytes);
    return record;
}

qmp::ConfigObject default_environment(const DetectedHardware& hw) {
    qmp::ConfigObject env = qmp::ConfigObject::make_object();
    env.add_node("DetectedHardware", hardware_record(hw),
                 "The hardware this file was made for. If it differs from the machine at\n"
                 "start-up, the whole file is ignored and the defaults are used.");
    const qmp::TuningProfile& heuristics = qmp::heuristic_profile();
    env.add_string("TuningProfile", heuristics.name,
                   "Tuning profile active at start-up.\n" + heuristics.name + ": " +
                       heuristics.description);
    env.add_string("Framework", "pushpool",
                   "Default parallel framework of new jobs:\n"
                   "none, cppasync, spawn, taskqueue or pushpool.");
    // Four tasks per logical core: enough over-decomposition to keep every core busy when the
    // tasks of one operation are uneven, without drowning small operations in overhead.
    env.add_integer("TaskDecomposition", 4 * hw.logical_cores,
                    "Default number of tasks a parallel operation is cut into.");
    // Three quarters of physical memory leaves room for the operating system and its file cache,
    // which swap mode relies on.
    env.add_integer("WorkingMemoryBytes", hw.total_memory_bytes / 4 * 3,
                    "Default working memory of new jobs, in bytes.");
    return env;
}

std::string environment_file_text(const qmp::ConfigObject& environment) {
    std::string text = "//  quorvalith Environment Configuration File\r\n";
    text += "//\r\n";
    text += qmp::write_cfg(environment, true);
    return text;
}

bool hardware_matches(const qmp::ConfigObject& environment, const DetectedHardware& hw) {
    const qmp::ConfigObject& recorded = environment.get("DetectedHardware", kFunction);
    recorded.as_object("DetectedHardware");
    return recorded == hardware_record(hw);
}

void check_environment_settings(const qmp::ConfigObject& environment) {
    const std::string& profile = environment.get_string("TuningProfile", kFunction);
    if (find_tuning_profile(profile) == nullptr)
        throw qmp::InvalidParametersException(kFunction, "Unknown tuning profile: " + profile);
    environment.get_string("Framework", kFunction);
    if (environment.get_integer("TaskDecomposition", kFunction) < 1)
        throw qmp::InvalidParametersException(kFunction, "TaskDecomposition must be at least 1.");
    if (environment.get_integer("WorkingMemoryBytes", kFunction) < 0)
        throw qmp::InvalidParametersException(kFunction, "WorkingMemoryBytes cannot be negative.");
}

const qmp::ConfigObject& load_environment(const std::string& path) {
    using qmp::Console::Colour;
    const DetectedHardware hw = detect_hardware();
    std::optional<qmp::ConfigObject>& in_force = settings_in_force();

    qmp::Console::println("Loading Environment Configuration...", Colour::Info);
    if (!file_exists(path)) {
        qmp::Console::println("No configuration found. Generating default file...", Colour::Info);
        in_force = default_environment(hw);
        try {
            write_file_atomically(path, environment_file_text(*in_force));
        } catch (const qmp::Exception& e) {
            // A read-only working directory must not stop the program: the defaults hold for this
            // run and the next run tries again.
            qmp::Console::warning("Unable to write \"" + path + "\": " + e.message());
        }
    } else {
        qmp::Console::println("Loading configuration file...", Colour::Info);
        bool usable = false;
        try {
            qmp::ConfigObject loaded = qmp::parse_cfg(read_whole_file(path));
            loaded.as_object();
            if (hardware_matches(loaded, hw)) {
                check_environment_settings(loaded);
                in_force = std::move(loaded);
                usable = true;
            }
        } catch (const qmp::Exception& e) {
            e.print();
        }
        if (!usable) {
            qmp::Console::warning(
                "Unable to load configuration file. The \"DetectedHardware\" section does not\n"
                "match the current hardware configuration.\n"
                "Please fix or delete \"" + path + "\"\n"
                "Falling back to default settings...");
            in_force = default_environment(hw);
        }
    }
    set_active_tuning_profile(in_force->get_string("TuningProfile", kFunction));
    return *in_force;
}

const qmp::ConfigObject& environment_settings() {
    std::optional<qmp::ConfigObject>& in_force = settings_in_force();
    if (!in_force) in_force = default_environment(detect_hardware());
    return *in_force;
}

}  // namespace qv
