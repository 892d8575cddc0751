// The program's front door: builds the argument list, starts the shared services, dispatches an
// action word or runs the main menu, and holds the outermost exception handlers.
#pragma once

namespace qv {

// Returns the process exit status: 0 when the action or menu completed, 1 when an exception
// reached the outermost handler (printed there), 2 for an uncaught non-family exception.
int run_program(int argc, char** argv);

}  // namespace qv
