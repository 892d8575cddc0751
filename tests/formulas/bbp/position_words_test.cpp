// Position words and core lists: every benchmark size word, plain numbers, the limit, and the
// malformed forms, each with its exact error.
#include "formulas/bbp/position_words.h"

#include <gtest/gtest.h>

#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv::bbp {
namespace {

const std::string kF = "Test::parse()";

TEST(BbpPositionWords, SizeWordsAndNumbers) {
    const struct {
        const char* word;
        uint64_t value;
    } cases[] = {
        {"0", 0}, {"17", 17}, {"1k", 1000}, {"1m", 1000000}, {"10m", 10000000}, {"100m", 100000000},
        {"1b", 1000000000}, {"10b", 10000000000}, {"100b", 100000000000}, {"1t", 1000000000000},
        {"10t", 10000000000000}, {"100t", 100000000000000}, {"2.5b", 2500000000}, {"2.50m", 2500000},
        {"0.001k", 1}, {"1000000000000000000", 1000000000000000000ull}, {"1000000t", 1000000000000000000ull},
    };
    for (const auto& c : cases) EXPECT_EQ(parse_hex_position(c.word, kF), c.value) << c.word;
}

TEST(BbpPositionWords, MalformedAndOutOfRangePositions) {
    for (const char* word : {"", "x", "1x", "1M", "-5", "+5", "1.5", "2.5000005m", "1..5m", ".5m", "5.m", "m", "1 000",
                             "0x10", "1e9"}) {
        qmp::test::expect_throw<qmp::InvalidParametersException>([&] { parse_hex_position(word, kF); }, kF,
                                                                 std::string("Invalid position: ") + word);
    }
    for (const char* word : {"1000000000000000001", "1000001t", "99999999999999999999999"}) {
        qmp::test::expect_throw<qmp::InvalidParametersException>(
            [&] { parse_hex_position(word, kF); }, kF, "The position must not exceed 1000000000000000000.");
    }
}

TEST(BbpPositionWords, CoreLists) {
    EXPECT_EQ(parse_core_list("0", kF), std::vector<uint32_t>({0}));
    EXPECT_EQ(parse_core_list("1,0", kF), std::vector<uint32_t>({1, 0}));
    EXPECT_EQ(parse_core_list("0-1,0", kF), std::vector<uint32_t>({0, 1, 0}));
    for (const char* text : {"", ",", "0,", "a", "1-0", "0-", "-1", "0;1"})
        qmp::test::expect_throw<qmp::InvalidParametersException>([&] { parse_core_list(text, kF); }, kF,
                                                                 std::string("Invalid core list: ") + text);
    qmp::test::expect_throw<qmp::InvalidParametersException>([&] { parse_core_list("0,99999", kF); },
                                                             "CoreSelector::load_config()", "Invalid core #: 99999");
}

}  // namespace
}  // namespace qv::bbp
