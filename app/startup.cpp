#include "app/startup.h"

#include "qmp/console.h"
#include "qmp/exception.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace qv {

bool running_in_separate_console() {
    return ::isatty(STDOUT_FILENO) != 0 && ::getsid(0) == ::getpid();
}

bool announce_console() {
    const bool separate = running_in_separate_console();
    if (separate) {
        qmp::Console::println("Running from separate console. Attempting to set window size...");
        // CSI 8 ; rows ; columns t -- resize the text area. Terminals that do not support it
        // ignore it; only ever sent to a terminal.
        std::fputs("\x1b[8;25;80t", stdout);
        std::fflush(stdout);
    } else {
        qmp::Console::println("Running from console...");
    }
    return separate;
}

std::optional<std::string> find_checkpoint() {
    struct stat st;
    if (::stat(kCheckpointFileName, &st) == 0 && S_ISREG(st.st_mode))
        return std::string(kCheckpointFileName);
    return std::nullopt;
}

void resume_check() {
    const std::optional<std::string> checkpoint = find_checkpoint();
    if (!checkpoint) return;
    qmp::Console::println("An unfinished computation has been found.", qmp::Console::Colour::Header);
    qmp::Console::println("Resuming from:\n    " + *checkpoint);
    qmp::Console::pause();
    qmp::Console::println();
    throw qmp::Exception("Checkpoint::resume()",
                         "Resuming a computation is not available in this build. Move \"" +
                             *checkpoint + "\" away to start normally.");
}

}  // namespace qv
