// The I/O performance analysis ("benchio", menu entry 3, job files with "Action" "BenchIO"):
// measures the far-memory configuration's disk paths. Options: -swap (a path, repeatable), -M,
// -minIO and -bytesperseek.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"

namespace qv {
namespace {

constexpr const char* kRun = "IoAnalysis::run()";
constexpr const char* kMessage = "The I/O performance analysis is not available in this build.";

}  // namespace

void benchio_action(qmp::CommandLine& args) {
    const JobOptions options =
        parse_job_options(args, "IoAnalysis::parse_options()", {"-swap", "-M", "-minIO", "-bytesperseek"},
                          [](const std::string&) { return false; });
    (void)options;
    job_not_available(kRun, kMessage);
}

void benchio_menu() { job_not_available(kRun, kMessage); }

void benchio_job(const qmp::ConfigObject& job) {
    (void)job;
    job_not_available(kRun, kMessage);
}

}  // namespace qv
