// Machin-like logarithm formulas, checked independently of the search: every x has x - 1 and
// x + 1 smooth over the prime set (factored here by trial division), the exponent vectors of
// (x + 1)/(x - 1) combine exactly to 2 D times the exponent vector of n, the long double sum of
// c arccoth(x) / D equals log n, the primary formulas for 2, 3, 5, 7, 10, 11 and 13 are the
// published ones, and the primary and secondary formulas share no x.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>

#include "formulas/catalog/machin_search.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv {
namespace {

using Exponents = std::map<uint64_t, int64_t>;

// Exponents of m over all primes, by trial division.
Exponents factor(uint64_t m, int64_t sign, Exponents e = {}) {
    for (uint64_t p = 2; p * p <= m; ++p) {
        while (m % p == 0) {
            e[p] += sign;
            m /= p;
        }
    }
    if (m > 1) e[m] += sign;
    return e;
}

void check_formula(uint64_t n, MachinChoice choice) {
    SCOPED_TRACE("n = " + std::to_string(n) + (choice == MachinChoice::Primary ? " primary" : " secondary"));
    LogMachinFormula f(n, choice);
    f.find_formula();
    ASSERT_FALSE(f.terms().empty());
    uint64_t largest = 1;
    for (auto [p, k] : factor(n, 1)) largest = std::max(largest, p);
    const uint64_t bound = std::max<uint64_t>(7, largest);

    Exponents sum;
    long double value = 0, magnitude = 0;
    for (const auto& t : f.terms()) {
        EXPECT_NE(t.coefficient, 0);
        const Exponents v = factor(t.x - 1, -1, factor(t.x + 1, 1));
        for (auto [p, k] : v) {
            EXPECT_LE(p, bound) << "x = " << t.x << " is not smooth";
            sum[p] += t.coefficient * k;
        }
        const long double term = (long double)t.coefficient * std::atanh(1.0L / (long double)t.x);
        value += term;
        magnitude += std::fabs(term);
    }
    Exponents target;
    for (auto [p, k] : factor(n, 1)) target[p] = 2 * f.denominator() * k;
    for (auto [p, k] : sum) {
        EXPECT_EQ(k, target.count(p) ? target[p] : 0) << "exponent of " << p;
    }
    for (auto [p, k] : target) EXPECT_EQ(sum[p], k) << "exponent of " << p;
    // Long double keeps 64 bits; large coefficients cancel, so allow for the size of the terms.
    const long double log_n = std::log((long double)n);
    EXPECT_NEAR(double(value / f.denominator() - log_n), 0.0, double(1e-15L * log_n + 1e-18L * magnitude));
}

TEST(MachinSearch, FormulasAreExactAndNumericallyRight) {
    std::vector<uint64_t> arguments = {2, 3, 5, 7, 10, 11, 13, 97, 100, 6, 60, 64, 91, 2 * 3 * 5 * 7 * 11 * 13};
    for (uint64_t n = 14; n < 100; n += 7) arguments.push_back(n);
    for (uint64_t n : arguments) {
        check_formula(n, MachinChoice::Primary);
        check_formula(n, MachinChoice::Secondary);
    }
}

TEST(MachinSearch, PrimaryFormulasArePublishedOnes) {
    // log n = sum c a(x), from the reference table of formulas (x descending).
    const std::map<uint64_t, std::vector<std::pair<int64_t, uint64_t>>> published = {
        {2, {{62, 8749}, {-38, 4801}, {54, 449}, {144, 251}}},
        {3, {{98, 8749}, {-60, 4801}, {86, 449}, {228, 251}}},
        {5, {{144, 8749}, {-88, 4801}, {126, 449}, {334, 251}}},
        {7, {{174, 8749}, {-106, 4801}, {152, 449}, {404, 251}}},
        {10, {{206, 8749}, {-126, 4801}, {180, 449}, {478, 251}}},
        {11, {{188, 19601}, {402, 8749}, {554, 4801}, {872, 1079}, {498, 351}}},
        {13, {{5796, 246401}, {6328, 21295}, {3064, 13311}, {3494, 8749}, {1658, 4801}, {1998, 1574}}},
    };
    for (const auto& [n, terms] : published) {
        LogMachinFormula f(n, MachinChoice::Primary);
        f.find_formula();
        EXPECT_EQ(f.denominator(), 1);
        ASSERT_EQ(f.terms().size(), terms.size()) << n;
        for (size_t i = 0; i < terms.size(); ++i) {
            EXPECT_EQ(f.terms()[i].coefficient, terms[i].first) << "n = " << n << " term " << i;
            EXPECT_EQ(f.terms()[i].x, terms[i].second) << "n = " << n << " term " << i;
        }
    }
    LogMachinFormula two(2, MachinChoice::Primary);
    two.find_formula();
    EXPECT_NEAR(two.cost(), 1.319, 0.0005);
}

TEST(MachinSearch, SecondaryIsIndependentAndNotCheaper) {
    for (uint64_t n : {2, 3, 7, 13, 30, 97}) {
        LogMachinFormula primary(n, MachinChoice::Primary), secondary(n, MachinChoice::Secondary);
        primary.find_formula();
        secondary.find_formula();
        std::set<uint64_t> used;
        for (const auto& t : primary.terms()) used.insert(t.x);
        for (const auto& t : secondary.terms()) EXPECT_EQ(used.count(t.x), 0u) << "n = " << n << " shares x = " << t.x;
        // The greedy choice is the cheapest basis, so leaving its x out cannot be cheaper.
        EXPECT_GE(secondary.cost(), primary.cost() - 1e-12) << n;
    }
}

TEST(MachinSearch, TextAndRefusals) {
    LogMachinFormula f(2, MachinChoice::Secondary);
    f.find_formula();
    const std::string text = f.describe();
    const auto& t = f.terms().front();
    EXPECT_EQ(text.rfind("Secondary Machin-like Formula (4 terms):\n    " + std::to_string(t.coefficient) + " * ArcCoth[" +
                             std::to_string(t.x) + "] = ", 0), 0u) << text;
    EXPECT_NE(text.find("\n        Cost = "), std::string::npos) << text;
    qmp::test::expect_throw<qmp::InvalidParametersException>(
        [] { LogMachinFormula(101, MachinChoice::Primary).find_formula(); }, "LogMachinFormula::find_formula()",
        "Unable to find a formula.");
    qmp::test::expect_throw<qmp::InvalidParametersException>([] { LogMachinFormula(1, MachinChoice::Primary); },
                                                             "LogMachinFormula::find_formula()",
                                                             "Argument must be greater than 1.");
}

}  // namespace
}  // namespace qv
