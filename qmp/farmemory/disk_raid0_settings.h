// The settings of a striped disk array ("disk-raid0"), read from and written to its
// configuration object, keys in this order after "Framework":
//   InterleaveWidth  bytes per stripe block, a power of two, 4096 to 2^30 (kept as exponent)
//   LaneMultiplier   files opened per configured lane (1..64): more independent queues on
//                    one device, which fast SSDs need to reach their bandwidth
//   Workers          worker threads per lane (1..64)
//   BufferPerWorker  bytes of I/O buffer per worker, a multiple of InterleaveWidth
//   Checksums        keep a checksum per stripe block and verify it on every load
//   RawIO            open lane files with O_DIRECT (bypass the page cache)
//   ReadProtect      a load of a stripe block that was never stored fails instead of
//                    returning zeros
//   TuningDefault    "hard-drive" or "ssd": the defaults of the keys above and the far-memory
//                    tuning the array reports (see disk_raid0_settings.cpp)
//   Lanes            array of lanes in stripe order, each { Path (a directory or array of
//                    directories), BufferAllocator ("malloc": aligned heap; "mmap": anonymous
//                    mapping), WorkerThreadCores (array of core numbers, empty: no pinning),
//                    WorkerThreadPriority (nice increment of the lane's workers, 0: none) }
// Every key but "Lanes" may be absent (TuningDefault's default applies). Errors are
// qmp::DiskRaid0::Raid0Exception at "DiskRaid0Settings::from_config()".
#pragma once

#include "config/config_object.h"
#include "qmp/farmemory/tuning_parameters.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qmp {

enum class DiskTuningDefault : uint8_t { HardDrive = 0, Ssd = 1 };

// "hard-drive", "ssd"; any other value fails with "Invalid TuningDefault enum.".
const char* disk_tuning_default_name(DiskTuningDefault tuning);
// The inverse; fails with "Invalid \"TuningDefault\" enum: " + text.
DiskTuningDefault parse_disk_tuning_default(std::string_view text);

struct DiskLaneSettings {
    std::vector<std::string> paths;
    std::string buffer_allocator = "malloc";
    std::vector<int> worker_cores;
    int worker_priority = 0;
};

struct DiskRaid0Settings {
    static constexpr size_t max_paths = 256;

    uint32_t interleave_k = 16;
    uint32_t lane_multiplier = 1;
    uint32_t workers = 2;
    uint64_t buffer_per_worker = 8 << 20;
    bool checksums = true;
    bool raw_io = true;
    bool read_protect = false;
    DiskTuningDefault tuning_default = DiskTuningDefault::Ssd;
    std::vector<DiskLaneSettings> lanes;

    // The defaults of a tuning set, with no lanes.
    static DiskRaid0Settings defaults(DiskTuningDefault tuning);
    // One lane per path, the defaults of `tuning` for the rest.
    static DiskRaid0Settings for_paths(const std::vector<std::string>& paths,
                                       DiskTuningDefault tuning = DiskTuningDefault::Ssd);

    static DiskRaid0Settings from_config(const ConfigObject& config);
    // The configuration object, "Framework" first.
    ConfigObject to_config() const;
    // The structural rules (lanes and paths present, limits, sizes); throws as from_config().
    void check() const;

    uint64_t interleave_bytes() const noexcept { return uint64_t(1) << interleave_k; }
    size_t lane_count() const noexcept { return lanes.size() * lane_multiplier; }
    // The tuning level that planners should use for an array of these settings.
    FarMemoryTuningLevel tuning_level() const;
};

}  // namespace qmp
