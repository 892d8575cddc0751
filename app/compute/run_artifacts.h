// The names and records around a run: the constant's and algorithm's names as digit files and
// reports show them, the threading description, the SHA-256 of the decimal digits, and the two
// files written at the end of a run in the output directory (the working directory when the
// digits go to the standard output): the sealed validation file "<Constant> - Validation.txt"
// and the JSON report "<Constant> - Report.json".
#pragma once

#include <cstdint>
#include <string>

#include "app/compute/compute_settings.h"
#include "app/compute/run_summary.h"
#include "qmp/radix/float_writer.h"

namespace qv {

// "Pi", "e", "Golden Ratio", "Sqrt(2)", "Log(3)", "Zeta(3) (Apery's Constant)", ...; a custom
// constant is named by its formula file ("dir/golden.cfg" -> "golden").
std::string constant_file_name(const ComputeSettings& settings);
// The algorithm's menu name: "Chudnovsky (1988)", "Newton's Method", ...
std::string algorithm_display_name(const ComputeSettings& settings, const std::string& token);
// "Push Pool (WorkerThreads 2, TaskDecomposition 4)"
std::string describe_threading(const ComputeSettings& settings);

// SHA-256 (hex) of the decimal digits after the point as ASCII text.
std::string sha256_of_digits(const qmp::FloatWriterB& decimal_writer, uint64_t digits);

struct RunTimes {
    std::string start_date;
    std::string end_date;
    double computation_seconds = 0;
    double wall_seconds = 0;
};

// The directory the validation file and report go to.
std::string report_directory(const ComputeSettings& settings);
void write_run_artifacts(const ComputeSettings& settings, const RunSummary& summary, const RunTimes& times,
                         const qmp::FloatWriterB* hex_writer, const qmp::FloatWriterB& dec_writer);

}  // namespace qv
