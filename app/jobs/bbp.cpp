// The BBP digit extractor for pi ("bbp", menu entry 5): the customisable form of the BBP
// benchmark, asking for the offset and settings. Its only option word is -noSMT.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"

namespace qv {
namespace {

constexpr const char* kRun = "BbpExtractor::run()";
constexpr const char* kMessage = "The BBP digit extractor is not available in this build.";

}  // namespace

void bbp_action(qmp::CommandLine& args) {
    const JobOptions options = parse_job_options(args, "BbpExtractor::parse_options()", {"-noSMT"},
                                                 [](const std::string&) { return false; });
    (void)options;
    job_not_available(kRun, kMessage);
}

void bbp_menu() { job_not_available(kRun, kMessage); }

}  // namespace qv
