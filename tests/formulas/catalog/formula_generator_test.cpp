// The catalog's formula texts: each parses as .cfg and equals the tree written out by hand here
// from the algorithm table; every generator message. (Their values, for both powers, are
// checked through the formula language in tests/formulas/catalog_evaluation_test.cpp.)
#include <gtest/gtest.h>

#include <string>

#include "formulas/catalog/formula_generator.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv {
namespace {

using qmp::ConfigObject;
using qmp::InvalidParametersException;
using qmp::test::expect_throw;

FormulaRequest request(std::string constant, std::string algorithm, int power = 1, int64_t argument = 0, uint64_t digits = 0) {
    FormulaRequest r;
    r.constant = std::move(constant);
    r.algorithm = std::move(algorithm);
    r.power = power;
    r.argument = argument;
    r.digits = digits;
    return r;
}

ConfigObject parsed(const FormulaRequest& request) { return qmp::parse_cfg(generate_formula(request).text); }

void expect_tree(const FormulaRequest& request, const char* expected_cfg) {
    SCOPED_TRACE(request.constant + " " + request.algorithm + " power " + std::to_string(request.power));
    const ConfigObject expected = qmp::parse_cfg(expected_cfg);
    EXPECT_TRUE(parsed(request) == expected) << "got:\n" << generate_formula(request).text << "expected:\n"
                                             << qmp::write_cfg(expected, false);
}

TEST(FormulaGenerator, TreesMatchTheAlgorithmTable) {
    expect_tree(request("pi", "chudnovsky"), R"({CheckedMultiply : {ReducedMemory : false
        Input0 : {SeriesPiChudnovsky : {Power : -1 CoefficientP : 1 CoefficientQ : 13591409 CoefficientD : 4270934400}}
        Input1 : {Invsqrt : 10005}}})");
    expect_tree(request("pi", "ramanujan-reduced"), R"({CheckedMultiply : {ReducedMemory : true
        Input0 : {SeriesPiRamanujan : {Power : -1 CoefficientP : 1 CoefficientQ : 1103 CoefficientD : 9801 ReducedMemory : true}}
        Input1 : {Invsqrt : 8}}})");
    expect_tree(request("lemniscate", "zuniga2023x"), R"({Multiply : [
        {SeriesLemniscateZuniga2023x : {Power : 1 CoefficientP : 1610 CoefficientQ : 0 CoefficientD : 1}}
        {InvNthRoot : [4 6440]}]})");
    expect_tree(request("lemniscate", "zuniga2023x", -1), R"({Multiply : [
        {SeriesLemniscateZuniga2023x : {Power : -1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1}}
        {InvNthRoot : [4 1043320250]}]})");
    expect_tree(request("lemniscate", "guillera"), R"({Multiply : [
        {SeriesLemniscateGuillera : {Power : 1 CoefficientP : -30 CoefficientQ : 0 CoefficientD : 1}}
        {InvNthRoot : [8 162000]}]})");
    expect_tree(request("lemniscate", "guillera", -1), R"({Multiply : [
        {SeriesLemniscateGuillera : {Power : -1 CoefficientP : -1 CoefficientQ : 0 CoefficientD : 1}}
        {InvNthRoot : [8 4050000]}]})");
    expect_tree(request("catalan", "pilehrood-short", -1),
                "{SeriesCatalanPilehoodShort : {Power : -1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 2}}");
    expect_tree(request("zeta3", "zuniga2023vi", -1),
                "{SeriesZeta3Zuniga2023vi : {Power : -1 CoefficientP : -1 CoefficientQ : 0 CoefficientD : 48}}");
    expect_tree(request("zeta3", "zuniga2023v"),
                "{SeriesZeta3Zuniga2023v : {Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 24}}");
    expect_tree(request("catalan", "zuniga2023"),
                "{SeriesCatalanZuniga2023 : {Power : 1 CoefficientP : -1 CoefficientQ : 0 CoefficientD : 6}}");
    expect_tree(request("log", "zuniga2024ii", 1, 2),
                "{SeriesLog2Zuniga2024ii : {Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1}}");
    // The published four-term formula for log 2.
    expect_tree(request("log", "machin-primary", 1, 2), R"({LinearCombination : [
        [1 {ArcCoth : {Coefficient : 62 x : 8749}}] [1 {ArcCoth : {Coefficient : -38 x : 4801}}]
        [1 {ArcCoth : {Coefficient : 54 x : 449}}] [1 {ArcCoth : {Coefficient : 144 x : 251}}]]})");
    expect_tree(request("log", "machin-secondary", 1, 101), R"({Scope : {
        Locals : [{Pi : {Pi : {}}} {Log2 : {Log2 : {}}}]
        Formula : {Log-AGM : {Pi : "Pi" Log2 : "Log2" Argument : {Integer : 101}}}}})");
    expect_tree(request("sqrt", "", 1, 2), "{Multiply : [{Integer : 2} {Invsqrt : 2}]}");
    expect_tree(request("sqrt", "", -1, 7), "{Invsqrt : 7}");
    // 10^4 digits refined: n >= (10^4 + 16) ln 10 / 8 = 2882.9, so n = 2^12.
    expect_tree(request("gamma", "brent-refined", 1, 0, 10000), R"({LinearCombination : [
        [1 {SeriesEulerGammaBMR : {Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 n : 4096}}]
        [-1 {Log2 : {Coefficient : 12}}]]})");
    expect_tree(request("brent", "brent-original", -1, 30, 100), R"({Reciprocal : {LinearCombination : [
        [1 {SeriesEulerGammaBM : {Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 n : 1073741824}}]
        [-1 {Log2 : {Coefficient : 30}}]]}})");
}

