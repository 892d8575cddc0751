// Sqrt, Invsqrt, InvNthRoot and AGM: powers of the results against the exact arguments,
// sqrt(2), the golden ratio (5 Invsqrt(5) + 1)/2 and Gauss's constant 1/AGM(1, sqrt 2) =
// 2 lemniscate / 2 pi against the reference digits, and the messages of the root nodes.
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "qmp/parallel/parallel_framework.h"
#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

TEST(RootNodes, PowersOfRootsGiveTheArgument) {
    struct Case {
        const char* text;
        uint64_t power;  // value^power = argument
        ExactValue argument;
    };
    const Case cases[] = {
        {"{ Sqrt : { Divide : [ 10 3 ] } }", 2, exact(10, 3)},
        {"{ Sqrt : { Power : [ 3 99 ] } }", 2, {pow(nat(3), 99), nat(1), 0, false}},
        {"{ Invsqrt : 3 }", 2, exact(1, 3)},
        {"{ Invsqrt : 9223372036854775783 }", 2, exact(1, 9223372036854775783)},
        {"{ Invsqrt : { Divide : [ 2 7 ] } }", 2, exact(7, 2)},
        {"{ InvNthRoot : [ 3 { Divide : [ 5 3 ] } ] }", 3, exact(3, 5)},
        {"{ InvNthRoot : [ 12 { Integer : 1000 } ] }", 12, exact(1, 1000)},
        {"{ InvNthRoot : [ 7 { Shift : [ 3 -900 ] } ] }", 7, {shl_bits(nat(1), 900), nat(3), 0, false}},
    };
    for (uint64_t p : {2u, 12u, 150u}) {
        FormulaHarness h;
        for (const Case& c : cases) {
            SCOPED_TRACE(c.text);
            const FormulaFloat v = h.run(c.text, p);
            EXPECT_TRUE(agree(exact_pow(exact(v), c.power), c.argument, 64 * p - 4)) << "p = " << p;
        }
    }
}

TEST(RootNodes, ReferenceConstants) {
    const uint64_t p = 60, digits = 64 * p * 30103 / 100000 + 8;  // 2^(-64 p) ~ 10^(-1156)
    FormulaHarness h;
    EXPECT_TRUE(agree(exact(h.run("{ Sqrt : 2 }", p)), decimal_reference("sqrt2-dec-1m.txt", digits), 64 * p));
    const FormulaFloat phi = h.run("{ Shift : [ { LinearCombination : [ [ 5 { Invsqrt : 5 } ] [ 1 1 ] ] } -1 ] }", p);
    EXPECT_TRUE(agree(exact(phi), decimal_reference("golden-dec-1m.txt", digits), 64 * p));
    // AGM(1, sqrt 2) * 2 varpi = 2 pi (the reference file holds 2 varpi = 5.244...).
    const ExactValue m = exact(h.run("{ AGM : { Sqrt : 2 } }", p));  // copied: the next run reuses the memory
    const ExactValue product = exact_mul(m, decimal_reference("lemniscate-dec-1m.txt", digits));
    EXPECT_TRUE(agree(product, exact_mul(decimal_reference("pi-dec-1m.txt", digits), exact(2)), 64 * p - 8));
    const FormulaFloat m2 = h.run("{ AGM : [ { Multiply : [ 3 { Sqrt : 2 } ] } 3 ] }", p);  // AGM(3 sqrt 2, 3) = 3 AGM(sqrt 2, 1)
    EXPECT_TRUE(agree(exact(m2), exact_mul(m, exact(3)), 64 * p - 8));
}

