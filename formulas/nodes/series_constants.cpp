// The series nodes with built-in polynomials for zeta(3), Catalan's constant, log 2 and the
// lemniscate constant 2 varpi. Each takes {Power, CoefficientP, CoefficientQ, CoefficientD,
// ReducedMemory (optional Boolean)} and gives V = ((CQ + CP S) / CD)^Power. The polynomials are
// lowest degree first, in the direct form S = sum_{k>=1} [prod_{j<k} R(j)/Q(j)] P(k)/Q(k):
//   SeriesZeta3Zuniga2023vi    S = -48 zeta(3)   11.86 digits per term
//   SeriesZeta3Zuniga2023v     S =  24 zeta(3)   10.54 digits per term
//   SeriesCatalanPilehoodShort S =   2 G          2.26 digits per term
//   SeriesCatalanZuniga2023    S =  -6 G          4.10 digits per term
//   SeriesLog2Zuniga2024ii     S = log 2         10.77 digits per term (a series of the 18k family)
// Three sums are composite values, used in place of series that were not available:
//   SeriesLog2Zuniga2024i        S = log 2 = 18 acoth(26) - 2 acoth(4801) + 8 acoth(8749)
//   SeriesLemniscateZuniga2023x  S = 2 varpi / 1043320250^(1/4), 2 varpi = 4 sqrt(2) M / D by one
//                                Gauss-Legendre AGM (lemniscate_agm.h; no separate pi)
//   SeriesLemniscateGuillera     S = -2 varpi / 4050000^(1/8),   2 varpi = 2 pi / AGM(1, sqrt 2)
// The values of S are those the catalog's coefficients expect (1610 S 6440^(-1/4) = 2 varpi, ...).
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formulas/catalog/formula_text.h"
#include "formulas/nodes/lemniscate_agm.h"
#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/series_node.h"
#include "formulas/nodes/series_value.h"
#include "qmp/series/polynomial_series.h"