TEST(FormulaGenerator, LabelsAndDefaults) {
    const std::pair<FormulaRequest, const char*> labels[] = {
        {request("pi", ""), "Pi - Chudnovsky (1988):"},
        {request("pi", "ramanujan"), "Pi - Ramanujan (1910):"},
        {request("e", "exp(-1)"), "Taylor Series of exp(-1):"},
        {request("lemniscate", ""), "Lemniscate - Zuniga (2023-x)"},
        {request("lemniscate", "guillera"), "Lemniscate - Guillera"},
        {request("catalan", ""), "Catalan - Pilehrood (2010-short):"},
        {request("catalan", "zuniga2023"), "Catalan - Zuniga (2023):"},
        {request("log", "", 1, 2), "Log(2) - Zuniga (2024-iii):"},
        {request("log", "zuniga2024ii", 1, 3), "Log(3) - Zuniga (2024-ii):"},
        {request("log", "", 1, 10), "Log(10) - Zuniga (2025):"},
        {request("gamma", "", 1, 0, 10000), "EulerGamma - Brent-McMillan (refined): (n = 2^12)"},
        {request("gamma", "brent-original", 1, 0, 10000), "EulerGamma - Brent-McMillan: (n = 2^13)"},
    };
    for (const auto& [r, label] : labels) EXPECT_EQ(generate_formula(r).label, label);
    EXPECT_EQ(generate_formula(request("log", "", 1, 7)).label, "Log( 7 ) - Machin Formula:");
    EXPECT_EQ(generate_formula(request("log", "machin-secondary", 1, 7)).details.rfind("Secondary Machin-like Formula (", 0), 0u);
}

TEST(FormulaGenerator, Messages) {
    const std::string bad_power = "Power must be 1 or -1.";
    expect_throw<InvalidParametersException>([] { pi_formula("gauss", 1, false); }, "Catalog::pi_formula()",
                                             "Algorithm must be \"chudnovsky\" or \"ramanujan\".");
    expect_throw<InvalidParametersException>([] { pi_formula("chudnovsky", 2, false); }, "Catalog::pi_formula()", bad_power);
    expect_throw<InvalidParametersException>([] { catalan_formula("x", 1); }, "Catalog::catalan_formula()",
                                             "Algorithm must be \"pilehrood-short\" or \"zuniga2023\".");
    expect_throw<InvalidParametersException>([] { catalan_formula("zuniga2023", 0); }, "Catalog::catalan_formula()", bad_power);
    expect_throw<InvalidParametersException>([] { lemniscate_formula("x", 1); }, "Catalog::lemniscate_formula()",
                                             "Algorithm must be \"zuniga2023x\", or \"guillera\".");
    expect_throw<InvalidParametersException>([] { log_formula("zuniga2025", 2, 1); }, "Catalog::log_formula()",
                                             "Algorithm must be \"zuniga2024ii\" or \"zuniga2024iii\".");
    expect_throw<InvalidParametersException>([] { log_formula("machin-primary", 0, 1); }, "Catalog::log_formula()",
                                             "Argument must be greater than 0.");
    expect_throw<InvalidParametersException>([] { euler_gamma_formula("brent", 100, 0, 1); }, "Catalog::euler_gamma_formula()",
                                             "Algorithm must be \"brent-refined\" or \"brent-original\".");
    expect_throw<InvalidParametersException>([] { euler_gamma_formula("brent-refined", 100, 0, -2); },
                                             "Catalog::euler_gamma_formula()", bad_power);
    expect_throw<InvalidParametersException>([] { generate_formula(request("brent", "brent-refined", 1, 0, 100)); },
                                             "Catalog::euler_gamma_formula()", "Argument must be greater than 0.");
    // 10^6 digits refined need n >= 287,833, i.e. k = 19; k = 18 is too small.
    expect_throw<InvalidParametersException>([] { generate_formula(request("brent", "brent-refined", 1, 18, 1000000)); },
                                             "Catalog::euler_gamma_formula()",
                                             "The current parameter is too small to meet the target precision.");
    EXPECT_NO_THROW(generate_formula(request("brent", "brent-refined", 1, 19, 1000000)));
    expect_throw<InvalidParametersException>([] { generate_formula(request("sqrt", "newton", 1, 0)); }, "Catalog::sqrt_formula()",
                                             "Argument must be greater than 0.");
    expect_throw<InvalidParametersException>([] { zeta3_formula("zuniga2023", 1); }, "Catalog::zeta3_formula()",
                                             "Algorithm must be \"zuniga2023vi\" or \"zuniga2023v\".");
    expect_throw<InvalidParametersException>([] { e_formula("exp(2)", 1); }, "Catalog::e_formula()",
                                             "Algorithm must be \"exp(1)\" or \"exp(-1)\".");
    expect_throw<InvalidParametersException>([] { generate_formula(request("pie", "")); }, "ConstantTable::find()", "Invalid constant token.");
    expect_throw<InvalidParametersException>([] { generate_formula(request("pi", "machin")); }, "AlgorithmTable::find()", "Invalid Algorithm: machin");
}

}  // namespace
}  // namespace qv
