// Registration of every multiplication algorithm built into the program. The definition lives
// with the highest layer that contributes algorithms (qmp/multiply/fft/builtin_algorithms.cpp,
// library qmp_fft), so that linking it pulls in all of them.
#pragma once

namespace qmp {

class AlgorithmRegistry;

void register_builtin_algorithms(AlgorithmRegistry& registry);

}  // namespace qmp
