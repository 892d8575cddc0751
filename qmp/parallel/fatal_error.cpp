// Ends the process after reporting a failure that cannot be thrown to a caller.
#include "qmp/parallel/fatal_error.h"

#include "qmp/console.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace qmp {

[[noreturn]] void fatal_error(std::string_view heading, std::string_view detail) {
    // stderr directly, not the console: the console's lock may be held by the thread that died,
    // and stderr is unbuffered, so nothing is lost to the _Exit below.
    std::fwrite(heading.data(), 1, heading.size(), stderr);
    std::fputc('\n', stderr);
    if (!detail.empty()) {
        std::fwrite(detail.data(), 1, detail.size(), stderr);
        std::fputc('\n', stderr);
    }
    std::fflush(stderr);
    EventLog::append(std::string(heading) + " " + std::string(detail));
    std::_Exit(EXIT_FAILURE);
}

}  // namespace qmp
