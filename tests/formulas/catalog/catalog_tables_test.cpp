// The constant menu (rows in order under their headings, the footnote), token aliases and
// refusals, and each constant's algorithms in menu order with their relative speeds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formulas/catalog/algorithm_table.h"
#include "formulas/catalog/constant_table.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv {
namespace {

using qmp::InvalidParametersException;
using qmp::test::expect_throw;

TEST(ConstantTable, MenuTokensAndRefusals) {
    // Every piece must appear after the previous one.
    const std::string menu = ConstantTable::menu_text();
    size_t at = 0;
    for (const char* piece : {"Compute a Constant: (in ascending order of difficulty to compute)\n", "#", "Constant", "Value",
                              "Approximate Difficulty*", "Fast Constants:", "0", "Sqrt(n)", "1.52", "1", "Golden Ratio",
                              "1.618034...", "1.52", "2", "e", "2.718281...", "4.26 / 4.26", "Moderate Constants:", "3", "Pi",
                              "3.141592...", "15.6 / 23.6", "4", "Lemniscate", "5.244115...", "28.8 / 28.8", "5", "Log(n)",
                              "> 30.2", "6", "Zeta(3) (Apery's Constant)", "1.202056...", "56.7 / 63.4", "7",
                              "Catalan's Constant", "0.915965...", "90.1 / 98.0", "Slow Constants:", "8",
                              "Euler-Mascheroni Constant", "0.577215...", "454. / 683.", "9",
                              "Euler-Mascheroni Constant (parameter override)", "Other:", "10",
                              "Custom constant with user-defined formula.",
                              "*Actual numbers will vary. Radix conversion = 1.00\n"}) {
        const size_t next = menu.find(piece, at);
        ASSERT_NE(next, std::string::npos) << "missing or out of order: " << piece << "\n" << menu;
        at = next + std::string(piece).size();
    }
    const char* tokens[] = {"sqrt", "goldenratio", "e", "pi", "lemniscate", "log", "zeta3", "catalan", "gamma", "brent", "custom"};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(ConstantTable::find(tokens[i]).index, i);
}

TEST(ConstantTable, AliasesAndRefusals) {
    EXPECT_STREQ(ConstantTable::find("apery").token, "zeta3");
    EXPECT_STREQ(ConstantTable::find("zeta(3)").token, "zeta3");
    for (const char* bad : {"Pi", "zeta", "", "pi ", "Zeta3"}) {
        expect_throw<InvalidParametersException>([bad] { ConstantTable::find(bad); }, "ConstantTable::find()",
                                                 "Invalid constant token.");
    }
    EXPECT_EQ(ConstantTable::invalid_constant_text("tau"), "Invalid Constant: tau");
}

std::vector<std::string> tokens_of(const AlgorithmMenu& menu) {
    std::vector<std::string> out;
    for (const AlgorithmEntry& e : menu.algorithms) {
        EXPECT_EQ(e.index, int(out.size()));
        out.push_back(e.token);
    }
    return out;
}

TEST(AlgorithmTable, MenusInOrder) {
    using V = std::vector<std::string>;
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("pi")), (V{"chudnovsky", "ramanujan", "chudnovsky-reduced", "ramanujan-reduced"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("e")), (V{"exp(1)", "exp(-1)"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("catalan")), (V{"pilehrood-short", "zuniga2023"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("lemniscate")), (V{"zuniga2023x", "guillera"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("zeta(3)")), (V{"zuniga2023vi", "zuniga2023v"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("gamma")), (V{"brent-refined", "brent-original"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("log", 2)),
              (V{"zuniga2024iii", "zuniga2024ii", "zuniga2024i", "machin-primary", "machin-secondary"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("log", 10)), (V{"zuniga2025", "machin-primary", "machin-secondary"}));
    EXPECT_EQ(tokens_of(AlgorithmTable::menu_for("log", 7)), (V{"machin-primary", "machin-secondary"}));
    EXPECT_EQ(AlgorithmTable::menu_for("brent").menu_id, "Menu-Brent-Algorithms");
    EXPECT_EQ(AlgorithmTable::menu_for("goldenratio").menu_id, "Menu-Goldenratio-Algorithms");
    expect_throw<InvalidParametersException>([] { AlgorithmTable::menu_for("pi").find("Chudnovsky"); },
                                             "AlgorithmTable::find()", "Invalid Algorithm: Chudnovsky");
}

TEST(AlgorithmTable, MenuTextAndSpeeds) {
    const AlgorithmMenu pi = AlgorithmTable::menu_for("pi"), e = AlgorithmTable::menu_for("e");
    EXPECT_EQ(pi.speed_text(pi.secondary()), "(1.5x slower)");
    EXPECT_EQ(e.speed_text(e.secondary()), "(fastest)");
    const std::string text = AlgorithmTable::menu_for("catalan").text();
    const size_t a = text.find("Pilehrood (2010-short)"), b = text.find("(fastest)"), c = text.find("Zuniga (2023)"),
                 d = text.find("(1.1x slower)");
    EXPECT_TRUE(a < b && b < c && c < d && d != std::string::npos) << text;
    EXPECT_NE(AlgorithmTable::menu_for("gamma", 0, 20).text().find("Brent-McMillan with Refinement ( n = 2^20"), std::string::npos);
}

}  // namespace
}  // namespace qv
