// The lemniscate constant's fast form: 2 varpi = 4 sqrt(2) M / D from one Gauss-Legendre
// arithmetic-geometric mean (M = AGM(1, 1/sqrt 2), D = 4 M^2 / pi), times the value of a child
// evaluator `scale`: S = 2 varpi * scale. It needs no separate pi, so it shares no computation
// with the pi-and-AGM form (2 varpi = 2 pi / AGM(1, sqrt 2)), which makes the two a check of
// each other. Messages: "AGM did not converge." (AlgorithmFailedException).
#pragma once

#include <memory>

#include "formulas/language/formula_evaluator.h"

namespace qmp {

std::unique_ptr<FormulaEvaluator> make_lemniscate_agm_evaluator(const char* class_name,
                                                                std::unique_ptr<FormulaEvaluator> scale);

}  // namespace qmp
