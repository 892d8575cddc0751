// The start-up steps before an action runs: telling how the program was started, and looking
// for an unfinished computation to resume.
//
// "Separate console" on Linux: the program runs in a terminal of its own when standard output is
// a terminal and this process leads its own session, i.e. a terminal emulator started it
// directly (as a desktop launcher does) rather than a shell that leads the session and forks the
// program. Piped, redirected or backgrounded runs, and runs from a shell, are "from console".
#pragma once

#include <optional>
#include <string>

namespace qv {

// The file whose presence marks an unfinished computation in the working directory.
inline constexpr const char* kCheckpointFileName = "qcp-checkpoint.cfg";

bool running_in_separate_console();
// Prints how the program was started; in a separate console also asks the terminal for an
// 80 x 25 window (xterm window-manipulation sequence). Returns running_in_separate_console().
bool announce_console();

// The path of an unfinished computation's checkpoint in the working directory, if one exists.
std::optional<std::string> find_checkpoint();
// When a checkpoint exists: announces it, pauses for the user, and fails, because this build
// cannot load checkpoints yet; the file is left untouched for a build that can. Returns
// normally when there is nothing to resume.
void resume_check();

}  // namespace qv
