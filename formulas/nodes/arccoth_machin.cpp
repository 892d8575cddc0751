// ArcCoth {Coefficient, x} = Coefficient * arccoth(x) for an integer x > 1 (any other argument
// is the function of a node, make_arccoth_function_node()), by the series
//   arccoth(x) = sum_{k>=0} x^-(2k+1) / (2k+1) = (1 + S) / x,
//   S = sum_{k>=1} [prod_{j<k} R(j)/Q(j)] R(k)/Q(k),  R(k) = 2k - 1,  Q(k) = (2k + 1) x^2,
// whose product telescopes to 1 / ((2k+1) x^(2k)): 2 log10 x digits per term. Q's coefficients
// are 64-bit, so x < 2^31 ("Argument is too large: x = "); x <= 1 does not converge
// ("Argument must be greater than 1: x = ").
// LogMachin n = log n by the Machin-like ArcCoth combination that LogMachinFormula finds (its
// primary formula, divided by its denominator when that is not 1); the search refuses numbers
// it cannot span with "Unable to find a formula.".
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formulas/catalog/formula_text.h"
#include "formulas/catalog/machin_search.h"
#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/series_node.h"
#include "formulas/nodes/series_value.h"
#include "qmp/exception.h"
#include "qmp/series/polynomial_series.h"

namespace qmp {

namespace {

constexpr int64_t kArcCothLimit = int64_t(1) << 31;

}  // namespace

std::unique_ptr<FormulaEvaluator> make_arccoth_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_ArcCoth::FormulaB_ArcCoth()";
    // The name is shared with the function of a node: only {Coefficient, x} is the series.
    if (node.argument().kind() != ConfigKind::Object || !node.argument().contains("Coefficient"))
        return make_arccoth_function_node(node, builder);
    const ConfigObject& argument = node.argument().as_object("ArcCoth");
    const int64_t coefficient = argument.get_integer("Coefficient", function);
    const int64_t x = argument.get_integer("x", function);
    if (x <= 1) throw InvalidParametersException(function, "Argument must be greater than 1: x = " + std::to_string(x));
    if (x >= kArcCothLimit) throw InvalidParametersException(function, "Argument is too large: x = " + std::to_string(x));
    if (coefficient == 0) throw InvalidParametersException(function, "Coefficient cannot be zero.");
    SeriesNodeCoefficients c;
    c.power = 1;
    c.c.CP = coefficient;
    c.c.CQ = coefficient;
    c.c.CD = x;
    const int64_t x2 = x * x;
    const std::vector<int64_t> R = {-1, 2};
    auto series = std::make_unique<BinarySplitting::PolynomialSeries>("ArcCoth", R, std::vector<int64_t>{x2, 2 * x2}, R,
                                                                      BinarySplitting::PolynomialSeries::Form::Direct);
    return make_series_evaluator("FormulaB_ArcCoth", std::move(series), c);
}

std::unique_ptr<FormulaEvaluator> make_log_machin_node(const FormulaNode& node, FormulaBuilder& builder) {
    using namespace qv::formula_text;
    const int64_t n = FormulaNode(node.argument()).get_as_integer();
    if (n <= 1)
        throw InvalidParametersException("FormulaB_LogMachin::FormulaB_LogMachin()", "Argument must be greater than 1.");
    qv::LogMachinFormula formula(uint64_t(n), qv::MachinChoice::Primary);
    formula.find_formula();
    std::vector<std::pair<int64_t, ConfigObject>> terms;
    for (const qv::LogMachinFormula::Term& t : formula.terms())
        terms.emplace_back(1, qv::formula_text::node("ArcCoth", params({{"Coefficient", integer(t.coefficient)},
                                                                         {"x", integer(int64_t(t.x))}})));
    ConfigObject tree = linear_combination(std::move(terms));
    const int64_t d = formula.denominator();
    // Divide refuses powers of two: those are exact shifts.
    if (d != 1 && (d & (d - 1)) == 0)
        tree = qv::formula_text::node("Shift", array({std::move(tree), integer(-int64_t(__builtin_ctzll(uint64_t(d))))}));
    else if (d != 1)
        tree = qv::formula_text::node("Divide", array({std::move(tree), integer(d)}));
    return build_composite(builder, tree);
}

}  // namespace qmp
