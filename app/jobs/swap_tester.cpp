// The far-memory swap tester (job files with "Action" "SwapTester", advanced options): writes,
// reads back and checks far-memory objects on the configured disk paths.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"

namespace qv {
namespace {

constexpr const char* kRun = "SwapTester::run()";
constexpr const char* kMessage = "The far-memory swap tester is not available in this build.";

}  // namespace

void swap_tester_menu() { job_not_available(kRun, kMessage); }

void swap_tester_job(const qmp::ConfigObject& job) {
    (void)job;
    job_not_available(kRun, kMessage);
}

}  // namespace qv
