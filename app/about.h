// The about text: the program's name and version, what it does, and the instruction-set path
// its kernels use on this machine. Shown by the "about" action and by main menu entry 8.
#pragma once

namespace qv {

void print_about();

}  // namespace qv