namespace qmp {

namespace {

using Polynomial = std::vector<int64_t>;
using namespace qv::formula_text;

struct FixedSeries {
    Polynomial P, Q, R;
};

// R = -k^5 (2k-1)^3 (3k-1)(3k-2)(4k-1)(4k-3)(6k-1)(6k-5),
// Q = 270 (9k-1)(9k-2)(9k-4)(9k-5)(9k-7)(9k-8)(10k-1)(10k-3)(10k-7)(10k-9)(12k-1)(12k-5)(12k-7)(12k-11).
const FixedSeries kZeta3vi = {
    {3143448000, -156286859400, 3292502315430, -38721705264979, 282805786014979, -1352700034136826,
     4348596587040104, -9451223531851808, 13684352515879536, -12632254526031264, 6719460725627136,
     -1565994397644288},
    {44008272000, -2334151436400, 53522442803340, -703273183134030, 5931859745397870, -34140867105175650,
     139058868850409430, -409481300311614720, 880500176512163280, -1382139595517666400,
     1565294958171053280, -1244539247650560000, 658690593528960000, -208277254886400000, 29753893555200000},
    {0, 0, 0, 0, 0, 30, -691, 6781, -37374, 127976, -283232, 406224, -364896, 186624, -41472}};

// R = k^5 (2k-1)(3k-1)(3k-2)(4k-1)(4k-3)(5k-1)(5k-2)(5k-3)(5k-4),
// Q = 288 (8k-1)(8k-3)(8k-5)(8k-7)(9k-1)(9k-2)(9k-4)(9k-5)(9k-7)(9k-8)(10k-1)(10k-3)(10k-7)(10k-9).
const FixedSeries kZeta3v = {
    {-731566080, 33552610560, -660416507568, 7352050259484, -51452348050672, 238210943593421, -746938801646725,
     1592180015776565, -2269551612681475, 2067749814046250, -1087318449630000, 250765325100000},
    {12802406400, -630432149760, 13590158605632, -169967769553440, 1380005039193120, -7717502762246880,
     30768648371584416, -89184794625884160, 189572636957863680, -295108898940725760, 332261656920433152,
     -263138155905024000, 138938211753984000, -43883931893760000, 6269133127680000},
    {0, 0, 0, 0, 0, -144, 3204, -30704, 166531, -564155, 1239787, -1770125, 1585750, -810000, 180000}};

// R = 32 k^3 (2k-1), Q = 9 (6k-1)^2 (6k-5)^2, P = 580k^2 - 184k + 15; all terms positive.
const FixedSeries kCatalanShort = {{15, -184, 580}, {225, -3240, 14904, -23328, 11664}, {0, 0, 0, -32, 64}};

// R = -128 k^3 (2k-1)(3k-1)(3k-2)(6k-1)(6k-5),
// Q = 5 (10k-1)(10k-3)(10k-7)(10k-9)(12k-1)(12k-5)(12k-7)(12k-11).
const FixedSeries kCatalanZuniga = {
    {-17325, 536620, -6004944, 30494304, -76613904, 92809152, -43203456},
    {363825, -12034680, 150240200, -918651040, 3101725520, -6073920000, 6863040000, -4147200000, 1036800000},
    {0, 0, 0, 1280, -17536, 86400, -195840, 207360, -82944}};

// R = 8k(2k-1)(3k-2)(3k-1)(6k-5)(6k-1), Q = 2^12 3^7 (18k-1)(18k-5)(18k-7)(18k-11)(18k-13)(18k-17).
const FixedSeries kLog2Eighteen = {
    {-31025394360, 843674074572, -6069985438308, 18151274448504, -24084086218992, 11718456538464},
    {762187345920, -21532730867712, 171051555962880, -603717520195584, 1063558435110912, -914039610015744,
     304679870005248},
    {0, -80, 1096, -5400, 12240, -12960, 5184}};

std::string constructor_name(const char* class_name) { return std::string(class_name) + "::" + class_name + "()"; }

// Reads the keys every fixed series node has.
SeriesNodeCoefficients read_fixed(const FormulaNode& node, const char* name, const char* class_name) {
    const std::string function = constructor_name(class_name);
    const ConfigObject& argument = node.argument().as_object(name);
    SeriesNodeCoefficients c = read_series_coefficients(argument, function.c_str());
    read_reduced_memory(argument, function.c_str());
    return c;
}

std::unique_ptr<FormulaEvaluator> make_fixed(const FormulaNode& node, const char* name, const char* class_name,
                                             const FixedSeries& s) {
    const SeriesNodeCoefficients c = read_fixed(node, name, class_name);
    auto series = std::make_unique<BinarySplitting::PolynomialSeries>(name, s.P, s.Q, s.R,
                                                                      BinarySplitting::PolynomialSeries::Form::Direct);
    return make_series_evaluator(class_name, std::move(series), c);
}

ConfigObject arccoth(int64_t coefficient, int64_t x) {
    return node("ArcCoth", params({{"Coefficient", integer(coefficient)}, {"x", integer(x)}}));
}

std::unique_ptr<FormulaEvaluator> make_composite(const FormulaNode& node, FormulaBuilder& builder, const char* name,
                                                 const char* class_name, const ConfigObject& sum) {
    const SeriesNodeCoefficients c = read_fixed(node, name, class_name);
    return make_series_value_evaluator(class_name, build_composite(builder, sum), c);
}

// The tree builder under another name: the factories' own parameter is called `node`.
ConfigObject tree_node(std::string_view name, ConfigObject argument) { return node(name, std::move(argument)); }

}  // namespace

std::unique_ptr<FormulaEvaluator> make_series_zeta3_zuniga2023vi_node(const FormulaNode& node, FormulaBuilder&) {
    return make_fixed(node, "SeriesZeta3Zuniga2023vi", "FormulaB_SeriesZeta3Zuniga2023vi", kZeta3vi);
}

std::unique_ptr<FormulaEvaluator> make_series_zeta3_zuniga2023v_node(const FormulaNode& node, FormulaBuilder&) {
    return make_fixed(node, "SeriesZeta3Zuniga2023v", "FormulaB_SeriesZeta3Zuniga2023v", kZeta3v);
}

std::unique_ptr<FormulaEvaluator> make_series_catalan_pilehood_short_node(const FormulaNode& node, FormulaBuilder&) {
    return make_fixed(node, "SeriesCatalanPilehoodShort", "FormulaB_SeriesCatalanPilehoodShort", kCatalanShort);
}

std::unique_ptr<FormulaEvaluator> make_series_catalan_zuniga2023_node(const FormulaNode& node, FormulaBuilder&) {
    return make_fixed(node, "SeriesCatalanZuniga2023", "FormulaB_SeriesCatalanZuniga2023", kCatalanZuniga);
}

std::unique_ptr<FormulaEvaluator> make_series_log2_zuniga2024ii_node(const FormulaNode& node, FormulaBuilder&) {
    return make_fixed(node, "SeriesLog2Zuniga2024ii", "FormulaB_SeriesLog2Zuniga2024ii", kLog2Eighteen);
}

std::unique_ptr<FormulaEvaluator> make_series_log2_zuniga2024i_node(const FormulaNode& node, FormulaBuilder& builder) {
    const ConfigObject sum = linear_combination({{1, arccoth(18, 26)}, {1, arccoth(-2, 4801)}, {1, arccoth(8, 8749)}});
    return make_composite(node, builder, "SeriesLog2Zuniga2024i", "FormulaB_SeriesLog2Zuniga2024i", sum);
}

std::unique_ptr<FormulaEvaluator> make_series_lemniscate_zuniga2023x_node(const FormulaNode& node,
                                                                         FormulaBuilder& builder) {
    const SeriesNodeCoefficients c = read_fixed(node, "SeriesLemniscateZuniga2023x", "FormulaB_SeriesLemniscateZuniga2023x");
    auto scale = build_composite(builder, tree_node("InvNthRoot", integers({4, 1043320250})));
    return make_series_value_evaluator("FormulaB_SeriesLemniscateZuniga2023x",
                                       make_lemniscate_agm_evaluator("FormulaB_LemniscateAGM", std::move(scale)), c);
}

std::unique_ptr<FormulaEvaluator> make_series_lemniscate_guillera_node(const FormulaNode& node,
                                                                      FormulaBuilder& builder) {
    // -2 varpi / 4050000^(1/8) = -2 pi / AGM(1, sqrt 2) * 4050000^(-1/8).
    const ConfigObject sum = tree_node(
        "Multiply", array({linear_combination({{-2, tree_node("Pi", params({}))}}),
                           tree_node("Reciprocal", tree_node("AGM", tree_node("Sqrt", integer(2)))),
                           tree_node("InvNthRoot", integers({8, 4050000}))}));
    return make_composite(node, builder, "SeriesLemniscateGuillera", "FormulaB_SeriesLemniscateGuillera", sum);
}

}  // namespace qmp
