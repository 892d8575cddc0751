// The catalog's formula texts run through the formula language: every algorithm whose nodes
// exist evaluates to its constant, compared with the independent reference digits. This is
// where the generators and the parser must agree on node names, keys and argument forms.
#include <gtest/gtest.h>

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

TEST(CatalogEvaluation, AlgorithmsGiveTheirConstants) {
    const CatalogCase cases[] = {
        {"pi", "chudnovsky", 0, "pi-dec-1m.txt"},      {"pi", "ramanujan", 0, "pi-dec-1m.txt"},
        {"e", "exp(1)", 0, "e-dec-1m.txt"},            {"e", "exp(-1)", 0, "e-dec-1m.txt"},
        {"goldenratio", "newton", 0, "golden-dec-1m.txt"}, {"sqrt", "newton", 2, "sqrt2-dec-1m.txt"},
    };
    // 2000 digits (about 104 words) and just past a term-count boundary of the pi series.
    for (uint64_t digits : {uint64_t(2000), uint64_t(2837)}) {
        for (const CatalogCase& c : cases) {
            SCOPED_TRACE(std::string(c.constant) + " " + c.algorithm + " " + std::to_string(digits));
            qv::FormulaRequest request;
            request.constant = c.constant;
            request.algorithm = c.algorithm;
            request.argument = c.argument;
            request.digits = digits;
            const qv::GeneratedFormula formula = qv::generate_formula(request);
            FormulaHarness harness;
            const uint64_t p = digits / 19 + 2;
            const FormulaFloat x = harness.run(formula.text, p);
            // The reference is truncated to `digits` digits: agreement to 3.3 bits per digit.
            EXPECT_TRUE(agree(exact(x), decimal_reference(c.reference, digits + 20), uint64_t(digits * 3.3)));
        }
    }
}

}  // namespace
}  // namespace qmp::test
