#include "app/entry.h"

#include <exception>
#include <string>

#include "qmp/console.h"
#include "qmp/exception.h"

namespace qv {

int run_program(int argc, char** argv) {
    try {
        (void)argc;
        (void)argv;
        qmp::Console::println("quorvalith");
        return 0;
    } catch (const qmp::Exception& e) {
        e.print();
        return 1;
    } catch (const std::exception& e) {
        qmp::Console::println(std::string("Uncaught std exception\n") + e.what(),
                              qmp::Console::Colour::Error);
        return 2;
    }
}

}  // namespace qv
