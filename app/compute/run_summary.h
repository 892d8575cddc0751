// What a finished run reports: the identity of the computation, the time of each phase, the
// resources, the fingerprints and the checks that passed. The driver fills it; it becomes the
// JSON report written beside the validation file ("<Constant> - Report.json").
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/config_object.h"

namespace qv {

struct RunSummary {
    std::string constant_name;   // "Pi", "Sqrt(2)", ...
    std::string constant_token;  // "pi", "sqrt", ...
    std::string algorithm_name;  // "Chudnovsky (1988)", ...
    uint64_t decimal_digits = 0;
    std::optional<uint64_t> hexadecimal_digits;
    std::string framework;
    uint64_t worker_threads = 0;  // the framework's setting; 0 = one per logical core
    uint64_t task_decomposition = 1;
    uint64_t working_memory_bytes = 0;
    uint64_t peak_memory_bytes = 0;  // peak resident set of the process
    std::vector<std::pair<std::string, double>> phase_seconds;  // in the order they ran
    double total_seconds = 0;
    uint64_t decimal_hash = 0;
    std::optional<uint64_t> hexadecimal_hash;
    std::optional<uint64_t> secondary_decimal_hash;
    std::string sha256_decimal;
    std::optional<uint64_t> spot_check_good_through;  // nothing: "Not Available"
    std::vector<std::string> checks_passed;
    std::vector<std::string> files;  // digit files written, final paths
    std::optional<uint64_t> seed;
};

qmp::ConfigObject run_summary_object(const RunSummary& summary);
// The JSON text of run_summary_object().
std::string run_summary_json(const RunSummary& summary);

// The peak resident set size of this process in bytes (getrusage).
uint64_t peak_resident_bytes();

}  // namespace qv
