#include "app/actions.h"

#include "app/about.h"
#include "app/jobs/jobs.h"
#include "app/menu.h"
#include "qmp/exception.h"

#include <string>

namespace qv {
namespace {

void about_action(qmp::CommandLine& args) {
    if (const std::string* extra = args.peek())
        throw qmp::InvalidParametersException("ActionTable::about()", "Invalid Parameter: " + *extra);
    print_about();
}

}  // namespace

std::vector<Action> action_table() {
    return {
        {"bench", bench_action},
        {"bench-bbp", bench_bbp_action},
        {"stress", stress_action},
        {"benchio", benchio_action},
        {"custom", custom_action},
        {"bbp", bbp_action},
        {"digitviewer", digitviewer_action},
        {"about", about_action},
        {"validate", validate_action},
        {"config", config_action},
    };
}

int dispatch(qmp::CommandLine& args) {
    if (!args.has_more()) {
        run_main_menu();
        return 0;
    }
    const std::string word = args.next("ActionTable::dispatch()");
    for (const Action& action : action_table()) {
        if (action.word == word) {
            action.handler(args);
            return 0;
        }
    }
    throw qmp::InvalidParametersException("ActionTable::dispatch()", "Invalid Parameter: " + word);
}

}  // namespace qv
