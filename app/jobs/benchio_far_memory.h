// What the I/O analysis and the swap tester share: the far memory they run on (a framework
// configuration, by default one disk lane in the working directory), byte counts written as
// integers with an optional binary suffix (k, m, g, t: 4k = 4096), and the aligned buffer and
// random bytes both jobs move.
#pragma once

#include "config/config_object.h"

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

// {"Framework": "disk-raid0", "Lanes": [{"Path": p}, ...]}; no paths: the working directory.
qmp::ConfigObject disk_far_memory_config(const std::vector<std::string>& paths);

// "65536", "64k", "256m", "1g"; anything else fails with "Invalid size: " + text
// (qmp::InvalidParametersException at `caller`).
uint64_t parse_byte_count(std::string_view text, std::string_view caller);

// An optional Integer member read as a byte count (>= 0), or `fallback` when absent.
uint64_t byte_count_member(const qmp::ConfigObject& job, const char* key, uint64_t fallback);

// 1536 -> "1.5 KiB", 67108864 -> "64 MiB".
std::string short_byte_size(uint64_t bytes);

// Fills `bytes` with random bytes from `rng`, 8 at a time.
void fill_random(char* p, uint64_t bytes, std::mt19937_64& rng);

}  // namespace qv
