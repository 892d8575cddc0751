// The I/O performance analysis of a far-memory configuration. For block sizes B from the
// smallest (at least 4 KiB) to the largest (at most 64 MiB and the test size), in steps of 4x,
// it times four patterns over one far-memory object of the test size: sequential writes and
// reads of B-byte transfers, and strided gathers and scatters of B-byte blocks at least 2B
// apart spread over the whole object (each block costs a seek where seeks cost anything).
// From the rates it estimates the bytes per seek, the transfer size at which a seek costs as
// much as the transfer (see estimate_bytes_per_seek()), and suggests a far-memory tuning in
// the form a job file accepts ("FarMemoryTuning" : { "Levels" : [ ... ] }).
#pragma once

#include "config/config_object.h"
#include "qmp/farmemory/far_memory_framework.h"
#include "qmp/farmemory/tuning_parameters.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

struct IoAnalysisSettings {
    qmp::ConfigObject far_memory;          // "FarMemoryConfig"
    uint64_t test_bytes = 256 << 20;       // "TestBytes" (-M)
    uint64_t min_block_bytes = 4096;       // "MinBlockBytes" (-minIO)
    uint64_t max_block_bytes = 64 << 20;   // "MaxBlockBytes"
    uint64_t bytes_per_seek = 0;           // "BytesPerSeek" (-bytesperseek): replaces the estimate
    std::string output_file;               // "OutputFile": the suggested tuning as a fragment

    // One disk lane in the working directory.
    static IoAnalysisSettings defaults();
    // A "BenchIO" job object; absent keys keep the defaults.
    static IoAnalysisSettings from_job(const qmp::ConfigObject& job);
    // Why these settings cannot run, or an empty text.
    std::string problem() const;
};

struct IoAnalysisRow {
    uint64_t block_bytes;
    double write_mbs, read_mbs, gather_mbs, scatter_mbs;  // 0: not measured (object too small)
};

struct IoAnalysisResult {
    std::vector<IoAnalysisRow> rows;
    uint64_t estimated_bytes_per_seek = 0;
    qmp::FarMemoryTuningLevel suggested;
};

// Runs the patterns on a new object of `framework`, printing progress.
IoAnalysisResult run_io_analysis(qmp::FarMemoryFramework& framework, const IoAnalysisSettings& settings);

// Seek cost model: a strided block of B bytes takes s + B / R seconds, R the best sequential
// read rate; each measured size gives s_B = B / gather_rate - B / R, s is their median (sizes
// where s_B <= 0 count as 0), and the bytes per seek are s * R, at least 4096.
uint64_t estimate_bytes_per_seek(const std::vector<IoAnalysisRow>& rows);

// {"FarMemoryTuning": {"Levels": [suggested]}}.
qmp::ConfigObject suggested_tuning_fragment(const IoAnalysisResult& result);

void print_io_analysis(const IoAnalysisResult& result);

}  // namespace qv
