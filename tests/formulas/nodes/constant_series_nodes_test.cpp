// The constant series nodes, the BBP-type and hyperdescent nodes, ArcCoth, LogMachin,
// Brent-McMillan and the built-in constants against the reference digits (or exact identities
// of them), to the last words of the precision, and their messages. The fixed series run at
// several neighbouring precisions: a sizer that stops one term early misses at some of them.
#include <string>
#include <vector>

#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

// A formula runs at p + 2 words (two guard words); its digits to compare, with room to spare.
uint64_t digits_for(uint64_t p) { return 64 * (p + 3) * 30103 / 100000 + 20; }
// The bits a single series node gets right: a few units of its last working word.
uint64_t working_bits(uint64_t p) { return 64 * (p + 2) - 6; }
// Values built from several nodes (sums, products, roots) or scaled after the division keep
// about one word less.
uint64_t composite_bits(uint64_t p) { return 64 * (p + 1) - 8; }

ExactValue reciprocal(const ExactValue& x) { return {x.den, x.num, -x.exp_words, x.negative}; }
ExactValue negated(ExactValue x) {
    x.negative = !x.negative;
    return x;
}
// a - b for two references with the same denominator and a > b.
ExactValue reference_difference(const ExactValue& a, const ExactValue& b) { return {diff(a.num, b.num), a.den, 0, false}; }

std::string fixed(const std::string& name, int power, int cp, int cq, int cd) {
    return "{ " + name + " : { Power : " + std::to_string(power) + " CoefficientP : " + std::to_string(cp) +
           " CoefficientQ : " + std::to_string(cq) + " CoefficientD : " + std::to_string(cd) + " } }";
}

struct FixedCase {
    const char* name;
    int cp, cd;
    const char* reference;
};

TEST(ConstantSeriesNodes, FixedSeriesGiveTheirConstantsToTheLastWord) {
    // The catalog's coefficients: each node then gives its constant.
    const FixedCase cases[] = {
        {"SeriesZeta3Zuniga2023vi", -1, 48, "zeta3-dec-1m.txt"},    {"SeriesZeta3Zuniga2023v", 1, 24, "zeta3-dec-1m.txt"},
        {"SeriesCatalanPilehoodShort", 1, 2, "catalan-dec-1m.txt"}, {"SeriesCatalanZuniga2023", -1, 6, "catalan-dec-1m.txt"},
        {"SeriesLog2Zuniga2024i", 1, 1, "log2-dec-1m.txt"},         {"SeriesLog2Zuniga2024ii", 1, 1, "log2-dec-1m.txt"},
    };
    FormulaHarness h;
    for (uint64_t p : {1u, 2u, 21u, 22u, 23u, 24u, 61u}) {
        for (const FixedCase& c : cases) {
            const ExactValue ref = decimal_reference(c.reference, digits_for(p));
            EXPECT_TRUE(agree(exact(h.run(fixed(c.name, 1, c.cp, 0, c.cd), p)), ref, working_bits(p))) << c.name << " p = " << p;
        }
    }
    // Power -1 is the reciprocal; CQ shifts before the power: 48 / (48 - 48 zeta(3)) = 1 / (1 - zeta(3)).
    const uint64_t p = 30;
    const ExactValue zeta3 = decimal_reference("zeta3-dec-1m.txt", digits_for(p));
    EXPECT_TRUE(agree(exact(h.run(fixed("SeriesZeta3Zuniga2023vi", -1, -1, 0, 48), p)), reciprocal(zeta3), working_bits(p)));
    const ExactValue one_minus = {diff(zeta3.den, zeta3.num), zeta3.den, 0, true};
    EXPECT_TRUE(agree(exact(h.run(fixed("SeriesZeta3Zuniga2023vi", -1, 1, 48, 48), p)), reciprocal(one_minus), working_bits(p)));
}

TEST(ConstantSeriesNodes, LemniscateSeriesAreTheCatalogSums) {
    // 1610 S 6440^(-1/4) = 2 varpi and -30 S' 162000^(-1/8) = 2 varpi: S^4 1043320250 = (2 varpi)^4
    // and S'^8 4050000 = (2 varpi)^8.
    const uint64_t p = 20;
    FormulaHarness h;
    const ExactValue varpi2 = decimal_reference("lemniscate-dec-1m.txt", digits_for(p));
    const ExactValue z = exact(h.run(fixed("SeriesLemniscateZuniga2023x", 1, 1, 0, 1), p));
    EXPECT_TRUE(agree(exact_mul(exact_pow(z, 4), exact(1043320250)), exact_pow(varpi2, 4), composite_bits(p) - 6));
    const ExactValue g = exact(h.run(fixed("SeriesLemniscateGuillera", 1, 1, 0, 1), p));
    EXPECT_TRUE(g.negative);
    EXPECT_TRUE(agree(exact_mul(exact_pow(g, 8), exact(4050000)), exact_pow(varpi2, 8), composite_bits(p) - 6));
}

