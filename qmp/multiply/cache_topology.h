// The cache model that tunes blocked transforms. Input: cache levels from the lowest up, each
// with its size in bytes (a size of all ones ends the list), the number of threads sharing it,
// an "explicit" flag (the level is managed by explicit blocking rather than left to the
// hardware) and further flags kept for the kernels. Each accepted level records its size per
// sharing thread and its size index: log2 of the smallest power of two at or above the
// per-thread size counted in 16-byte complex points, clamped to [11, 25] (32 KiB .. 512 MiB).
// Every rule violation throws qmp::InvalidParametersException from
// "CacheTopologyStandard::CacheTopologyStandard()"; the rules are checked in a fixed order.
#pragma once

#include <cstdint>
#include <vector>

namespace qmp {

struct CacheLevel {
    uint64_t size_bytes = ~uint64_t(0);  // all ones: end of the list
    uint32_t sharing_threads = 1;
    bool is_explicit = false;
    uint32_t flags = 0;
};

class CacheTopologyStandard {
public:
    static constexpr uint64_t max_levels = 6;

    struct Level {
        CacheLevel input;
        uint64_t per_thread_bytes = 0;
        uint32_t size_index = 0;
    };

    explicit CacheTopologyStandard(const std::vector<CacheLevel>& levels);

    const std::vector<Level>& levels() const noexcept { return levels_; }

    // The size index of a per-thread size in bytes (see the file comment).
    static uint32_t size_index(uint64_t per_thread_bytes);

private:
    std::vector<Level> levels_;
};

}  // namespace qmp
