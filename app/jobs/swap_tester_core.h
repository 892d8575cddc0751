// The far-memory swap tester: random traffic against a far-memory object and an in-memory
// copy, every byte read compared. After one full store of random data, each round picks a
// thread count (1 to the maximum); each thread takes its own slice of the object and runs
// loads, stores, gathers and scatters with random sizes (log-uniform), offsets, block lengths
// and strides, mirroring stores in the copy and comparing loads with it. All choices come from
// one printed seed, so a failing run can be repeated. The test stops at the first mismatch or
// error, or when the byte budget or the time limit is reached.
#pragma once

#include "config/config_object.h"
#include "qmp/farmemory/far_memory.h"

#include <cstdint>
#include <string>

namespace qv {

struct SwapTestSettings {
    qmp::ConfigObject far_memory;       // "FarMemoryConfig" (default one disk lane here)
    uint64_t test_bytes = 64 << 20;     // "TestBytes": the object's size
    uint64_t total_bytes = 0;           // "TotalBytes": traffic to move; 0: 4 x TestBytes
    uint64_t seconds = 0;               // "Seconds": time limit; 0: none
    uint64_t seed = 0;                  // "Seed"; absent: from the clock
    uint32_t max_threads = 4;           // "Threads"

    static SwapTestSettings defaults();
    static SwapTestSettings from_job(const qmp::ConfigObject& job);
    std::string problem() const;
};

struct SwapTestResult {
    uint64_t bytes_moved = 0;
    uint64_t operations = 0;
    double seconds = 0;
    bool mismatch = false;
    uint64_t mismatch_offset = 0;  // the object's byte that read back wrong
    unsigned char expected = 0, found = 0;
    std::string error;             // an exception's report, when one stopped the test
    double mb_per_s() const { return seconds > 0 ? double(bytes_moved) / 1e6 / seconds : 0; }
};

// Runs the test on `object` (its size must be settings.test_bytes), printing the seed and
// progress, and returns what it found; mismatches and errors are results, not exceptions.
SwapTestResult run_swap_test(qmp::FarMemory& object, const SwapTestSettings& settings);

void print_swap_test_result(const SwapTestResult& result);

}  // namespace qv
