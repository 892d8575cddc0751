// The I/O performance analysis ("benchio", menu entry 3, job files with "Action" "BenchIO"):
// measures the far-memory configuration (benchio_analysis.h) and prints the table, the
// measured bytes per seek and the suggested tuning. Options: -swap PATH (repeatable: one disk
// lane per path; default one lane in the working directory), -M (test size), -minIO (smallest
// block), -bytesperseek (use this figure in the suggestion instead of the estimate). Job
// files: "FarMemoryConfig", "TestBytes", "MinBlockBytes", "MaxBlockBytes", "BytesPerSeek",
// "OutputFile" (the suggestion written as a job-file fragment).
#include "app/jobs/jobs.h"

#include "app/jobs/benchio_analysis.h"
#include "app/jobs/benchio_far_memory.h"
#include "app/jobs/job_options.h"
#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/farmemory/framework_registry.h"

#include <fstream>

namespace qv {
namespace {

constexpr const char* kRun = "IoAnalysis::run()";
constexpr const char* kParse = "IoAnalysis::parse_options()";

void run(const IoAnalysisSettings& settings) {
    const std::string problem = settings.problem();
    if (!problem.empty()) {
        qmp::Console::println(problem, qmp::Console::Colour::Error);
        throw qmp::InvalidParametersException(kRun, "Cannot run benchmark with these parameters.");
    }
    auto framework = qmp::make_far_memory_framework(settings.far_memory);
    qmp::Console::println("I/O Performance Analysis", qmp::Console::Colour::Header);
    framework->print_description();
    const IoAnalysisResult result = run_io_analysis(*framework, settings);
    print_io_analysis(result);
    if (!settings.output_file.empty()) {
        std::ofstream out(settings.output_file, std::ios::binary);
        out << qmp::write_cfg(suggested_tuning_fragment(result), true);
        if (!out.flush()) throw qmp::FileIO::FileException(kRun, settings.output_file, "Unable to write file.");
        qmp::Console::println("Written to: " + settings.output_file, qmp::Console::Colour::Info);
    }
}

}  // namespace

void benchio_action(qmp::CommandLine& args) {
    const JobOptions options = parse_job_options(args, kParse, {"-swap", "-M", "-minIO", "-bytesperseek"},
                                                 [](const std::string&) { return false; });
    IoAnalysisSettings settings = IoAnalysisSettings::defaults();
    if (options.has("-swap")) settings.far_memory = disk_far_memory_config(options.values("-swap"));
    if (const std::string* v = options.value("-M")) settings.test_bytes = parse_byte_count(*v, kParse);
    if (const std::string* v = options.value("-minIO")) settings.min_block_bytes = parse_byte_count(*v, kParse);
    if (const std::string* v = options.value("-bytesperseek")) settings.bytes_per_seek = parse_byte_count(*v, kParse);
    run(settings);
}

void benchio_menu() {
    qmp::Console::print("Path for the test files (empty: the working directory): ", qmp::Console::Colour::Prompt);
    std::string path;
    if (!qmp::Console::read_line(path)) return;
    IoAnalysisSettings settings = IoAnalysisSettings::defaults();
    if (!path.empty()) settings.far_memory = disk_far_memory_config({path});
    run(settings);
}

void benchio_job(const qmp::ConfigObject& job) { run(IoAnalysisSettings::from_job(job)); }

}  // namespace qv
