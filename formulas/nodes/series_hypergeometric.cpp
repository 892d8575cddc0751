// SeriesHypergeometric {Power, CoefficientP, CoefficientQ, CoefficientD, PolynomialP,
// PolynomialQ, PolynomialR, TermsGrouped}: V = ((CQ + CP S) / CD)^Power with
//   S = sum_{k>=1} [prod_{j<k} R(j)/Q(j)] P(k)/Q(k),
// the polynomials given as arrays of integer coefficients, lowest degree first. The sum runs
// by binary splitting (series_node.h) over a PolynomialSeries in its direct form. TermsGrouped
// only records how many terms of an ungrouped series one k covers: it must be a positive
// integer and does not enter the arithmetic. A series whose terms do not shrink geometrically
// (deg R > deg Q, or equal degrees with |lc R| >= |lc Q|) is refused: the engine sums only
// geometrically converging series; a Q with a root at k = 1 .. 65536 is refused (a root beyond
// that is not detected here).
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "formulas/nodes/series_node.h"
#include "qmp/series/polynomial_series.h"

namespace qmp {

namespace {

// Above this degree the term polynomials cost more than the products: warn.
constexpr uint64_t high_degree_warning = 16;

std::vector<int64_t> read_polynomial(const ConfigObject& argument, const char* key, const char* function) {
    const std::vector<ConfigObject>& coefficients = argument.get(key, function).as_array(key);
    if (coefficients.size() > BinarySplitting::PolynomialSeries::kMaxDegree + 1)
        throw InvalidParametersException(function, "Polynomial degree limit is 62.");
    std::vector<int64_t> c;
    for (const ConfigObject& x : coefficients) c.push_back(x.as_integer(key));
    while (c.size() > 1 && c.back() == 0) c.pop_back();
    return c;
}

// Whether Q(k) = 0 (exactly, in 128-bit Horner steps). Once |v| >= 2^100 the remaining steps
// (v k + c with k >= 1, |c| < 2^63, at most 62 of them) cannot bring it back to zero.
bool is_root(const std::vector<int64_t>& c, uint64_t k) {
    __int128 v = 0;
    const __int128 big = __int128(1) << 100;
    for (size_t i = c.size(); i-- > 0;) {
        if (v >= big || v <= -big) return false;
        v = v * __int128(k) + c[i];
    }
    return v == 0;
}

// The engine needs Q(k) != 0 at every summed index; small roots are the likely mistakes.
constexpr uint64_t checked_root_range = uint64_t(1) << 16;

uint64_t magnitude(int64_t x) { return x < 0 ? uint64_t(0) - uint64_t(x) : uint64_t(x); }

}  // namespace

std::unique_ptr<FormulaEvaluator> make_series_hypergeometric_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_SeriesHypergeometric::FormulaB_SeriesHypergeometric()";
    const ConfigObject& argument = node.argument().as_object("SeriesHypergeometric");
    const SeriesNodeCoefficients coefficients = read_series_coefficients(argument, function);
    if (argument.get_integer("TermsGrouped", function) < 1)
        throw InvalidParametersException(function, "TermsGrouped must be positive.");
    const std::vector<int64_t> P = read_polynomial(argument, "PolynomialP", function);
    const std::vector<int64_t> Q = read_polynomial(argument, "PolynomialQ", function);
    const std::vector<int64_t> R = read_polynomial(argument, "PolynomialR", function);
    if (Q.size() - 1 > high_degree_warning) builder.warn("Warning: Q(x) is of very high degree. May take a while to process...");
    if (R.size() - 1 > high_degree_warning) builder.warn("Warning: R(x) is of very high degree. May take a while to process...");
    if (R.size() == 1 && magnitude(R[0]) == 1) builder.warn("Warning: |R(x)| = 1. Consider using SeriesHyperdescent instead.");
    const bool shrinks = R.size() < Q.size() || (R.size() == Q.size() && magnitude(R.back()) < magnitude(Q.back()));
    if (!shrinks) throw InvalidParametersException(function, "Series does not converge geometrically.");
    for (uint64_t k = 1; k <= checked_root_range; k++)
        if (is_root(Q, k)) throw InvalidParametersException(function, "Q(x) is zero at x = " + std::to_string(k) + ".");
    auto series = std::make_unique<BinarySplitting::PolynomialSeries>("SeriesHypergeometric", P, Q, R,
                                                                      BinarySplitting::PolynomialSeries::Form::Direct);
    return make_series_evaluator("FormulaB_SeriesHypergeometric", std::move(series), coefficients);
}

}  // namespace qmp