// Integer polynomial products, lowest degree first, for the BBP test.
std::vector<int64_t> times(const std::vector<int64_t>& a, const std::vector<int64_t>& b) {
    std::vector<int64_t> r(a.size() + b.size() - 1, 0);
    for (size_t i = 0; i < a.size(); i++)
        for (size_t j = 0; j < b.size(); j++) r[i + j] += a[i] * b[j];
    return r;
}
std::vector<int64_t> combine(std::initializer_list<std::pair<int64_t, std::vector<int64_t>>> terms) {
    std::vector<int64_t> r(4, 0);
    for (const auto& [c, poly] : terms)
        for (size_t i = 0; i < poly.size(); i++) r[i] += c * poly[i];
    return r;
}
std::string text(const std::vector<int64_t>& c) {
    std::string s = "[";
    for (int64_t v : c) s += " " + std::to_string(v);
    return s + " ]";
}
std::string bbp(int power, int cp, int cq, int cd, bool alternating, int coef, int shift, const std::string& P,
                const std::string& Q, int grouped = 1) {
    return "{ SeriesBinaryBBP : { Power : " + std::to_string(power) + " CoefficientP : " + std::to_string(cp) +
           " CoefficientQ : " + std::to_string(cq) + " CoefficientD : " + std::to_string(cd) +
           " Alternating : " + (alternating ? "true" : "false") + " PowerCoef : " + std::to_string(coef) +
           " PowerShift : " + std::to_string(shift) + " PolynomialP : " + P + " PolynomialQ : " + Q +
           " TermsGrouped : " + std::to_string(grouped) + " } }";
}

TEST(ConstantSeriesNodes, BinaryBBPAndHyperdescent) {
    FormulaHarness h;
    for (uint64_t p : {2u, 37u}) {
        const uint64_t d = digits_for(p);
        const ExactValue pi = decimal_reference("pi-dec-1m.txt", d), log2 = decimal_reference("log2-dec-1m.txt", d);
        const ExactValue log3 = decimal_reference("log3-dec-1m.txt", d), e = decimal_reference("e-dec-1m.txt", d);
        // pi = sum 16^-k (4/(8k+1) - 2/(8k+4) - 1/(8k+5) - 1/(8k+6)).
        const std::vector<int64_t> a = {1, 8}, b = {4, 8}, c = {5, 8}, f = {6, 8};
        const std::vector<int64_t> Q = times(times(a, b), times(c, f));
        const std::vector<int64_t> P = combine({{4, times(b, times(c, f))}, {-2, times(a, times(c, f))},
                                                {-1, times(a, times(b, f))}, {-1, times(a, times(b, c))}});
        EXPECT_TRUE(agree(exact(h.run(bbp(1, 1, 0, 1, false, -4, 0, text(P), text(Q), 4), p)), pi, working_bits(p)));
        // log 2 = sum_{k>=0} 2^-(k+1) / (k+1): the power shift, also 2^62 log 2 and 2^-70 log 2
        // (a scale across word boundaries).
        EXPECT_TRUE(agree(exact(h.run(bbp(1, 1, 0, 1, false, -1, -1, "[ 1 ]", "[ 1 1 ]"), p)), log2, working_bits(p))) << p;
        EXPECT_TRUE(agree(exact(h.run(bbp(1, 1, 0, 1, false, -1, 62, "[ 1 ]", "[ 1 1 ]"), p)),
                          exact_mul(log2, {shl_bits(nat(1), 63), nat(1), 0, false}), working_bits(p))) << p;
        EXPECT_TRUE(agree(exact(h.run(bbp(1, 1, 0, 1, false, -1, -71, "[ 1 ]", "[ 1 1 ]"), p)),
                          exact_mul(log2, {nat(1), shl_bits(nat(1), 70), 0, false}), working_bits(p))) << p;
        // sum (-1)^k 2^-k / (k+1) = 2 log(3/2); with Power -1 and CD 2: 1 / log(3/2).
        const ExactValue log_three_halves = reference_difference(log3, log2);
        EXPECT_TRUE(agree(exact(h.run(bbp(-1, 1, 0, 2, true, -1, 0, "[ 1 ]", "[ 1 1 ]"), p)),
                          reciprocal(log_three_halves), working_bits(p))) << p;
        // e = 1 + sum 1/k! and 1/e = 1 + sum (-1)^k / k!.
        const std::string hyper = "{ SeriesHyperdescent : { Power : 1 CoefficientP : 1 CoefficientQ : 1 CoefficientD : 1 "
                                  "PolynomialQ : [ 0 1 ] PolynomialR : [ ";
        EXPECT_TRUE(agree(exact(h.run(hyper + "1 ] } }", p)), e, working_bits(p))) << p;
        EXPECT_TRUE(agree(exact(h.run(hyper + "-1 ] } }", p)), reciprocal(e), working_bits(p))) << p;
    }
}

