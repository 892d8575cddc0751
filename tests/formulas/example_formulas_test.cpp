// The example formula files shipped in "Custom Formulas/" evaluate to their constants: checked
// at full precision against the reference digits where an identity ties them to one (pi by the
// BBP series; sinh(1) = (e^2 - 1) / (2e); Gamma(1/3) Gamma(5/3) 3 sqrt(3) = 4 pi, the
// reflection formula), and against the C library's long double values to 55 bits.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "formulas/catalog/custom_formula_file.h"
#include "tests/formulas/language/formula_test_support.h"

namespace qmp::test {
namespace {

std::string example_text(const std::string& name) {
    const std::string here = __FILE__;  // <root>/tests/formulas/example_formulas_test.cpp
    const std::string root = here.substr(0, here.rfind("/tests/"));
    return qv::CustomFormulaFile::read_text(root + "/Custom Formulas/" + name + ".cfg");
}

// x as the exact value of its 64-bit long double mantissa (x in [1, 2^63)).
ExactValue exact_long_double(long double x) {
    int e = 0;
    const uint64_t m = uint64_t(std::ldexp(std::frexp(x, &e), 64));
    return {nat(m), shl_bits(nat(1), uint64_t(64 - e)), 0, false};
}

constexpr uint64_t kDigits = 2000;
constexpr uint64_t kWords = kDigits / 19 + 2;
constexpr uint64_t kBits = uint64_t(kDigits * 3.3);

TEST(ExampleFormulas, EvaluateToTheirConstants) {
    const ExactValue pi = decimal_reference("pi-dec-1m.txt", kDigits + 20);
    const ExactValue e = decimal_reference("e-dec-1m.txt", kDigits + 20);
    {
        FormulaHarness h;
        EXPECT_TRUE(agree(exact(h.run(example_text("Pi - BBP series"), kWords)), pi, kBits));
    }
    {
        FormulaHarness h;
        // (e^2 - 1) / (2 e) as one exact fraction.
        const ExactValue sinh1{diff(mul(e.num, e.num), mul(e.den, e.den)), mul(nat(2), mul(e.num, e.den)), 0, false};
        EXPECT_TRUE(agree(exact(h.run(example_text("Sinh(1)"), kWords)), sinh1, kBits));
        EXPECT_TRUE(agree(exact(h.run(example_text("Sinh(1)"), 2)), exact_long_double(std::sinh(1.0L)), 55));
    }
    {
        FormulaHarness h;
        const std::string gamma = example_text("Gamma(1 over 3)");
        EXPECT_TRUE(agree(exact(h.run(gamma, 2)), exact_long_double(std::tgamma(1.0L / 3)), 55));
        const std::string reflection =
            "{ Multiply : [ " + gamma + " { Gamma : { Numerator : 5 Denominator : 3 } } 3 { Sqrt : 3 } ] }";
        EXPECT_TRUE(agree(exact(h.run(reflection, kWords)), exact_mul(exact(4), pi), kBits));
    }
    {
        FormulaHarness h;
        EXPECT_TRUE(agree(exact(h.run(example_text("Log(Pi)"), 2)), exact_long_double(std::log(3.14159265358979323846264338327950288L)), 55));
    }
}

}  // namespace
}  // namespace qmp::test
