// The jobs that the actions, the main menu and job files start. Each job has a command-line form
// (reads its option words from the shared cursor), an interactive form (main menu) and, for the
// jobs a job file can name, a form that takes the job's configuration object. Jobs not built
// yet (the stress tester, the pi benchmark, resuming) parse and check their requests and end
// at their dispatch point with a qmp::Exception saying that the job is not available.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "app/command_line.h"
#include "config/config_object.h"

namespace qv {

// Pi benchmark ("bench", menu 0). Sizes are decimal digit counts.
const std::vector<std::string_view>& pi_benchmark_sizes();
void bench_action(qmp::CommandLine& args);
void bench_menu();

// BBP digit-extraction benchmark ("bench-bbp", menu 1). Sizes are hexadecimal offsets.
const std::vector<std::string_view>& bbp_benchmark_sizes();
void bench_bbp_action(qmp::CommandLine& args);
void bench_bbp_menu();

// Component stress tester ("stress", menu 2, job file "StressTest").
void stress_action(qmp::CommandLine& args);
void stress_menu();
void stress_job(const qmp::ConfigObject& job);

// I/O performance analysis ("benchio", menu 3, job file "BenchIO").
void benchio_action(qmp::CommandLine& args);
void benchio_menu();
void benchio_job(const qmp::ConfigObject& job);

// Custom computation of a constant ("custom", menu 4, job file "CustomCompute").
void custom_action(qmp::CommandLine& args);
void custom_menu();
void custom_job(const qmp::ConfigObject& job);

// BBP digit extractor for Pi ("bbp", menu 5).
void bbp_action(qmp::CommandLine& args);
void bbp_menu();

// One extraction run as "bbp" and "bench-bbp" start it: the hexadecimal position, the threads
// (0: one per logical core, or per physical core with no_smt) and the StaticPinOrder cores.
struct BbpRunRequest {
    uint64_t position = 0;
    uint32_t threads = 0;
    bool no_smt = false;
    std::vector<uint32_t> pin_order;
};
// Runs the extraction with progress lines and prints the result (digits, convention, both
// formulas' values, agreement, time). Throws when the formulas disagree.
void run_bbp_extraction(const BbpRunRequest& request);

// Digit viewer ("digitviewer", menu 6).
void digitviewer_action(qmp::CommandLine& args);
void digitviewer_menu();

// Validator of benchmark validation files ("validate", advanced options).
void validate_action(qmp::CommandLine& args);
void validate_menu();

// Far-memory swap tester (job file "SwapTester", advanced options).
void swap_tester_menu();
void swap_tester_job(const qmp::ConfigObject& job);

// The "config" action: runs the job described by a job file (path from the next word).
void config_action(qmp::CommandLine& args);
// Reads the job file at `path` (".cfg" appended when it has no extension) and starts the job its
// "Action" member names.
void run_job_file(std::string path);

}  // namespace qv
