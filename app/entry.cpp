#include "app/entry.h"

#include "app/actions.h"
#include "app/command_line.h"
#include "app/environment.h"
#include "app/prompt.h"
#include "app/startup.h"
#include "qmp/console.h"
#include "qmp/cpu_features.h"
#include "qmp/exception.h"

#include <clocale>
#include <exception>
#include <string>

namespace qv {
namespace {

// Process-wide settings that every later step relies on: number formatting and character
// classification independent of the user's locale, so files read and write the same bytes.
void initialise_process() { std::setlocale(LC_ALL, "C"); }

void start_shared_services() {
    qmp::Console::colours_enabled();  // decide once, before any worker thread prints
    qmp::active_simd_level();         // CPUID and QMP_SIMD, read once
    load_environment();               // also sets the tuning profile it names
}

}  // namespace

int run_program(int argc, char** argv) {
    bool separate_console = false;
    int status = 0;
    try {
        initialise_process();
        qmp::CommandLine args(argc, argv);
        separate_console = announce_console();
        start_shared_services();
        resume_check();
        status = dispatch(args);
    } catch (const EndOfInput&) {
        status = 0;
    } catch (const qmp::Exception& e) {
        e.print();
        status = 1;
    } catch (const std::exception& e) {
        qmp::Console::println(std::string("Uncaught std exception\n") + e.what(),
                              qmp::Console::Colour::Error);
        status = 2;
    } catch (...) {
        qmp::Console::println("Uncaught exception of unknown type.", qmp::Console::Colour::Error);
        status = 3;
    }
    // A terminal window opened just for this run closes with the process: keep the last screen
    // readable until the user has seen it.
    if (separate_console) qmp::Console::pause();
    return status;
}

}  // namespace qv
