// The custom computation of a constant ("custom", menu entry 4, job files with "Action"
// "CustomCompute"). The command-line form takes every option; -M, -minIO and -bytesperseek only
// with -swap (swap mode).
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"

namespace qv {
namespace {

constexpr const char* kParser = "CustomCompute::parse_options()";
constexpr const char* kRun = "CustomCompute::run()";
constexpr const char* kMessage = "Custom computations are not available in this build.";

}  // namespace

void custom_action(qmp::CommandLine& args) {
    const JobOptions options = parse_job_options(
        args, kParser,
        {"-noSMT", "-compress", "-verify", "-bytesperseek", "-TD", "-PF", "-MA", "-M", "-minIO", "-swap"},
        [](const std::string&) { return false; });
    check_swap_only_options(options, kParser, {"-M", "-minIO", "-bytesperseek"});
    job_not_available(kRun, kMessage);
}

void custom_menu() { job_not_available(kRun, kMessage); }

void custom_job(const qmp::ConfigObject& job) {
    (void)job;
    job_not_available(kRun, kMessage);
}

}  // namespace qv
