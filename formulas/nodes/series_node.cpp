// The shared series evaluator; see series_node.h.
#include "formulas/nodes/series_node.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "qmp/functions/division.h"
#include "qmp/series/common_p2b3.h"

namespace qmp {

namespace {

using Summation = BinarySplitting::PSR_SeriesB<BinarySplitting::CommonP2B3>;

class FormulaB_Series : public FormulaEvaluator {
public:
    FormulaB_Series(const char* class_name, std::unique_ptr<BinarySplitting::PQRSeries> series, int power,
                    BinarySplitting::SeriesCoefficients coefficients)
        : FormulaEvaluator(class_name),
          series_(std::move(series)),
          summation_(*series_, power, coefficients) {}

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        const BinarySplitting::MulEnv env{context.table, context.parallelizer, context.tds};
        division_.emplace(*context.table, p, context.tds);
        const uint64_t fraction_words = Summation::result_words(p);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = 2 * value_bytes(fraction_words) +
                          std::max(summation_.memory_bytes(env, p, context.tds), division_->scratch_bytes());
        s.checkpoint_bytes = 2 * value_bytes(fraction_words);
        s.buffers = {{"m_numerator_words", fraction_words}, {"m_denominator_words", fraction_words},
                     {"m_terms", summation_.terms(p)}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const BinarySplitting::MulEnv env{context.table, context.parallelizer, context.tds};
        const uint64_t fraction_words = Summation::result_words(precision());
        FormulaFloat num = carve_value(scratch, fraction_words), den = carve_value(scratch, fraction_words);
        summation_.run(precision(), env, context.tds, scratch, num, den, false);
        context.report("Dividing: ");
        division_->run(out, num, den, precision(), scratch, context.parallelizer, context.tds);
    }

private:
    std::unique_ptr<BinarySplitting::PQRSeries> series_;
    Summation summation_;
    std::optional<Division_BigFloatR<uint64_t>> division_;
};

}  // namespace

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
    return std::make_unique<FormulaB_Series>(class_name, std::move(series), coefficients.power, coefficients.c);
}

}  // namespace qmp
