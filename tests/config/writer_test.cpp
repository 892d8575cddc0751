// The writers' exact layout: the .cfg form with and without comments, both array forms and the
// one-line threshold, JSON, and the refusal of keys the .cfg syntax cannot carry.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace qmp {
namespace {

using config_test::expect_throw;

ConfigObject sample_tree() {
    ConfigObject root = ConfigObject::make_object("Settings of one run");
    root.add_string("Constant", "pi \"quoted\" \\", "The constant to compute.");
    root.add_integer("DecimalDigits", -1000000);
    root.add_bool("Enabled", true);
    root.add_node("Nothing", ConfigObject());
    ConfigObject& numbers = root.add_array("Numbers");
    for (int64_t v : {1, -2, 3}) numbers.push_back(ConfigObject::make_integer(v));
    ConfigObject& names = root.add_array("Names");
    names.set_block_layout(true);
    names.push_back(ConfigObject::make_string("a"));
    names.push_back(ConfigObject::make_bool(false));
    root.add_array("Empty");
    root.add_object("EmptyObject", "the member comment of an empty object");
    ConfigObject& memory = root.add_object("Memory");
    memory.set_comment("Two\nlines");
    memory.add_integer("Limit", 5, "first\r\nsecond\n");
    ConfigObject& nested = root.add_array("Nested");
    ConfigObject one = ConfigObject::make_array();
    one.push_back(ConfigObject::make_integer(1));
    nested.push_back(one);
    nested.push_back(ConfigObject::make_object()).add_integer("x", 1);
    return root;
}

TEST(CfgWriter, ExactLayoutWithComments) {
    const std::string expected =
        "{   //  Settings of one run\r\n"
        "\r\n"
        "    //  The constant to compute.\r\n"
        "    Constant : \"pi \\\"quoted\\\" \\\\\"\r\n"
        "    DecimalDigits : -1000000\r\n"
        "    Enabled : true\r\n"
        "    Nothing : null\r\n"
        "    Numbers : [1 -2 3]\r\n"
        "    Names : [\r\n"
        "        \"a\"\r\n"
        "        false\r\n"
        "    ]\r\n"
        "    Empty : []\r\n"
        "\r\n"
        "    //  the member comment of an empty object\r\n"
        "    EmptyObject : {}\r\n"
        "    Memory : {   //  Two\r\n"
        "        //  lines\r\n"
        "\r\n"
        "        //  first\r\n"
        "        //  second\r\n"
        "        Limit : 5\r\n"
        "    }\r\n"
        "    Nested : [\r\n"
        "        [1]\r\n"
        "        {\r\n"
        "            x : 1\r\n"
        "        }\r\n"
        "    ]\r\n"
        "}\r\n";
    std::string written = write_cfg(sample_tree(), true);
    EXPECT_EQ(written, expected);
    EXPECT_EQ(parse_cfg(written), sample_tree());
}

TEST(CfgWriter, WithoutCommentsDropsExactlyTheCommentLines) {
    // The oracle: the commented text with its comment lines, the empty lines before them and
    // the comments after "{" filtered out line by line.
    std::string expected;
    std::string commented = write_cfg(sample_tree(), true);
    for (uint64_t start = 0; start < commented.size();) {
        uint64_t end = commented.find("\r\n", start) + 2;
        std::string line = commented.substr(start, end - start);
        start = end;
        uint64_t first = line.find_first_not_of(' ');
        if (line == "\r\n" || line.compare(first, 2, "//") == 0) continue;
        uint64_t brace_comment = line.find("{   //  ");
        if (brace_comment != std::string::npos) line = line.substr(0, brace_comment + 1) + "\r\n";
        expected += line;
    }
    EXPECT_EQ(write_cfg(sample_tree(), false), expected);
    EXPECT_EQ(write_cfg(ConfigObject::make_integer(INT64_MIN), false), "-9223372036854775808\r\n");
    EXPECT_EQ(write_cfg(ConfigObject::make_object("lost"), true), "{}\r\n");
}

TEST(CfgWriter, OneLineArraysUpToOneHundredStringBytes) {
    for (uint64_t total : {0u, 99u, 100u, 101u, 150u}) {
        SCOPED_TRACE("string bytes " + std::to_string(total));
        ConfigObject array = ConfigObject::make_array();
        // Integers, booleans and nulls do not count towards the limit.
        for (int i = 0; i < 40; i++) array.push_back(ConfigObject::make_integer(1234567890));
        array.push_back(ConfigObject());
        array.push_back(ConfigObject::make_string(std::string(total / 2, 'x')));
        array.push_back(ConfigObject::make_string(std::string(total - total / 2, '"')));
        std::string written = write_cfg(array, false);
        bool one_line = written.find("\r\n") == written.size() - 2;
        EXPECT_EQ(one_line, total <= 100);
        EXPECT_EQ(parse_cfg(written), array);
        std::string json = write_json(array);
        EXPECT_EQ(json.find("\r\n") == json.size() - 2, total <= 100);
        EXPECT_EQ(parse_json(json), array);
    }
}

TEST(CfgWriter, RefusesKeysTheCfgSyntaxCannotCarry) {
    for (const char* json : {"{\"a b\": 1}", "{\"\": 1}", "{\"a//b\": 1}", "{\"x\": {\"k:\": 1}}"}) {
        SCOPED_TRACE(json);
        ConfigObject tree = parse_json(json);
        try {
            write_cfg(tree, false);
            ADD_FAILURE() << "no exception";
        } catch (const InvalidParametersException& e) {
            EXPECT_EQ(e.function(), "ConfigObject::write_cfg()");
            EXPECT_NE(e.message().find("cannot be written in the .cfg syntax."), std::string::npos);
        }
        EXPECT_EQ(parse_json(write_json(tree)), tree);  // JSON carries any key
    }
}

TEST(JsonWriter, ExactLayout) {
    ConfigObject root = ConfigObject::make_object("comments are not written");
    root.add_string("s", "a\"b\\c", "nor this");
    root.add_integer("i", -7);
    root.add_array("l").push_back(ConfigObject::make_bool(true));
    root.get("l", "T::t()").push_back(ConfigObject());
    ConfigObject& block = root.add_array("b");
    block.push_back(ConfigObject::make_object());
    block.push_back(ConfigObject::make_array());
    root.add_object("o").add_integer("x", 1);
    const std::string expected =
        "{\r\n"
        "    \"s\": \"a\\\"b\\\\c\",\r\n"
        "    \"i\": -7,\r\n"
        "    \"l\": [true, null],\r\n"
        "    \"b\": [\r\n"
        "        {},\r\n"
        "        []\r\n"
        "    ],\r\n"
        "    \"o\": {\r\n"
        "        \"x\": 1\r\n"
        "    }\r\n"
        "}\r\n";
    EXPECT_EQ(write_json(root), expected);
    EXPECT_EQ(parse_json(expected), root);
}

}  // namespace
}  // namespace qmp
