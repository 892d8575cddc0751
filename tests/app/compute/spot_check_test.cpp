// The spot check: the shipped table must equal the reference file it was taken from, a correct
// digit string passes up to the last position it reaches, and one wrong digit near a table
// position (or a wrong integer part) is found at its exact position.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "app/compute/spot_check.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace {

std::string reference(const std::string& name) {
    std::ifstream in("/work/shared/reference/" + name);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(SpotCheck, TableMatchesTheReferenceFile) {
    std::istringstream file(reference("spot-digits.txt"));
    std::string line;
    size_t rows = 0;
    while (std::getline(file, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string key, digits;
        uint64_t integer_part = 0, position = 0;
        fields >> key >> integer_part >> position >> digits;
        bool found = false;
        for (const qv::SpotDigits& e : qv::spot_digit_table()) {
            if (key == e.key && position == e.position) {
                EXPECT_EQ(integer_part, e.integer_part) << line;
                EXPECT_EQ(digits, e.digits) << line;
                found = true;
            }
        }
        EXPECT_TRUE(found) << line;
        ++rows;
    }
    EXPECT_EQ(rows, qv::spot_digit_table().size());
    EXPECT_GE(rows, 45u);
}

TEST(SpotCheck, PassesOnReferenceDigitsAndFindsOneWrongDigit) {
    const std::string pi = reference("pi-dec-1m.txt");
    ASSERT_GT(pi.size(), 1000000u);
    std::string fraction = pi.substr(2);  // after "3."
    auto source = [&](char* raw, uint64_t index, uint64_t count) {
        for (uint64_t i = 0; i < count; ++i) raw[i] = char(fraction.at(index + i) - '0');
    };
    EXPECT_EQ(qv::check_spot_digits("pi", 3, 1000000, source), 1000000u);
    EXPECT_EQ(qv::check_spot_digits("pi", 3, 999999, source), 100000u);
    EXPECT_EQ(qv::check_spot_digits("pi", 3, 9999, source), std::nullopt);  // "Not Available"
    EXPECT_EQ(qv::check_spot_digits("", 3, 1000000, source), std::nullopt);

    const char* function = "SpotCheck::run()";
    // Position 99,990 (1-based) is inside the 20 digits ending at 100,000.
    fraction[99989] = char('0' + (fraction[99989] - '0' + 5) % 10);
    qmp::test::expect_throw<qmp::AlgorithmFailedException>([&] { qv::check_spot_digits("pi", 3, 200000, source); },
                                                           function, "Spot check failed at: 99990");
    // Digits that do not reach the damaged entry do not see it.
    EXPECT_EQ(qv::check_spot_digits("pi", 3, 99999, source), 10000u);
    qmp::test::expect_throw<qmp::AlgorithmFailedException>([&] { qv::check_spot_digits("pi", 4, 10000, source); },
                                                           function, "Spot check failed at: 0");
}

TEST(SpotCheck, KeysOfCatalogConstants) {
    EXPECT_EQ(qv::spot_check_key("goldenratio", 0), "golden");
    EXPECT_EQ(qv::spot_check_key("sqrt", 2), "sqrt2");
    EXPECT_EQ(qv::spot_check_key("sqrt", 3), "");
    EXPECT_EQ(qv::spot_check_key("log", 10), "log10");
    EXPECT_EQ(qv::spot_check_key("log", 5), "");
    EXPECT_EQ(qv::spot_check_key("brent", 20), "euler");
}

}  // namespace