// The same formulas with products and Newton steps split over two worker tasks.
TEST(RootNodes, ParallelRunsMatchReferences) {
    qmp::ConfigObject settings = find_parallel_framework("pushpool").default_config();
    settings.get("WorkerThreads", "test") = ConfigObject::make_integer(2);
    std::unique_ptr<ParallelFramework> framework = make_parallel_framework(settings);
    FormulaHarness h;
    h.context.parallelizer = framework.get();
    h.context.tds = 2;
    const uint64_t p = 1200, digits = 64 * p * 30103 / 100000 + 8;
    const std::string phi = "{ Shift : [ { LinearCombination : [ [ 5 { Invsqrt : 5 } ] [ 1 1 ] ] } -1 ] }";
    EXPECT_TRUE(agree(exact(h.run(phi, p)), decimal_reference("golden-dec-1m.txt", digits), 64 * p));
    const std::string e = "{ SeriesETaylor : { Power : 1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 Alternating : false } }";
    const ExactValue sqrt2 = decimal_reference("sqrt2-dec-1m.txt", digits);
    const ExactValue e_over_sqrt2 = exact_mul(decimal_reference("e-dec-1m.txt", digits), {sqrt2.den, sqrt2.num, 0, false});
    EXPECT_TRUE(agree(exact(h.run("{ Divide : [ " + e + " { Sqrt : 2 } ] }", p)), e_over_sqrt2, 64 * p - 4));
}

// Large sizes (FFT products): the golden ratio at two precisions agrees on the common prefix, and
// its square is itself plus one (phi^2 = phi + 1) to the working precision.
TEST(RootNodes, GoldenRatioLargeLong) {
    if (std::getenv("QMP_TEST_LONG") == nullptr) GTEST_SKIP() << "QMP_TEST_LONG not set";
    const std::string phi = "{ Shift : [ { LinearCombination : [ [ 5 { Invsqrt : 5 } ] [ 1 1 ] ] } -1 ] }";
    const uint64_t p = 200000;
    FormulaHarness h;
    const FormulaFloat big = h.run(phi, p);
    const std::vector<uint64_t> top_words(big.T + big.L - p / 2, big.T + big.L);
    FormulaHarness h2;
    const FormulaFloat small = h2.run(phi, p / 2 + 3);
    int64_t differing = 0;
    for (uint64_t i = 0; i + 2 < p / 2; i++) differing += small.T[small.L - 1 - i] != top_words[p / 2 - 1 - i];
    EXPECT_LE(differing, 1) << "at most the last compared word differs by rounding";
    const FormulaFloat rest = h.run("{ LinearCombination : [ [ 1 { Square : " + phi + " } ] [ -1 " + phi + " ] [ -1 1 ] ] }", p);
    EXPECT_TRUE(rest.L == 0 || rest.top() <= 2 - int64_t(p)) << "phi^2 - phi - 1 at word " << rest.top();
}

TEST(RootNodes, Messages) {
    using IPE = InvalidParametersException;
    FormulaHarness h;
    auto bad = [&](const std::string& text) { return [&h, text] { h.compile(text); }; };
    const std::string word = "FormulaB_InvsqrtWord::FormulaB_InvsqrtWord()";
    expect_throw<IPE>(bad("{ Invsqrt : 0 }"), word, "Argument is invalid: 0");
    expect_throw<IPE>(bad("{ Invsqrt : -7 }"), word, "Argument is invalid: -7");
    expect_throw<IPE>(bad("{ Invsqrt : 144 }"), word, "Argument is a perfect square: 144");
    expect_throw<IPE>(bad("{ Invsqrt : { Integer : 1 } }"), word, "Argument is a perfect square: 1");
    const std::string nth = "FormulaB_InvNthRoot::FormulaB_InvNthRoot()";
    expect_throw<IPE>(bad("{ InvNthRoot : [ 1 5 ] }"), nth, "Degree must be greater than 1.");
    expect_throw<IPE>(bad("{ InvNthRoot : [ -2 5 ] }"), nth, "Degree must be greater than 1.");
    expect_throw<IPE>(bad("{ AGM : [ 1 2 3 ] }"), "FormulaB_AGM::FormulaB_AGM()", "Set must have exactly 2 terms.");
    expect_throw<IPE>(bad("{ AGM : [ 1 ] }"), "FormulaB_AGM::FormulaB_AGM()", "Set must have exactly 2 terms.");
    // Run-time failures of bad values.
    EXPECT_THROW(h.run("{ Sqrt : -2 }", 2), IPE);
    EXPECT_THROW(h.run("{ Invsqrt : { Divide : [ -1 3 ] } }", 2), IPE);
    EXPECT_THROW(h.run("{ AGM : [ 1 -2 ] }", 2), IPE);
    EXPECT_THROW(h.run("{ InvNthRoot : [ 3 -5 ] }", 2), IPE);
}

}  // namespace
}  // namespace qmp::test
