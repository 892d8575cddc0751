#include "app/about.h"

#include "app/version.h"
#include "qmp/console.h"
#include "qmp/cpu_features.h"

#include <string>

namespace qv {

void print_about() {
    using qmp::Console::Colour;
    qmp::Console::println();
    qmp::Console::println(std::string(kProgramName) + " v" + kProgramVersion, Colour::Header);
    qmp::Console::println();
    qmp::Console::println(
        "Computes mathematical constants to very many digits: pi, e, the golden ratio,\n"
        "square roots and logarithms of integers, zeta(3), Catalan's constant, the\n"
        "lemniscate constant, the Euler-Mascheroni constant and constants defined in\n"
        "formula files. Large computations can keep their numbers on disk.",
        Colour::Info);
    qmp::Console::println();
    qmp::Console::println(
        "Its multi-precision library, qmp, checks its own arithmetic throughout: a failed\n"
        "check stops the computation with an error instead of writing wrong digits.",
        Colour::Info);
    qmp::Console::println();
    qmp::Console::print("Instruction set in use: ", Colour::Label);
    qmp::Console::println(qmp::simd_level_name(qmp::active_simd_level()), Colour::Value);
    qmp::Console::println();
}

}  // namespace qv
