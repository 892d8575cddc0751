// Log-AGM, Log, Exp, real powers, the hyperbolic functions and their inverses, and Gamma,
// against the reference digits and exact rationals: the logarithms of 2, 3 and 10, e and its
// powers, the hyperbolic functions of 1 as rational functions of e, inverse functions at points
// where they equal ln 2, round trips, Gamma(3/2)^2 = pi/4, Gamma(5/4) through the lemniscate
// constant; and every message of these nodes.
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

const std::string kPi =
    "{ Multiply : [ { SeriesPiChudnovsky : { Power : -1 CoefficientP : 1 CoefficientQ : 13591409 "
    "CoefficientD : 4270934400 } } { Invsqrt : 10005 } ] }";

// a + b for exact values of any sign.
ExactValue exact_add(const ExactValue& a, const ExactValue& b) {
    const int64_t e = std::min(a.exp_words, b.exp_words);
    const Nat A = shl_bits(mul(a.num, b.den), uint64_t(a.exp_words - e) * 64);
    const Nat B = shl_bits(mul(b.num, a.den), uint64_t(b.exp_words - e) * 64);
    ExactValue r{{}, mul(a.den, b.den), e, false};
    if (a.negative == b.negative) {
        r.num = add(A, B);
        r.negative = a.negative;
    } else {
        r.num = diff(A, B);
        r.negative = cmp(A, B) >= 0 ? a.negative : b.negative;
    }
    return r;
}

// Fraction digits of a reference that cover p words with a margin.
uint64_t digits_for(uint64_t p) { return 64 * p * 30103 / 100000 + 20; }

TEST(FunctionNodes, LogarithmsMatchTheReferenceDigits) {
    const std::string log2_agm = "{ Log-AGM : { Pi : " + kPi + " Argument : 2 } }";
    struct Case {
        std::string text;
        const char* reference;
        int64_t num, den;  // value * den = reference * num
    };
    const std::vector<Case> cases = {
        {log2_agm, "log2-dec-1m.txt", 1, 1},
        {"{ Log : 3 }", "log3-dec-1m.txt", 1, 1},
        {"{ Log : 10 }", "log10-dec-1m.txt", 1, 1},
        {"{ Log : { x : { Shift : [ 1 -10 ] } } }", "log2-dec-1m.txt", -10, 1},
        // Shared pi and ln 2 from an enclosing scope; ln(10^40) = 40 ln 10.
        {"{ Scope : { Locals : [ { P : " + kPi + " } { L : " + log2_agm +
             " } ] Formula : { Log-AGM : { Pi : \"P\" Log2 : \"L\" Argument : { Power : [ 10 40 ] } } } } }",
         "log10-dec-1m.txt", 40, 1},
        {"{ Log : { Sqrt : 3 } }", "log3-dec-1m.txt", 1, 2},
    };
    for (uint64_t p : {3u, 40u}) {
        FormulaHarness h;
        for (const Case& c : cases) {
            SCOPED_TRACE(c.text);
            const FormulaFloat v = h.run(c.text, p);
            const ExactValue ref = exact_mul(decimal_reference(c.reference, digits_for(p)), exact(c.num));
            EXPECT_TRUE(agree(exact_mul(exact(v), exact(c.den)), ref, 64 * p - 16)) << "p = " << p;
        }
    }
}

TEST(FunctionNodes, ExpMatchesPowersOfE) {
    struct Case {
        const char* text;
        uint64_t power;       // value^power = e^(sign * e_power)
        int64_t e_power;
    };
    const Case cases[] = {
        {"{ Exp : 1 }", 1, 1},
        {"{ Exp : -1 }", 1, -1},
        {"{ Exp : { Divide : [ 1 3 ] } }", 3, 1},
        {"{ Exp : { Divide : [ -5 7 ] } }", 7, -5},
        {"{ Exp : 200 }", 1, 200},
        {"{ Exp : { Shift : [ 1 -200 ] } }", 0, 0},  // e^(2^-200) agrees with 1 + 2^-200
    };
    for (uint64_t p : {2u, 30u}) {
        FormulaHarness h;
        const ExactValue e = decimal_reference("e-dec-1m.txt", digits_for(p));
        for (const Case& c : cases) {
            SCOPED_TRACE(c.text);
            const FormulaFloat v = h.run(c.text, p);
            if (c.power == 0) {
                const ExactValue one_plus = exact_add(exact(1), {nat(1), shl_bits(nat(1), 200), 0, false});
                EXPECT_TRUE(agree(exact(v), one_plus, std::min<uint64_t>(64 * p - 8, 390)));
                continue;
            }
            ExactValue lhs = exact_pow(exact(v), c.power);
            ExactValue rhs = exact_pow(e, uint64_t(c.e_power < 0 ? -c.e_power : c.e_power));
            if (c.e_power < 0) std::swap(rhs.num, rhs.den);
            EXPECT_TRUE(agree(lhs, rhs, 64 * p - 24)) << "p = " << p;
        }
    }
}

