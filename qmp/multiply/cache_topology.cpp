// Validation and derivation of the cache model, in this order: at least one level; the lowest
// level private to one thread and explicit; sizes per thread at least doubling from level to
// level; at most six levels; the last level not explicit (the outermost level is where data
// streams from memory, which no blocking can manage). A single level is both the lowest and the
// last, so it would have to be explicit and not explicit at once: a usable model has at least
// two levels, and a lone explicit level is refused by the last-level rule.
#include "qmp/multiply/cache_topology.h"

#include "qmp/exception.h"

namespace qmp {

namespace {

[[noreturn]] void reject(const char* message) {
    throw InvalidParametersException("CacheTopologyStandard::CacheTopologyStandard()", message);
}

}  // namespace

uint32_t CacheTopologyStandard::size_index(uint64_t per_thread_bytes) {
    // Count from 8 at 32 KiB (2^8 blocks of 128 bytes), doubling up to a count of 22; the
    // index adds 3, which makes it log2 of the size in 16-byte complex points.
    uint64_t power_bytes = uint64_t(32) << 10;
    uint32_t count = 8;
    while (power_bytes < per_thread_bytes && count < 22) {
        power_bytes <<= 1;
        ++count;
    }
    return count + 3;
}

CacheTopologyStandard::CacheTopologyStandard(const std::vector<CacheLevel>& input) {
    std::vector<CacheLevel> list;
    for (const CacheLevel& level : input) {
        if (level.size_bytes == ~uint64_t(0)) break;
        list.push_back(level);
    }
    if (list.empty()) reject("Must contain at least one level of cache.");
    if (list[0].sharing_threads != 1) reject("Lowest level of cache cannot be shared by multiple threads.");
    if (!list[0].is_explicit) reject("Lowest level of cache must be explicit.");

    Level lowest;
    lowest.input = list[0];
    lowest.per_thread_bytes = list[0].size_bytes;
    lowest.size_index = size_index(lowest.per_thread_bytes);
    levels_.push_back(lowest);

    for (size_t i = 1; i < list.size(); ++i) {
        // A level nobody shares is not a cache of this processor.
        if (list[i].sharing_threads == 0) reject("Cache level must be shared by at least one thread.");
        Level level;
        level.input = list[i];
        level.per_thread_bytes = list[i].size_bytes / list[i].sharing_threads;
        level.size_index = size_index(level.per_thread_bytes);
        if (level.per_thread_bytes / 2 < levels_.back().per_thread_bytes)
            reject("Caches must be increasing in size by at least 2x.");
        levels_.push_back(level);
    }
    if (levels_.size() > max_levels) reject("Too many cache levels.");
    if (levels_.back().input.is_explicit) reject("Last level cannot be explicit.");
}

}  // namespace qmp
