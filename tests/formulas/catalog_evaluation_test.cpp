// The catalog's formula texts run through the formula language: every algorithm evaluates to
// its constant (power 1) and to its reciprocal (power -1), compared with the independent
// reference digits. This is where the generators and the parser must agree on node names, keys
// and argument forms.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "formulas/catalog/formula_generator.h"
#include "tests/formulas/language/formula_test_support.h"

namespace qmp::test {
namespace {

struct CatalogCase {
    const char* constant;
    const char* algorithm;
    int64_t argument;
    const char* reference;
};

// The reference of `digits` fraction digits; "log5" is log 10 - log 2 (both truncated: the
// difference is within 2 units of the last digit).
ExactValue reference_for(const std::string& name, uint64_t digits) {
    if (name != "log5") return decimal_reference(name, digits);
    const ExactValue log10 = decimal_reference("log10-dec-1m.txt", digits), log2 = decimal_reference("log2-dec-1m.txt", digits);
    return {diff(log10.num, log2.num), log10.den, 0, false};
}

FormulaFloat evaluate(FormulaHarness& harness, const CatalogCase& c, uint64_t digits, int power = 1) {
    qv::FormulaRequest request;
    request.constant = c.constant;
    request.algorithm = c.algorithm;
    request.argument = c.argument;
    request.digits = digits;
    request.power = power;
    return harness.run(qv::generate_formula(request).text, digits / 19 + 2);
}

TEST(CatalogEvaluation, AlgorithmsGiveTheirConstants) {
    const CatalogCase cases[] = {
        {"pi", "chudnovsky", 0, "pi-dec-1m.txt"},      {"pi", "ramanujan", 0, "pi-dec-1m.txt"},
        {"e", "exp(1)", 0, "e-dec-1m.txt"},            {"e", "exp(-1)", 0, "e-dec-1m.txt"},
        {"goldenratio", "newton", 0, "golden-dec-1m.txt"}, {"sqrt", "newton", 2, "sqrt2-dec-1m.txt"},
        {"zeta3", "zuniga2023vi", 0, "zeta3-dec-1m.txt"}, {"zeta3", "zuniga2023v", 0, "zeta3-dec-1m.txt"},
        {"catalan", "pilehrood-short", 0, "catalan-dec-1m.txt"}, {"catalan", "zuniga2023", 0, "catalan-dec-1m.txt"},
        {"lemniscate", "zuniga2023x", 0, "lemniscate-dec-1m.txt"}, {"lemniscate", "guillera", 0, "lemniscate-dec-1m.txt"},
        {"log", "zuniga2024iii", 2, "log2-dec-1m.txt"}, {"log", "zuniga2024ii", 2, "log2-dec-1m.txt"},
        {"log", "zuniga2024i", 2, "log2-dec-1m.txt"},  {"log", "machin-primary", 2, "log2-dec-1m.txt"},
        {"log", "machin-secondary", 2, "log2-dec-1m.txt"}, {"log", "zuniga2024i", 3, "log3-dec-1m.txt"},
        {"log", "zuniga2024ii", 3, "log3-dec-1m.txt"}, {"log", "machin-primary", 3, "log3-dec-1m.txt"},
        {"log", "machin-secondary", 3, "log3-dec-1m.txt"}, {"log", "machin-primary", 10, "log10-dec-1m.txt"},
        {"log", "machin-secondary", 10, "log10-dec-1m.txt"}, {"log", "zuniga2024i", 5, "log5"},
        {"log", "machin-primary", 5, "log5"}, {"log", "machin-secondary", 5, "log5"},
        {"log", "zuniga2025", 5, "log5"}, {"log", "zuniga2025", 10, "log10-dec-1m.txt"},
        {"gamma", "brent-refined", 0, "euler-dec-1m.txt"},
        {"gamma", "brent-original", 0, "euler-dec-1m.txt"},
    };
    // 2000 digits (about 104 words) and just past a term-count boundary of the pi series.
    for (uint64_t digits : {uint64_t(2000), uint64_t(2837)}) {
        for (const CatalogCase& c : cases) {
            SCOPED_TRACE(std::string(c.constant) + " " + c.algorithm + " " + std::to_string(digits));
            FormulaHarness harness;
            const FormulaFloat x = evaluate(harness, c, digits);
            // The reference is truncated to `digits` digits: agreement to 3.3 bits per digit.
            EXPECT_TRUE(agree(exact(x), reference_for(c.reference, digits + 20), uint64_t(digits * 3.3)));
            if (digits != 2000) continue;
            // Power -1: the reciprocal, so that x times the reference is 1.
            FormulaHarness reciprocal_harness;
            const FormulaFloat y = evaluate(reciprocal_harness, c, digits, -1);
            EXPECT_TRUE(agree(exact_mul(exact(y), reference_for(c.reference, digits + 20)), exact(1), uint64_t(digits * 3.3)))
                << "power -1";
        }
    }
}

// Primary and secondary algorithm of each series constant at 10^5 digits: each against the
// reference, and the two against each other (they share no series).
TEST(CatalogEvaluation, PrimaryAndSecondaryAgreeAtLargeSizesLong) {
    if (std::getenv("QMP_TEST_LONG") == nullptr) GTEST_SKIP() << "set QMP_TEST_LONG=1";
    const CatalogCase pairs[][2] = {
        {{"zeta3", "zuniga2023vi", 0, "zeta3-dec-1m.txt"}, {"zeta3", "zuniga2023v", 0, "zeta3-dec-1m.txt"}},
        {{"catalan", "pilehrood-short", 0, "catalan-dec-1m.txt"}, {"catalan", "zuniga2023", 0, "catalan-dec-1m.txt"}},
        {{"lemniscate", "zuniga2023x", 0, "lemniscate-dec-1m.txt"}, {"lemniscate", "guillera", 0, "lemniscate-dec-1m.txt"}},
        {{"log", "zuniga2024iii", 2, "log2-dec-1m.txt"}, {"log", "zuniga2024ii", 2, "log2-dec-1m.txt"}},
        {{"log", "zuniga2024i", 3, "log3-dec-1m.txt"}, {"log", "zuniga2024ii", 3, "log3-dec-1m.txt"}},
        {{"log", "machin-primary", 10, "log10-dec-1m.txt"}, {"log", "machin-secondary", 10, "log10-dec-1m.txt"}},
        {{"gamma", "brent-refined", 0, "euler-dec-1m.txt"}, {"gamma", "brent-original", 0, "euler-dec-1m.txt"}},
    };
    const uint64_t digits = 100000;
    for (const auto& pair : pairs) {
        SCOPED_TRACE(std::string(pair[0].constant) + " " + pair[0].algorithm + " / " + pair[1].algorithm);
        FormulaHarness h0, h1;
        const ExactValue a = exact(evaluate(h0, pair[0], digits)), b = exact(evaluate(h1, pair[1], digits));
        EXPECT_TRUE(agree(a, b, uint64_t(digits * 3.3)));
        EXPECT_TRUE(agree(a, reference_for(pair[0].reference, digits + 20), uint64_t(digits * 3.3)));
    }
}

}  // namespace
}  // namespace qmp::test
