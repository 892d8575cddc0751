// The writers' exact layout: the .cfg form with and without comments, both array forms and the
// one-line threshold, JSON, and the refusal of keys the .cfg syntax cannot carry.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace qmp {
namespace {

ConfigObject sample_tree() {
    ConfigObject root = ConfigObject::make_object("Settings of one run");
    root.add_string("Constant", "pi \"quoted\" \\", "The constant to compute.");
    root.add_integer("DecimalDigits", -1000000);
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
    nested.push_back(ConfigObject::make_array()).push_back(ConfigObject::make_integer(1));
    nested.push_back(ConfigObject::make_object()).add_bool("x", true);
    return root;
}

TEST(CfgWriter, ExactLayoutWithAndWithoutComments) {
    const std::string expected =
        "{   //  Settings of one run\r\n"
        "\r\n"
        "    //  The constant to compute.\r\n"
        "    Constant : \"pi \\\"quoted\\\" \\\\\"\r\n"
        "    DecimalDigits : -1000000\r\n"
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
        "            x : true\r\n"
        "        }\r\n"
        "    ]\r\n"
        "}\r\n";
    EXPECT_EQ(write_cfg(sample_tree(), true), expected);
    EXPECT_EQ(parse_cfg(expected), sample_tree());
    // Without comments: the same text less the comment lines, the empty lines before them and
    // the comments after "{".
    std::string stripped;
    for (uint64_t start = 0, end; start < expected.size(); start = end) {
        end = expected.find("\r\n", start) + 2;
        std::string line = expected.substr(start, end - start);
        if (line == "\r\n" || line.compare(line.find_first_not_of(' '), 2, "//") == 0) continue;
        uint64_t brace = line.find("{   //  ");
        stripped += brace == std::string::npos ? line : line.substr(0, brace + 1) + "\r\n";
    }
    EXPECT_EQ(write_cfg(sample_tree(), false), stripped);
    EXPECT_EQ(write_cfg(ConfigObject::make_integer(INT64_MIN), false), "-9223372036854775808\r\n");
    EXPECT_EQ(write_cfg(ConfigObject::make_object("lost"), true), "{}\r\n");
}

TEST(ConfigWriters, OneLineArraysUpToOneHundredStringBytes) {
    for (uint64_t total : {0u, 99u, 100u, 101u, 150u}) {
        SCOPED_TRACE("string bytes " + std::to_string(total));
        ConfigObject array = ConfigObject::make_array();
        // Integers, booleans and nulls do not count towards the limit.
        for (int i = 0; i < 40; i++) array.push_back(ConfigObject::make_integer(1234567890));
        array.push_back(ConfigObject());
        array.push_back(ConfigObject::make_string(std::string(total / 2, 'x')));
        array.push_back(ConfigObject::make_string(std::string(total - total / 2, '"')));
        for (const std::string& text : {write_cfg(array, false), write_json(array)}) {
            EXPECT_EQ(text.find("\r\n") == text.size() - 2, total <= 100) << text;
        }
        EXPECT_EQ(parse_cfg(write_cfg(array, false)), array);
        EXPECT_EQ(parse_json(write_json(array)), array);
    }
}

TEST(CfgWriter, RefusesKeysTheCfgSyntaxCannotCarry) {
    const std::pair<const char*, const char*> cases[] = {
        {"{\"a b\": 1}", "a b"}, {"{\"\": 1}", ""}, {"{\"a//b\": 1}", "a//b"},
        {"{\"x\": {\"k:\": 1}}", "k:"}};
    for (const auto& [json, key] : cases) {
        ConfigObject tree = parse_json(json);
        EXPECT_EQ(config_test::expect_throw<InvalidParametersException>(
                      [&] { write_cfg(tree, false); },
                      std::string("Key \"") + key + "\" cannot be written in the .cfg syntax."),
                  "ConfigObject::write_cfg()");
        EXPECT_EQ(parse_json(write_json(tree)), tree) << json;  // JSON carries any key
    }
}

TEST(JsonWriter, ExactLayout) {
    ConfigObject root = ConfigObject::make_object("comments are not written");
    root.add_string("s", "a\"b\\c", "nor this");
    root.add_array("l").push_back(ConfigObject::make_integer(-7));
    root.get("l", "T::t()").push_back(ConfigObject());
    ConfigObject& block = root.add_array("b");
    block.push_back(ConfigObject::make_object()).add_bool("x", false);
    block.push_back(ConfigObject::make_array());
    const std::string expected =
        "{\r\n"
        "    \"s\": \"a\\\"b\\\\c\",\r\n"
        "    \"l\": [-7, null],\r\n"
        "    \"b\": [\r\n"
        "        {\r\n"
        "            \"x\": false\r\n"
        "        },\r\n"
        "        []\r\n"
        "    ]\r\n"
        "}\r\n";
    EXPECT_EQ(write_json(root), expected);
    EXPECT_EQ(parse_json(expected), root);
}

}  // namespace
}  // namespace qmp