TEST(FunctionNodes, ExpAndLogInvertEachOther) {
    FormulaHarness h;
    const uint64_t p = 25;
    // log(e) = 1 with e from its series; exp(log(7/3)) = 7/3; real powers.
    const FormulaFloat one = h.run(
        "{ Log : { x : { SeriesETaylor : { Power : -1 CoefficientP : 1 CoefficientQ : 0 CoefficientD : 1 "
        "Alternating : true } } } }",
        p);
    EXPECT_TRUE(agree(exact(one), exact(1), 64 * p - 16));
    const FormulaFloat r = h.run("{ Exp : { x : { Log : { x : { Divide : [ 7 3 ] } } } } }", p);
    EXPECT_TRUE(agree(exact(r), exact(7, 3), 64 * p - 16));
    const FormulaFloat cube_root = h.run("{ Power : [ 3 { Divide : [ 1 3 ] } ] }", p);
    EXPECT_TRUE(agree(exact_pow(exact(cube_root), 3), exact(3), 64 * p - 16));
    const FormulaFloat root2 = h.run("{ Power : [ 2 { Shift : [ 1 -1 ] } ] }", p);
    EXPECT_TRUE(agree(exact(root2), decimal_reference("sqrt2-dec-1m.txt", digits_for(p)), 64 * p - 16));
    // (2^sqrt2)^sqrt2 = 4: an irrational exponent, twice.
    const FormulaFloat four = h.run("{ Power : [ { Power : [ 2 { Sqrt : 2 } ] } { Sqrt : 2 } ] }", p);
    EXPECT_TRUE(agree(exact(four), exact(4), 64 * p - 16));
    const FormulaFloat inverse = h.run("{ Power : [ { Shift : [ 5 -1 ] } { Shift : [ -3 -1 ] } ] }", p);
    EXPECT_TRUE(agree(exact_pow(exact(inverse), 2), exact(8, 125), 64 * p - 16));
}

TEST(FunctionNodes, HyperbolicFunctionsOfOneAreRationalInE) {
    const uint64_t p = 20;
    FormulaHarness h;
    const ExactValue e = decimal_reference("e-dec-1m.txt", digits_for(p));
    const ExactValue e2 = exact_mul(e, e);
    const ExactValue e2_plus = exact_add(e2, exact(1)), e2_minus = exact_add(e2, exact(-1));
    const ExactValue two_e = exact_mul(e, exact(2));
    struct Case {
        const char* text;
        ExactValue factor, product;  // value * factor = product
    };
    const Case cases[] = {
        {"{ Sinh : 1 }", two_e, e2_minus}, {"{ Cosh : 1 }", two_e, e2_plus},  {"{ Tanh : 1 }", e2_plus, e2_minus},
        {"{ Coth : 1 }", e2_minus, e2_plus}, {"{ Sech : 1 }", e2_plus, two_e}, {"{ Csch : 1 }", e2_minus, two_e},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const FormulaFloat v = h.run(c.text, p);
        EXPECT_TRUE(agree(exact_mul(exact(v), c.factor), c.product, 64 * p - 24));
    }
    // cosh^2 - sinh^2 = 1 at a negative rational point; sinh is odd.
    const ExactValue s = exact(h.run("{ Sinh : { Divide : [ -2 7 ] } }", p));
    const ExactValue c = exact(h.run("{ Cosh : { Divide : [ -2 7 ] } }", p));
    EXPECT_TRUE(s.negative);
    ExactValue s2 = exact_mul(s, s);
    s2.negative = true;
    EXPECT_TRUE(agree(exact_add(exact_mul(c, c), s2), exact(1), 64 * p - 24));
}

