// Pieces shared by the series nodes whose sum does not come straight from the CommonP2B3 form:
//   FamilySeriesEvaluator<F>: a series of family F (BinaryBBP, Hyperdescent, BrentMcMillanAB)
//       summed by PSR_SeriesB<F> and divided once: V = ((CQ + CP S) / CD)^Power, then times
//       2^(64 shift_words), an exact change of exponent.
//   make_series_value_evaluator(): V = ((CQ + CP S) / CD)^Power over any evaluator giving S,
//       for series whose sum is a composite value (a fallback formula, a refined sum).
//   build_composite(): compiles a node tree that a factory wrote itself, with the nodes of the
//       builder's registry.
// Every evaluator states its memory in its sizing and carves nothing else.
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "config/config_object.h"
#include "formulas/language/formula_builder.h"
#include "formulas/language/formula_evaluator.h"
#include "formulas/nodes/node_support.h"
#include "formulas/nodes/series_node.h"
#include "qmp/functions/division.h"
#include "qmp/series/psr_series.h"

namespace qmp {

template <class F>
class FamilySeriesEvaluator : public FormulaEvaluator {
public:
    using Summation = BinarySplitting::PSR_SeriesB<F>;

    FamilySeriesEvaluator(const char* class_name, std::unique_ptr<typename F::Series> series,
                          const SeriesNodeCoefficients& coefficients, int64_t shift_words = 0)
        : FormulaEvaluator(class_name),
          series_(std::move(series)),
          summation_(*series_, coefficients.power, coefficients.c),
          shift_words_(shift_words) {}

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
        out.exp += shift_words_;
    }

private:
    std::unique_ptr<typename F::Series> series_;
    Summation summation_;
    int64_t shift_words_;
    std::optional<Division_BigFloatR<uint64_t>> division_;
};

std::unique_ptr<FormulaEvaluator> make_series_value_evaluator(const char* class_name,
                                                              std::unique_ptr<FormulaEvaluator> sum,
                                                              const SeriesNodeCoefficients& coefficients);

std::unique_ptr<FormulaEvaluator> build_composite(FormulaBuilder& builder, const ConfigObject& tree);

// Reads the optional ReducedMemory key of the fixed series nodes (a Boolean when present).
void read_reduced_memory(const ConfigObject& argument, const char* function);

}  // namespace qmp
