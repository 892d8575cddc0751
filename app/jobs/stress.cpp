// The component stress tester ("stress", menu entry 2, job files with "Action" "StressTest"):
// runs self-checking arithmetic in a loop to expose unstable hardware. Options: -noSMT, -TD,
// -PF, -MA and -M (the memory to test with).
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"

namespace qv {
namespace {

constexpr const char* kRun = "StressTester::run()";
constexpr const char* kMessage = "The component stress tester is not available in this build.";

}  // namespace

void stress_action(qmp::CommandLine& args) {
    const JobOptions options =
        parse_job_options(args, "StressTester::parse_options()", {"-noSMT", "-TD", "-PF", "-MA", "-M"},
                          [](const std::string&) { return false; });
    (void)options;
    job_not_available(kRun, kMessage);
}

void stress_menu() { job_not_available(kRun, kMessage); }

void stress_job(const qmp::ConfigObject& job) {
    (void)job;
    job_not_available(kRun, kMessage);
}

}  // namespace qv