TEST(FunctionNodes, InverseFunctionsGiveLogTwoAndInvertTheirFunctions) {
    const uint64_t p = 20;
    FormulaHarness h;
    FormulaFactoryRegistry registry;
    register_builtin_nodes(registry);
    registry.add("ArcCothOfNode", make_arccoth_function_node);
    const ExactValue log2 = decimal_reference("log2-dec-1m.txt", digits_for(p));
    // Each is ln 2 exactly: arcsinh(3/4), arccosh(5/4), 2 arctanh(1/3), 2 arccoth(3),
    // arcsech(4/5), arccsch(4/3).
    struct Case {
        const char* text;
        int64_t scale;
    };
    const Case cases[] = {
        {"{ ArcSinh : { Shift : [ 3 -2 ] } }", 1}, {"{ ArcCosh : { Shift : [ 5 -2 ] } }", 1},
        {"{ ArcTanh : { Divide : [ 1 3 ] } }", 2}, {"{ ArcCothOfNode : 3 }", 2},
        {"{ ArcSech : { Divide : [ 4 5 ] } }", 1}, {"{ ArcCsch : { Divide : [ 4 3 ] } }", 1},
        {"{ ArcCothOfNode : -3 }", -2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        FormulaProgram program(parse_cfg(c.text), registry);
        std::vector<uint64_t> memory(program.plan(p, h.context) / 8 + 16);
        auto* aligned = reinterpret_cast<uint64_t*>((reinterpret_cast<uintptr_t>(memory.data()) + 127) & ~uintptr_t(127));
        const FormulaFloat v = program.evaluate(AlignedBufferC(aligned, program.required_bytes()), h.context);
        ExactValue ref = log2;
        ref.negative = c.scale < 0;
        EXPECT_TRUE(agree(exact_mul(exact(v), exact(c.scale < 0 ? -c.scale : c.scale)), ref, 64 * p - 24));
    }
    const std::pair<const char*, ExactValue> round_trips[] = {
        {"{ ArcSinh : { Sinh : { Divide : [ 1 3 ] } } }", exact(1, 3)},
        {"{ ArcCosh : { Cosh : 2 } }", exact(2)},
        {"{ ArcTanh : { Tanh : { Divide : [ -2 5 ] } } }", exact(-2, 5)},
        {"{ ArcSech : { Sech : { Shift : [ 1 -1 ] } } }", exact(1, 2)},
        {"{ ArcCsch : { Csch : 3 } }", exact(3)},
    };
    for (const auto& [text, x] : round_trips) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(agree(exact(h.run(text, p)), x, 64 * p - 24));
    }
}

TEST(FunctionNodes, GammaAtHalfAndQuarterIntegers) {
    const uint64_t p = 12;
    FormulaHarness h;
    const ExactValue pi = decimal_reference("pi-dec-1m.txt", digits_for(p));
    const ExactValue lemniscate = decimal_reference("lemniscate-dec-1m.txt", digits_for(p));
    // Gamma(3/2)^2 = pi/4, Gamma(7/2)^2 = 225 pi/64, Gamma(6) = 120, Gamma(5/4)^4 = 2 pi L^2 / 256
    // with L = Gamma(1/4)^2 / sqrt(2 pi).
    EXPECT_TRUE(agree(exact_mul(exact_pow(exact(h.run("{ Gamma : { Numerator : 3 Denominator : 2 } }", p)), 2), exact(4)),
                      pi, 64 * p - 24));
    EXPECT_TRUE(agree(exact_mul(exact_pow(exact(h.run("{ Gamma : { Numerator : 14 Denominator : 4 } }", p)), 2), exact(64)),
                      exact_mul(pi, exact(225)), 64 * p - 24));
    EXPECT_TRUE(agree(exact(h.run("{ Gamma : { Numerator : 6 Denominator : 1 } }", p)), exact(120), 64 * p - 24));
    EXPECT_TRUE(agree(exact_mul(exact_pow(exact(h.run("{ Gamma : { Numerator : 5 Denominator : 4 } }", p)), 4), exact(128)),
                      exact_mul(pi, exact_mul(lemniscate, lemniscate)), 64 * p - 24));
}

