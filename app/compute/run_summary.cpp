// The JSON report of a run.
#include "app/compute/run_summary.h"

#include <sys/resource.h>

#include <cstdio>

namespace qv {
namespace {

std::string hex16(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

qmp::ConfigObject run_summary_object(const RunSummary& s) {
    qmp::ConfigObject root = qmp::ConfigObject::make_object();
    root.add_string("Constant", s.constant_name);
    root.add_string("ConstantToken", s.constant_token);
    root.add_string("Algorithm", s.algorithm_name);
    root.add_integer("DecimalDigits", int64_t(s.decimal_digits));
    if (s.hexadecimal_digits) root.add_integer("HexadecimalDigits", int64_t(*s.hexadecimal_digits));
    qmp::ConfigObject& threads = root.add_object("Threading");
    threads.add_string("Framework", s.framework);
    threads.add_integer("WorkerThreads", int64_t(s.worker_threads));
    threads.add_integer("TaskDecomposition", int64_t(s.task_decomposition));
    root.add_integer("WorkingMemoryBytes", int64_t(s.working_memory_bytes));
    root.add_integer("PeakMemoryBytes", int64_t(s.peak_memory_bytes));
    // Times in microseconds: the configuration format carries integers only.
    qmp::ConfigObject& phases = root.add_object("PhaseMicroseconds");
    for (const auto& [name, seconds] : s.phase_seconds) phases.add_integer(name, int64_t(seconds * 1e6 + 0.5));
    root.add_integer("TotalMicroseconds", int64_t(s.total_seconds * 1e6 + 0.5));
    qmp::ConfigObject& hashes = root.add_object("Hashes");
    hashes.add_string("DecimalMod2p61m1", hex16(s.decimal_hash));
    if (s.hexadecimal_hash) hashes.add_string("HexadecimalMod2p61m1", hex16(*s.hexadecimal_hash));
    if (s.secondary_decimal_hash) hashes.add_string("SecondaryDecimalMod2p61m1", hex16(*s.secondary_decimal_hash));
    hashes.add_string("Sha256Decimal", s.sha256_decimal);
    if (s.spot_check_good_through) root.add_integer("SpotCheckGoodThrough", int64_t(*s.spot_check_good_through));
    else root.add_string("SpotCheck", "Not Available");
    qmp::ConfigObject& checks = root.add_array("ChecksPassed");
    for (const std::string& check : s.checks_passed) checks.push_back(qmp::ConfigObject::make_string(check));
    qmp::ConfigObject& files = root.add_array("Files");
    for (const std::string& file : s.files) files.push_back(qmp::ConfigObject::make_string(file));
    if (s.seed) root.add_string("Seed", hex16(*s.seed));
    return root;
}

std::string run_summary_json(const RunSummary& summary) { return qmp::write_json(run_summary_object(summary)); }

uint64_t peak_resident_bytes() {
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0) return 0;
    return uint64_t(usage.ru_maxrss) * 1024;  // Linux reports KiB
}

}  // namespace qv
