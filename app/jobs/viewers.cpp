// The digit viewer ("digitviewer", menu entry 6) and the validator of benchmark validation files
// ("validate"): each takes at most one word, the path of the file to open, and asks for it when
// it is not given.
#include "app/jobs/jobs.h"

#include "app/digit_viewer.h"
#include "app/jobs/job_options.h"
#include "app/report/validator.h"

namespace qv {
namespace {

// At most one positional word (the path); no options.
std::string read_optional_path(qmp::CommandLine& args, const char* parser) {
    std::string path;
    parse_job_options(args, parser, {}, [&](const std::string& word) {
        if (!path.empty()) return false;
        path = word;
        return true;
    });
    return path;
}

}  // namespace

void digitviewer_action(qmp::CommandLine& args) {
    run_digit_viewer(read_optional_path(args, "DigitViewer::parse_options()"));
}

void digitviewer_menu() { run_digit_viewer({}); }

void validate_action(qmp::CommandLine& args) {
    run_validator(read_optional_path(args, "Validator::parse_options()"));
}

void validate_menu() { run_validator({}); }

}  // namespace qv
