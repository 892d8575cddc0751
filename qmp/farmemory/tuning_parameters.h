// The tuning of the far-memory hierarchy: up to 4 levels, each with its size, the transfer size
// at which a seek costs as much as the transfer, the preferred alignment exponent and how far
// accesses may overlap in time. Planners of far-memory work size their transfers from the
// first level's figures (the summary). Levels are read from and written to configuration
// objects; out-of-range figures are clamped as each setter documents, structural errors throw
// qmp::InvalidParametersException.
#pragma once

#include "config/config_object.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qmp {

// How far accesses to one level may overlap in time. Planners read it as: None, one access
// at a time; ReadWrite, reads may overlap reads and writes may overlap writes, but a read and
// a write never overlap; All, any accesses to disjoint ranges may overlap.
enum class FarMemoryParallelAccess : uint8_t { None = 0, ReadWrite = 1, All = 2 };

// "none", "readwrite", "all".
const char* parallel_access_name(FarMemoryParallelAccess mode);
// The inverse; any other text fails with "Invalid FarMemoryParallelAccess mode: " + text.
FarMemoryParallelAccess parse_parallel_access(std::string_view text);

struct FarMemoryTuningLevel {
    static constexpr uint64_t unbounded = UINT64_MAX;
    static constexpr uint64_t min_bytes_per_seek = 4096;
    static constexpr uint64_t max_bytes_per_seek = uint64_t(1) << 62;
    static constexpr uint32_t max_alignment_k = 30;

    uint64_t size_bytes = unbounded;         // "SizeInBytes"
    uint64_t bytes_per_seek = 1048576;       // "BytesPerSeek"
    uint32_t alignment_k = 18;               // "PreferredAlignmentK": alignment 2^k bytes
    FarMemoryParallelAccess parallel_access = FarMemoryParallelAccess::None;  // "ParallelAccess"

    bool is_unbounded() const noexcept { return size_bytes == unbounded; }
    uint64_t alignment_bytes() const noexcept { return uint64_t(1) << alignment_k; }

    // Below 4097 -> 4096 (a page: smaller transfers are never worth a seek on any device);
    // above 2^62 - 1 -> 2^62 (keeps sums of a few transfer sizes inside 64 bits).
    void set_bytes_per_seek(uint64_t bytes);
    // Above 29 -> 30. The cap is one more than the largest value kept, deliberately: 30 is
    // still a usable alignment and marks the value as clamped.
    void set_alignment_k(uint64_t k);

    // Reads a level object; absent keys keep their defaults. Integers are 64-bit signed in
    // configuration objects, so the unsigned figures are stored bit for bit: "SizeInBytes" -1
    // is all ones, that is unbounded.
    static FarMemoryTuningLevel from_config(const ConfigObject& object);
    ConfigObject to_config() const;
};

class FarMemoryTuningParameters {
public:
    static constexpr uint32_t max_levels = 4;

    // No levels; add_level() fills it. summary() and check() refuse an empty set.
    FarMemoryTuningParameters() = default;
    // One level with the default figures (an unbounded level).
    static FarMemoryTuningParameters defaults();
    // Reads {"Levels": [level, ...]}: 1 to 4 levels, each at least twice the previous one
    // unless unbounded. With more than one level, prints the multi-level warning and pauses.
    explicit FarMemoryTuningParameters(const ConfigObject& config);
    ConfigObject to_config() const;

    // "Level count is full." when 4 levels are present.
    void add_level(const FarMemoryTuningLevel& level);
    uint32_t level_count() const noexcept { return level_count_; }
    const FarMemoryTuningLevel& level(uint32_t index) const;

    // The first level's figures ("Must have at least one level." when there is none).
    const FarMemoryTuningLevel& summary() const;
    // The structural rules: at least one level, and the doubling rule.
    void check() const;

    void print() const;

private:
    uint32_t level_count_ = 0;
    FarMemoryTuningLevel levels_[max_levels];
};

}  // namespace qmp
