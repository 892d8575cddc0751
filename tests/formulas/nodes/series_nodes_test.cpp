// The series nodes against the reference digits: SeriesHypergeometric for e = 1 + sum 1/k! and
// log 2 = sum 1/(k 2^k) (also through Power -1 and the coefficients), SeriesETaylor for e in
// both forms, the pi series for pi sqrt(10005) and pi sqrt(8); and the nodes' messages.
#include <string>

#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

std::string series(int power, int cp, int cq, int cd, const std::string& P, const std::string& Q, const std::string& R) {
    return "{ SeriesHypergeometric : { Power : " + std::to_string(power) + " CoefficientP : " + std::to_string(cp) +
           " CoefficientQ : " + std::to_string(cq) + " CoefficientD : " + std::to_string(cd) + " PolynomialP : " + P +
           " PolynomialQ : " + Q + " PolynomialR : " + R + " TermsGrouped : 1 } }";
}

TEST(SeriesNodes, HypergeometricAgainstReferences) {
    for (uint64_t p : {3u, 80u}) {
        const uint64_t digits = 64 * p * 30103 / 100000 + 8;
        FormulaHarness h;
        const ExactValue e = decimal_reference("e-dec-1m.txt", digits), log2 = decimal_reference("log2-dec-1m.txt", digits);
        EXPECT_TRUE(agree(exact(h.run(series(1, 1, 1, 1, "[ 1 ]", "[ 0 1 ]", "[ 1 ]"), p)), e, 64 * p));
        EXPECT_EQ(h.warnings, std::vector<std::string>{"Warning: |R(x)| = 1. Consider using SeriesHyperdescent instead."});
        const std::string P = "[ 1 ]", Q = "[ 0 2 ]", R = "[ 0 1 ]";
        EXPECT_TRUE(agree(exact(h.run(series(1, 1, 0, 1, P, Q, R), p)), log2, 64 * p));
        // 3 / (5 - 2 log 2) with Power -1: CD / (CQ + CP S).
        const ExactValue v = exact(h.run(series(-1, -2, 5, 3, P, Q, R), p));
        const ExactValue check = exact_mul(v, {diff(mul(nat(5), log2.den), mul(nat(2), log2.num)), log2.den, 0, false});
        EXPECT_TRUE(agree(check, exact(3), 64 * p - 2)) << "p = " << p;
    }
}

TEST(SeriesNodes, NamedSeriesAgainstReferences) {
    for (uint64_t p : {2u, 70u}) {
        const uint64_t digits = 64 * p * 30103 / 100000 + 8;
        FormulaHarness h;
        const ExactValue e = decimal_reference("e-dec-1m.txt", digits), pi = decimal_reference("pi-dec-1m.txt", digits);
        const std::string taylor = "{ SeriesETaylor : { Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 Alternating : false } }";
        const std::string taylor_inv = "{ SeriesETaylor : { Power : -1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 Alternating : true } }";
        EXPECT_TRUE(agree(exact(h.run(taylor, p)), e, 64 * p));
        EXPECT_TRUE(agree(exact(h.run(taylor_inv, p)), e, 64 * p));
        // pi sqrt(10005) and pi sqrt(8): their squares against 10005 pi^2 and 8 pi^2.
        const ExactValue chudnovsky = exact(h.run(
            "{ SeriesPiChudnovsky : { Power : -1 CoefficientP : 1 CoefficientQ : 13591409 CoefficientD : 4270934400 ReducedMemory : false } }", p));
        EXPECT_TRUE(agree(exact_pow(chudnovsky, 2), exact_mul(exact_pow(pi, 2), exact(10005)), 64 * p - 2)) << p;
        const ExactValue ramanujan = exact(h.run(
            "{ SeriesPiRamanujan : { Power : -1 CoefficientP : 1 CoefficientQ : 1103 CoefficientD : 9801 ReducedMemory : true } }", p));
        EXPECT_TRUE(agree(exact_pow(ramanujan, 2), exact_mul(exact_pow(pi, 2), exact(8)), 64 * p - 2)) << p;
    }
}

TEST(SeriesNodes, HypergeometricMessages) {
    using IPE = InvalidParametersException;
    const std::string f = "FormulaB_SeriesHypergeometric::FormulaB_SeriesHypergeometric()";
    FormulaHarness h;
    auto bad = [&](const std::string& text) { return [&h, text] { h.compile(text); }; };
    const std::string P = "[ 1 ]", Q = "[ 0 2 ]", R = "[ 0 1 ]";
    expect_throw<IPE>(bad(series(1, 0, 0, 1, P, Q, R)), f, "CoefficientP cannot be zero.");
    expect_throw<IPE>(bad(series(1, 1, 0, 0, P, Q, R)), f, "CoefficientD must be positive.");
    expect_throw<IPE>(bad(series(1, 1, 0, -3, P, Q, R)), f, "CoefficientD must be positive.");
    expect_throw<IPE>(bad(series(2, 1, 0, 1, P, Q, R)), f, "Power must be 1 or -1.");
    std::string long_poly = "[";
    for (int i = 0; i < 64; i++) long_poly += " 1";
    expect_throw<IPE>(bad(series(1, 1, 0, 1, P, long_poly + " ]", R)), f, "Polynomial degree limit is 62.");
    expect_throw<IPE>(bad(series(1, 1, 0, 1, P, "[ 0 1 ]", "[ 0 2 ]")), f, "Series does not converge geometrically.");
    expect_throw<IPE>(bad("{ SeriesHypergeometric : { Power : 1 } }"), f, "Invalid Key: CoefficientP");
    expect_throw<IPE>(bad(series(1, 1, 0, 1, P, "[ -4 2 ]", R)), f, "Q(x) is zero at x = 2.");
    expect_throw<IPE>(bad(series(1, 1, 0, 1, P, "[ -6247550 1 -1 0 1 ]", R)), f, "Q(x) is zero at x = 50.");
    const std::string chud = "FormulaB_SeriesPiChudnovsky::FormulaB_SeriesPiChudnovsky()";
    expect_throw<IPE>(bad("{ SeriesPiChudnovsky : { Power : -1 CoefficientP : 0 CoefficientQ : 1 CoefficientD : 1 ReducedMemory : false } }"),
                      chud, "CoefficientP cannot be zero.");
    expect_throw<IPE>(bad("{ SeriesPiChudnovsky : { Power : -1 CoefficientP : 1 CoefficientQ : 1 CoefficientD : -1 ReducedMemory : false } }"),
                      chud, "CoefficientD must be positive.");
    expect_throw<ParseException>(
        bad("{ SeriesPiRamanujan : { Power : -1 CoefficientP : 1 CoefficientQ : 1 CoefficientD : 1 ReducedMemory : 1 } }"),
        "FormulaB_SeriesPiRamanujan::FormulaB_SeriesPiRamanujan()", "ReducedMemory: Expected Boolean, got Integer.");
    expect_throw<IPE>(bad("{ SeriesETaylor : { Power : 0 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 Alternating : true } }"),
                      "FormulaB_SeriesETaylor::FormulaB_SeriesETaylor()", "Power must be 1 or -1.");

    std::string q20 = "[ 1", r20 = "[ 0";
    for (int i = 0; i < 20; i++) q20 += " 3", r20 += " 1";
    h.compile(series(1, 1, 0, 1, P, q20 + " ]", r20 + " ]"));
    const std::vector<std::string> warnings = {"Warning: Q(x) is of very high degree. May take a while to process...",
                                               "Warning: R(x) is of very high degree. May take a while to process..."};
    EXPECT_EQ(h.warnings, warnings);
}

}  // namespace
}  // namespace qmp::test
