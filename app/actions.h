// The action dispatcher: the first argument word selects an action from the table, compared
// byte for byte; with no word the main menu runs. Every handler takes the shared argument list
// and reads its own words from the same cursor. An unknown word fails with
// qmp::InvalidParametersException "Invalid Parameter: " + word.
#pragma once

#include <string_view>
#include <vector>

#include "app/command_line.h"

namespace qv {

using ActionHandler = void (*)(qmp::CommandLine& args);

struct Action {
    std::string_view word;
    ActionHandler handler;
};

// Built afresh on each call, in table order: "bench", "bench-bbp", "stress", "benchio",
// "custom", "bbp", "digitviewer", "about", "validate", "config".
std::vector<Action> action_table();

// Runs the action named by the next word, or the main menu when there is none. Returns 0 when
// the action or the menu completed.
int dispatch(qmp::CommandLine& args);

}  // namespace qv
