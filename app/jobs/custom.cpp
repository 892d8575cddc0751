// The custom computation of a constant ("custom", menu entry 4, job files with "Action"
// "CustomCompute"): each form builds the job's settings (command-line words, the menu, or the
// job file) and runs them through the in-memory driver.
#include "app/jobs/jobs.h"

#include "app/compute/compute_command_line.h"
#include "app/compute/compute_menu.h"
#include "app/compute/float_session.h"

namespace qv {
namespace {

void run_computation(const ComputeSettings& settings) {
    const SessionToken token = issue_session_token();
    NormalFloatSessionB session(settings, token);
    session.run(token);
}

}  // namespace

void custom_action(qmp::CommandLine& args) { run_computation(parse_compute_command_line(args)); }

void custom_menu() {
    ComputeSettings settings = ComputeSettings::defaults();
    if (compute_menu(settings, ComputeMenuPurpose::Run)) run_computation(settings);
}

void custom_job(const qmp::ConfigObject& job) {
    ComputeSettings settings = ComputeSettings::defaults();
    settings.load_config(job);
    run_computation(settings);
}

}  // namespace qv
