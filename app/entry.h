// The program's front door: builds the argument list, tells how the program was started, starts
// the shared services (console, hardware detection, tuning profile, "environment.cfg"), checks
// for an unfinished computation, then runs the action named by the first word or the main menu.
// The outermost exception handlers live here.
//
// Exit status:
//   0  the action or the menu completed, or standard input ended at a prompt
//   1  a qmp::Exception reached the outermost handler (printed with its operation and message)
//   2  another std::exception reached it ("Uncaught std exception" and its text)
//   3  anything else reached it ("Uncaught exception of unknown type.")
#pragma once

namespace qv {

int run_program(int argc, char** argv);

}  // namespace qv
