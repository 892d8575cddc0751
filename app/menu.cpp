#include "app/menu.h"

#include "app/about.h"
#include "app/environment.h"
#include "app/jobs/jobs.h"
#include "app/prompt.h"
#include "app/active_profile.h"
#include "app/version.h"
#include "qmp/console.h"
#include "qmp/cpu_features.h"

namespace qv {
namespace {

using qmp::Console::Colour;

// One colour per entry line, in the order of main_menu_lines(); the two lines under entry 4
// describe it and share a colour of their own.
constexpr Colour kLineColours[] = {
    Colour::BrightBlue,  Colour::BrightCyan, Colour::BrightGreen,   Colour::Yellow,
    Colour::BrightYellow, Colour::White,     Colour::White,         Colour::BrightMagenta,
    Colour::Cyan,        Colour::Green,      Colour::Magenta,
};

void print_detected_hardware() {
    const qmp::ConfigObject& hw = environment_settings().get("DetectedHardware", "Menu::hardware()");
    qmp::Console::println();
    qmp::Console::println("Detected Hardware:", Colour::Header);
    for (uint64_t i = 0; i < hw.member_count(); ++i) {
        const qmp::ConfigObject& value = hw.member_value(i);
        qmp::Console::print("    " + hw.member_key(i) + ": ", Colour::Label);
        qmp::Console::println(value.kind() == qmp::ConfigKind::Integer
                                  ? std::to_string(value.as_integer())
                                  : value.as_string(),
                              Colour::Value);
    }
    qmp::Console::print("    Instruction Set: ", Colour::Label);
    qmp::Console::println(qmp::simd_level_name(qmp::active_simd_level()), Colour::Value);
}

}  // namespace

std::vector<std::string> main_menu_lines() {
    return {
        "  0         Benchmark Pi      (standard, memory-intensive)",
        "  1         Benchmark Pi BBP  (digit extraction, CPU only)",
        "  2         Component Stress Tester",
        "  3         Run I/O Performance Analysis",
        "  4         Custom Compute a Constant",
        "                -   Compute other constants (e, Golden Ratio, etc...)",
        "                -   Choose your own settings (use disk for large computations)",
        "  5         BBP Digit Extractor for Pi (Customizer)",
        "  6         Digit Viewer",
        "  7/8       Advanced Options / About",
        "  9         Tuning Profile:  " + active_tuning_profile().name,
    };
}

void run_main_menu() {
    for (;;) {
        qmp::Console::println();
        qmp::Console::println(std::string(kProgramName) + " v" + kProgramVersion, Colour::Header);
        qmp::Console::println();
        qmp::Console::println("Main Menu:", Colour::Header);
        qmp::Console::println();
        const std::vector<std::string> lines = main_menu_lines();
        for (size_t i = 0; i < lines.size(); ++i) qmp::Console::println(lines[i], kLineColours[i]);
        qmp::Console::println();
        switch (prompt_integer("Enter your choice: ", 0, 9)) {
            case 0: return bench_menu();
            case 1: return bench_bbp_menu();
            case 2: return stress_menu();
            case 3: return benchio_menu();
            case 4: return custom_menu();
            case 5: return bbp_menu();
            case 6: return digitviewer_menu();
            case 7:
                if (run_advanced_options()) return;
                break;
            case 8: print_about(); break;
            case 9: choose_tuning_profile_menu(); break;
        }
    }
}

bool run_advanced_options() {
    for (;;) {
        qmp::Console::println();
        qmp::Console::println("Advanced Options:", Colour::Header);
        qmp::Console::println();
        qmp::Console::println("  0         Back to Main Menu", Colour::BrightBlue);
        qmp::Console::println("  1         Detected Hardware", Colour::BrightCyan);
        qmp::Console::println("  2         Run a Job File", Colour::BrightGreen);
        qmp::Console::println("  3         Benchmark Validator", Colour::Yellow);
        qmp::Console::println("  4         Far-Memory Swap Tester", Colour::BrightMagenta);
        qmp::Console::println();
        switch (prompt_integer("Enter your choice: ", 0, 4)) {
            case 0: return false;
            case 1: print_detected_hardware(); break;
            case 2:
                run_job_file(
                    prompt_line("Enter path of configuration file. (the .cfg extension can be omitted)\n"));
                return true;
            case 3: validate_menu(); return true;
            case 4: swap_tester_menu(); return true;
        }
    }
}

}  // namespace qv