TEST(FunctionNodes, BadFormulasAreRefused) {
    FormulaHarness h;
    auto fails = [&](const std::string& text, const char* function, const std::string& message, uint64_t p = 3) {
        SCOPED_TRACE(text);
        expect_throw<InvalidParametersException>([&] { h.run(text, p); }, function, message);
    };
    fails("{ Log-AGM : { Pi : \"P\" Log2 : \"L\" Argument : 3 } }", "FormulaB_LogAGM::FormulaB_LogAGM()",
          "Cannot load values for Pi or Log2 without an enclosing scope.");
    fails("{ Log-AGM : { Pi : " + kPi + " Log2 : \"L\" Argument : 3 } }", "FormulaB_LogAGM::FormulaB_LogAGM()",
          "Cannot load values for Pi or Log2 without an enclosing scope.");
    fails("{ Log : { x : { Shift : [ 3 70368744177664 ] } } }", "FormulaB_LogAGM::run()",
          "Argument is too large: 2^70368744177665");
    fails("{ Log : 0 }", "FormulaB_Log::FormulaB_Log()", "Argument must be positive: 0");
    expect_throw<AlgorithmFailedException>([&] { h.run("{ Log : { x : -3 } }", 3); }, "FormulaB_LogAGM::run()",
                                           "Argument must be positive.");
    expect_throw<LimitExceededException>([&] { h.run("{ Exp : { Shift : [ 1 41 ] } }", 3); }, "FormulaB_Exp::run()",
                                         "Exponent is out of range.");
    fails("{ Power : [ 3 0 ] }", "FormulaB_Power::FormulaB_Power()", "Exponent cannot be zero.");
    fails("{ ArcCosh : 1 }", "FormulaB_ArcCosh::FormulaB_ArcCosh()", "Argument must be greater than 1: x = 1");
    fails("{ ArcCosh : { Shift : [ 1 -1 ] } }", "FormulaB_CheckedArgument::run()", "Argument must be greater than 1: x = 0.5");
    fails("{ ArcCosh : { Shift : [ 1 0 ] } }", "FormulaB_CheckedArgument::run()", "Argument must be greater than 1: x = 1");
    fails("{ ArcSech : 2 }", "FormulaB_CheckedArgument::run()", "Argument must be greater than 1: x = 0.5");
    for (const char* g : {"Numerator : 0 Denominator : 1", "Numerator : 65535 Denominator : 1"})
        fails(std::string("{ Gamma : { ") + g + " } }", "FormulaB_Gamma::FormulaB_Gamma()", "a must be in: [1, 65535)");
    fails("{ Gamma : { Numerator : 5 Denominator : 0 } }", "FormulaB_Gamma::FormulaB_Gamma()", "b must be in: [1, 65535)");
    fails("{ Gamma : { Numerator : 65534 Denominator : 65535 } }", "FormulaB_Gamma::FormulaB_Gamma()", "b must be in: [1, 65535)");
    fails("{ Gamma : { Numerator : 1 Denominator : 2 } }", "FormulaB_Gamma::FormulaB_Gamma()", "Failed: a < b");
    // N b past 2^62: planned only, nothing runs.
    FormulaProgram program = h.compile("{ Gamma : { Numerator : 65534 Denominator : 65533 } }");
    expect_throw<InvalidParametersException>([&] { program.plan(uint64_t(1) << 41, h.context); }, "FormulaB_Gamma::plan()",
                                             "Internal overflow.");
}

// Larger sizes, where the products go through the transform multiplications and the Newton
// exponential runs many levels.
TEST(FunctionNodes, LogExpGammaAtLargerSizesLong) {
    if (!std::getenv("QMP_TEST_LONG")) GTEST_SKIP() << "set QMP_TEST_LONG=1";
    const uint64_t p = 3000;
    FormulaHarness h;
    const ExactValue log3 = decimal_reference("log3-dec-1m.txt", digits_for(p));
    EXPECT_TRUE(agree(exact(h.run("{ Log : 3 }", p)), log3, 64 * p - 16));
    const ExactValue e = decimal_reference("e-dec-1m.txt", digits_for(p));
    EXPECT_TRUE(agree(exact_pow(exact(h.run("{ Exp : { Divide : [ 1 7 ] } }", p)), 7), e, 64 * p - 24));
    const ExactValue pi = decimal_reference("pi-dec-1m.txt", digits_for(p));
    EXPECT_TRUE(agree(exact_mul(exact_pow(exact(h.run("{ Gamma : { Numerator : 3 Denominator : 2 } }", p)), 2), exact(4)),
                      pi, 64 * p - 24));
}

}  // namespace
}  // namespace qmp::test
