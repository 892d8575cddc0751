// The shared series evaluator; see series_node.h.
#include "formulas/nodes/series_node.h"

#include <memory>
#include <utility>

#include "formulas/nodes/series_value.h"
#include "qmp/exception.h"
#include "qmp/series/common_p2b3.h"

namespace qmp {

SeriesNodeCoefficients read_series_coefficients(const ConfigObject& argument, const char* function) {
    SeriesNodeCoefficients s;
    const int64_t power = argument.get_integer("Power", function);
    s.c.CP = argument.get_integer("CoefficientP", function);
    s.c.CQ = argument.get_integer("CoefficientQ", function);
    s.c.CD = argument.get_integer("CoefficientD", function);
    if (s.c.CP == 0) throw InvalidParametersException(function, "CoefficientP cannot be zero.");
    if (s.c.CD <= 0) throw InvalidParametersException(function, "CoefficientD must be positive.");
    if (power != 1 && power != -1) throw InvalidParametersException(function, "Power must be 1 or -1.");
    s.power = int(power);
    return s;
}

std::unique_ptr<FormulaEvaluator> make_series_evaluator(const char* class_name,
                                                        std::unique_ptr<BinarySplitting::PQRSeries> series,
                                                        const SeriesNodeCoefficients& coefficients) {
    return std::make_unique<FamilySeriesEvaluator<BinarySplitting::CommonP2B3>>(class_name, std::move(series), coefficients);
}

}  // namespace qmp