TEST(ConstantSeriesNodes, ArcCothAndLogMachin) {
    FormulaHarness h;
    for (uint64_t p : {1u, 45u}) {
        const uint64_t d = digits_for(p);
        const ExactValue log2 = decimal_reference("log2-dec-1m.txt", d), log3 = decimal_reference("log3-dec-1m.txt", d);
        const ExactValue log10 = decimal_reference("log10-dec-1m.txt", d);
        // 2 arccoth(3) = log 2; -4 arccoth(2) = -2 log 3; 2 arccoth(x) = log((x+1)/(x-1)).
        EXPECT_TRUE(agree(exact(h.run("{ ArcCoth : { Coefficient : 2 x : 3 } }", p)), log2, working_bits(p)));
        EXPECT_TRUE(agree(exact(h.run("{ ArcCoth : { Coefficient : -4 x : 2 } }", p)), negated(exact_mul(log3, exact(2))),
                          working_bits(p)));
        EXPECT_TRUE(agree(exact(h.run("{ LogMachin : 10 }", p)), log10, composite_bits(p)));
        EXPECT_TRUE(agree(exact(h.run("{ LogMachin : 3 }", p)), log3, composite_bits(p)));
    }
}

std::string brent(const char* name, int64_t k) {
    return "{ LinearCombination : [ [ 1 { " + std::string(name) +
           " : { Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 n : " + std::to_string(int64_t(1) << k) +
           " } } ] [ -1 { Log2 : { Coefficient : " + std::to_string(k) + " } } ] ] }";
}

TEST(ConstantSeriesNodes, BrentMcMillanErrorsAreThoseOfTheMethod) {
    FormulaHarness h;
    const uint64_t p = 24;  // 1536 bits
    const ExactValue gamma = decimal_reference("euler-dec-1m.txt", digits_for(p));
    // n = 64: the original form errs by pi e^(-256) ~ 2^-367.7, the refined by ~ e^(-512)/8 ~ 2^-741.
    const ExactValue bm = exact(h.run(brent("SeriesEulerGammaBM", 6), p));
    EXPECT_TRUE(agree(bm, gamma, 360));
    EXPECT_FALSE(agree(bm, gamma, 375));
    const ExactValue bmr = exact(h.run(brent("SeriesEulerGammaBMR", 6), p));
    EXPECT_TRUE(agree(bmr, gamma, 735));
    EXPECT_FALSE(agree(bmr, gamma, 750));
    // n = 256 covers the precision in both forms (e^(-1024) ~ 2^-1477 refined... original at n = 512).
    EXPECT_TRUE(agree(exact(h.run(brent("SeriesEulerGammaBMR", 8), p)), gamma, 1470));
    EXPECT_TRUE(agree(exact(h.run(brent("SeriesEulerGammaBM", 9), p)), gamma, composite_bits(p)));
}

TEST(ConstantSeriesNodes, BuiltInConstants) {
    FormulaHarness h;
    const uint64_t p = 40, d = digits_for(p);
    const ExactValue pi = decimal_reference("pi-dec-1m.txt", d);
    EXPECT_TRUE(agree(exact(h.run("{ Pi : {} }", p)), pi, composite_bits(p)));
    EXPECT_TRUE(agree(exact(h.run("{ Log2 : { Coefficient : -3 } }", p)),
                      negated(exact_mul(decimal_reference("log2-dec-1m.txt", d), exact(3))), composite_bits(p)));
    EXPECT_TRUE(agree(exact(h.run("{ Log2 : {} }", p)), decimal_reference("log2-dec-1m.txt", d), composite_bits(p)));
    EXPECT_TRUE(agree(exact(h.run("{ GoldenRatio : {} }", p)), decimal_reference("golden-dec-1m.txt", d), composite_bits(p)));
    EXPECT_TRUE(agree(exact(h.run("{ Lemniscate : {} }", p)), decimal_reference("lemniscate-dec-1m.txt", d), composite_bits(p) - 6));
    EXPECT_TRUE(agree(exact(h.run("{ Zeta3 : {} }", p)), decimal_reference("zeta3-dec-1m.txt", d), composite_bits(p)));
    EXPECT_TRUE(agree(exact(h.run("{ Catalan : {} }", p)), decimal_reference("catalan-dec-1m.txt", d), composite_bits(p)));
    EXPECT_TRUE(agree(exact(h.run("{ EulerGamma : {} }", p)), decimal_reference("euler-dec-1m.txt", d), composite_bits(p) - 6));
}

