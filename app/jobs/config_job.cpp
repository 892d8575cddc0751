// The "config" action: runs the job described by a job file. The next word is the file's path
// (".cfg" appended when it has no extension); the file is read by its extension (.cfg or .json)
// and its root's String member "Action" names the job, compared exactly. Errors:
// no path "Please specify a config file.", an unknown action "Invalid Action: " + value (both
// qmp::InvalidParametersException), and whatever reading the file throws.
#include "app/jobs/jobs.h"

#include "qmp/exception.h"

namespace qv {
namespace {

constexpr const char* kFunction = "ConfigAction::run()";

bool has_extension(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t name_start = slash == std::string::npos ? 0 : slash + 1;
    return path.find('.', name_start) != std::string::npos;
}

}  // namespace

void config_action(qmp::CommandLine& args) {
    std::string path;
    if (!args.try_next(path))
        throw qmp::InvalidParametersException(kFunction, "Please specify a config file.");
    // Everything the job needs is in the file; a further word is a mistake, not something to
    // ignore silently.
    if (const std::string* extra = args.peek())
        throw qmp::InvalidParametersException(kFunction, "Invalid Parameter: " + *extra);
    run_job_file(std::move(path));
}

void run_job_file(std::string path) {
    if (!has_extension(path)) path += ".cfg";
    const qmp::ConfigObject job = qmp::parse_using_extension(path);
    const std::string& action = job.get_string("Action", kFunction);
    if (action == "CustomCompute") return custom_job(job);
    if (action == "BenchIO") return benchio_job(job);
    if (action == "StressTest") return stress_job(job);
    if (action == "SwapTester") return swap_tester_job(job);
    throw qmp::InvalidParametersException(kFunction, "Invalid Action: " + action);
}

}  // namespace qv
