// The fatal-error path: for failures that no caller can be told about (an exception escaping a
// push-pool worker, a destructor finding a broken invariant). It writes the heading and the
// detail to standard error, records them in the event log and ends the process with exit
// status 1 without running destructors or atexit handlers, because other threads may still hold
// the objects those would touch.
#pragma once

#include <string_view>

namespace qmp {

[[noreturn]] void fatal_error(std::string_view heading, std::string_view detail = {});

}  // namespace qmp