TEST(ConstantSeriesNodes, Messages) {
    using IPE = InvalidParametersException;
    FormulaHarness h;
    auto bad = [&](const std::string& t) { return [&h, t] { h.compile(t); }; };
    const std::string fb = "FormulaB_SeriesBinaryBBP::FormulaB_SeriesBinaryBBP()";
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, 0, 0, "[ 1 ]", "[ 1 1 ]")), fb, "PowerCoef must be in [-1024, -1].");
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, -1025, 0, "[ 1 ]", "[ 1 1 ]")), fb, "PowerCoef must be in [-1024, -1].");
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, -1, 1024, "[ 1 ]", "[ 1 1 ]")), fb, "PowerShift must be in [-1023, 1023].");
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, -1, -1024, "[ 1 ]", "[ 1 1 ]")), fb, "PowerShift must be in [-1023, 1023].");
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, -1, 0, "[ 1 ]", "[ 1 1 ]", 0)), fb, "TermsGrouped must be between 1 and 255.");
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, -1, 0, "[ 1 ]", "[ 1 1 ]", 256)), fb, "TermsGrouped must be between 1 and 255.");
    expect_throw<IPE>(bad(bbp(1, 1, 0, 1, false, -1, 0, "[ 1 ]", "[ -7 1 ]")), fb, "Q(x) is zero at x = 7.");
    // The limits themselves are accepted.
    h.compile(bbp(1, 1, 0, 1, false, -1024, 1023, "[ 1 ]", "[ 1 1 ]", 255));
    h.compile(bbp(1, 1, 0, 1, false, -1, -1023, "[ 1 ]", "[ 1 1 ]", 1));

    const std::string fa = "FormulaB_ArcCoth::FormulaB_ArcCoth()";
    expect_throw<IPE>(bad("{ ArcCoth : { Coefficient : 1 x : 1 } }"), fa, "Argument must be greater than 1: x = 1");
    expect_throw<IPE>(bad("{ ArcCoth : { Coefficient : 1 x : -5 } }"), fa, "Argument must be greater than 1: x = -5");
    expect_throw<IPE>(bad("{ ArcCoth : { Coefficient : 1 x : 2147483648 } }"), fa,
                      "Argument is too large: x = 2147483648");
    h.compile("{ ArcCoth : { Coefficient : 1 x : 2147483647 } }");
    expect_throw<IPE>(bad("{ LogMachin : 101 }"), "LogMachinFormula::find_formula()", "Unable to find a formula.");

    const std::string fh = "FormulaB_SeriesHyperdescent::FormulaB_SeriesHyperdescent()";
    const std::string hyper = "{ SeriesHyperdescent : { Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 ";
    expect_throw<IPE>(bad(hyper + "PolynomialQ : [ 0 1 ] PolynomialR : [ 2 ] } }"), fh, "PolynomialR must be [1] or [-1].");
    expect_throw<IPE>(bad(hyper + "PolynomialQ : [ 5 ] PolynomialR : [ 1 ] } }"), fh, "Q(x) must not be constant.");
    expect_throw<IPE>(bad(hyper + "PolynomialQ : [ -3 1 ] PolynomialR : [ 1 ] } }"), fh, "Q(x) must be positive at x = 1.");

    const std::string fg = "FormulaB_SeriesEulerGammaBMR::FormulaB_SeriesEulerGammaBMR()";
    const std::string g = "{ SeriesEulerGammaBMR : { Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 n : ";
    for (const char* n : {"0", "1", "48", "1073741824"})
        expect_throw<IPE>(bad(g + n + " } }"), fg, "n must be a power of two in [2, 2^29].");

    const std::string fz = "FormulaB_SeriesZeta3Zuniga2023vi::FormulaB_SeriesZeta3Zuniga2023vi()";
    expect_throw<IPE>(bad(fixed("SeriesZeta3Zuniga2023vi", 1, 0, 0, 48)), fz, "CoefficientP cannot be zero.");
    expect_throw<IPE>(bad(fixed("SeriesZeta3Zuniga2023vi", 1, 1, 0, 0)), fz, "CoefficientD must be positive.");
    expect_throw<IPE>(bad(fixed("SeriesZeta3Zuniga2023vi", 2, 1, 0, 1)), fz, "Power must be 1 or -1.");
    const std::string fl = "FormulaB_SeriesLemniscateGuillera::FormulaB_SeriesLemniscateGuillera()";
    expect_throw<IPE>(bad(fixed("SeriesLemniscateGuillera", 1, 0, 0, 1)), fl, "CoefficientP cannot be zero.");
}

}  // namespace
}  // namespace qmp::test
