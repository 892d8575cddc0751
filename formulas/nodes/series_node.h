// The evaluator shared by the series nodes: a P/Q/R series summed by binary splitting in the
// series engine (CommonP2B3 family), giving V = ((CQ + CP S) / CD)^Power as a fraction of two
// numbers, then one Newton division. read_series_coefficients() reads and checks the keys
// every series node has: Power ("Power must be 1 or -1."), CoefficientP ("CoefficientP cannot
// be zero."), CoefficientQ and CoefficientD ("CoefficientD must be positive.").
#pragma once

#include <memory>

#include "config/config_object.h"
#include "formulas/language/formula_evaluator.h"
#include "qmp/series/pqr_series.h"
#include "qmp/series/psr_series.h"

namespace qmp {

struct SeriesNodeCoefficients {
    int power = 1;
    BinarySplitting::SeriesCoefficients c;
};

SeriesNodeCoefficients read_series_coefficients(const ConfigObject& argument, const char* function);

std::unique_ptr<FormulaEvaluator> make_series_evaluator(const char* class_name,
                                                        std::unique_ptr<BinarySplitting::PQRSeries> series,
                                                        const SeriesNodeCoefficients& coefficients);

}  // namespace qmp
