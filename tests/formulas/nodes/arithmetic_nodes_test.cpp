// The rational nodes (Integer, LinearCombination, Multiply, Square, Shift, Power, Reciprocal,
// the three Divide forms, CheckedMultiply) against exact rationals computed in the test, at a
// precision served by the small Newton forms and one served by the large forms, and every
// message they raise.
#include <string>

#include "tests/formulas/language/formula_test_support.h"
#include "tests/test_support.h"

namespace qmp::test {
namespace {

TEST(ArithmeticNodes, ExactRationals) {
    struct Case {
        const char* text;
        ExactValue value;
    };
    const ExactValue big{mul(pow(nat(3), 200), pow(nat(7), 120)), nat(1), 0, true};  // -(3^200 7^120)
    const Case cases[] = {
        {"{ Integer : -9223372036854775807 }", exact(-9223372036854775807)},
        {"{ LinearCombination : [ [ 3 { Divide : [ 1 7 ] } ] [ -2 { Divide : [ 5 11 ] } ] [ 0 9 ] ] }", exact(33 - 70, 77)},
        {"{ LinearCombination : [ [ 1 { Divide : [ 1 3 ] } ] [ -1 { Divide : [ 1 3 ] } ] [ 1 5 ] ] }", exact(5)},
        {"{ Multiply : [ { Divide : [ 2 3 ] } -5 { Reciprocal : 7 } 9 ] }", exact(-30, 7)},
        {"{ Square : { Divide : [ -5 3 ] } }", exact(25, 9)},
        {"{ Shift : [ { Divide : [ 1 3 ] } -70 ] }", {nat(1), shl_bits(nat(3), 70), 0, false}},
        {"{ Shift : [ -3 131 ] }", {shl_bits(nat(3), 131), nat(1), 0, true}},
        {"{ Power : [ { Divide : [ -3 7 ] } 11 ] }", {pow(nat(3), 11), pow(nat(7), 11), 0, true}},
        {"{ Power : [ { Divide : [ -3 7 ] } -6 ] }", {pow(nat(7), 6), pow(nat(3), 6), 0, false}},
        {"{ Multiply : [ -1 { Power : [ { Divide : [ 3 7 ] } -120 ] } { Power : [ 3 320 ] } ] }", big},
        {"{ Divide : [ 22 { Divide : [ 7 -3 ] } ] }", exact(-66, 7)},
        {"{ Divide : [ { Reciprocal : 3 } { LinearCombination : [ [ 5 { Reciprocal : 9 } ] ] } ] }", exact(3, 5)},
        {"{ Divide : [ 0 { Reciprocal : 3 } ] }", exact(0)},
        {"{ CheckedMultiply : { ReducedMemory : true Input0 : { Reciprocal : -3 } Input1 : { Power : [ 10 30 ] } } }",
         {pow(nat(10), 30), nat(3), 0, true}},
    };
    for (uint64_t p : {2u, 6u, 40u}) {
        FormulaHarness h;
        for (const Case& c : cases) {
            const FormulaFloat v = h.run(c.text, p);
            EXPECT_TRUE(agree(exact(v), c.value, 64 * p)) << c.text << " at p = " << p;
        }
    }
}

TEST(ArithmeticNodes, DivideAgreesWithMultiplyByReciprocal) {
    FormulaHarness h;
    const uint64_t p = 300;
    const std::string a = "{ Invsqrt : 13 }", b = "{ LinearCombination : [ [ 5 { Invsqrt : 2 } ] [ 1 1 ] ] }";
    const ExactValue q = exact(h.run("{ Divide : [ " + a + " " + b + " ] }", p));
    const ExactValue m = exact(h.run("{ Multiply : [ " + a + " { Reciprocal : " + b + " } ] }", p));
    EXPECT_TRUE(agree(q, m, 64 * p));
}

TEST(ArithmeticNodes, StatusLines) {
    FormulaHarness h;
    h.run("{ LinearCombination : [ [ 2 { Shift : [ { Power : [ { Divide : [ 1 { Reciprocal : 3 } ] } 2 ] } 1 ] } ] ] }", 2);
    const std::vector<std::string> expected = {"Inverting: 1", "Dividing: 2", "Powering:  3", "Shifting:  4", "Adding:  5"};
    EXPECT_EQ(h.status, expected);
}

TEST(ArithmeticNodes, CheckedMultiplyCatchesACorruptedProduct) {
    FormulaHarness h;
    const std::string text = "{ CheckedMultiply : { ReducedMemory : false Input0 : { Invsqrt : 3 } Input1 : { Invsqrt : 5 } } }";
    for (uint64_t p : {2u, 50u}) {
        uint64_t calls = 0;
        h.context.product_hook = [&](uint64_t* words, uint64_t n) {
            ASSERT_GT(n, 2 * p) << "the full product is checked";
            words[(calls++ * 7) % n] ^= uint64_t(1) << 40;
        };
        expect_throw<AlgorithmFailedException>([&] { h.run(text, p); }, "FormulaB_CheckedMultiply::run()",
                                               "Checksum Mismatch. Multiplication Failed.");
        EXPECT_EQ(calls, 1u);
        h.context.product_hook = nullptr;
        EXPECT_TRUE(agree(exact_pow(exact(h.run(text, p)), 2), exact(1, 15), 64 * p - 1));
    }
    EXPECT_NE(std::find(h.status.begin(), h.status.end(), "Verify Large Multiply"), h.status.end());
}

TEST(ArithmeticNodes, Messages) {
    using IPE = InvalidParametersException;
    FormulaHarness h;
    auto bad = [&](const std::string& text) { return [&h, text] { h.compile(text); }; };
    const std::string lc = "FormulaB_LinearCombination::FormulaB_LinearCombination()";
    expect_throw<IPE>(bad("{ LinearCombination : [ ] }"), lc, "Set is empty.");
    expect_throw<IPE>(bad("{ LinearCombination : [ [ 1 2 3 ] ] }"), lc, "Each term must have two parts.");
    expect_throw<IPE>(bad("{ LinearCombination : [ 4 ] }"), lc, "Each term must have two parts.");
    expect_throw<IPE>(bad("{ LinearCombination : [ [ { Sqrt : 2 } 2 ] ] }"), "FormulaNode::get_as_integer()",
                      "Node is not an integer.");
    expect_throw<IPE>(bad("{ Multiply : [ 3 ] }"), "FormulaB_Multiply::FormulaB_Multiply()", "Set must have at least 2 terms.");
    expect_throw<IPE>(bad("{ Shift : [ 3 ] }"), "FormulaB_Shift::FormulaB_Shift()", "Set must have 2 terms.");
    expect_throw<IPE>(bad("{ Shift : [ 3 1 1 ] }"), "FormulaB_Shift::FormulaB_Shift()", "Set must have 2 terms.");
    expect_throw<LimitExceededException>(bad("{ Shift : [ 3 281474976710656 ] }"), "FormulaB_Shift::FormulaB_Shift()",
                                         "Shift is out of range.");
    expect_throw<IPE>(bad("{ Power : [ 3 0 ] }"), "FormulaB_Power::FormulaB_Power()", "Exponent cannot be zero.");
    for (const char* d : {"1", "-1", "64", "-4611686018427387904", "{ Integer : 1024 }"})
        expect_throw<IPE>(bad(std::string("{ Divide : [ { Sqrt : 3 } ") + d + " ] }"), "FormulaB_Divide_LW::FormulaB_Divide_LW()",
                          "Use Shift() to divide by a power-of-two.");
    expect_throw<ArithmeticException>(bad("{ Divide : [ 5 0 ] }"), "FormulaB_Divide_LW::FormulaB_Divide_LW()", "Divide by zero.");
    expect_throw<IPE>(bad("{ CheckedMultiply : { Input0 : 2 Input1 : 3 } }"),
                      "FormulaB_CheckedMultiply::FormulaB_CheckedMultiply()", "Invalid Key: ReducedMemory");

    // A huge set warns and is still summed.
    std::string text = "{ LinearCombination : [";
    for (int i = 0; i < 1001; i++) text += " [ 1 3 ]";
    const FormulaFloat v = h.run(text + " ] }", 2);
    EXPECT_TRUE(agree(exact(v), exact(3003), 128));
    EXPECT_EQ(h.warnings, std::vector<std::string>{"Really?!?! You're gonna make me sum up 1001 elements?"});
    // A denominator that evaluates to zero fails when it runs.
    EXPECT_THROW(h.run("{ Divide : [ 1 { LinearCombination : [ [ 1 3 ] [ -3 1 ] ] } ] }", 2), ArithmeticException);
}

}  // namespace
}  // namespace qmp::test
