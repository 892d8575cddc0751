// The JSON reader: its own separator messages, the scalar messages it shares with the .cfg
// syntax, line numbers, the end of the text inside each kind of value, and accepted forms.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qmp {
namespace {

using config_test::expect_throw;

struct ErrorCase {
    std::string text;
    std::string message;
};

void check_errors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) {
        SCOPED_TRACE("input: " + c.text);
        EXPECT_EQ(expect_throw<ParseException>([&] { parse_json(c.text); }, c.message),
                  "ConfigObject::parse_json()");
    }
}

TEST(JsonReader, SeparatorErrors) {
    check_errors({
        {",", "Line 1: Unexpected ','."},
        {"[1,,2]", "Line 1: Unexpected ','."},
        {"[,1]", "Line 1: Unexpected ','."},
        {"[1,\n]", "Line 2: Unexpected ']'."},
        {"]", "Line 1: Unexpected ']'."},
        {"}", "Line 1: Unexpected '}'."},
        {"[1}", "Line 1: Unexpected '}'."},
        {"{\"a\": 1]", "Line 1: Unexpected ']'."},
        {"{\"a\": 1,\n}", "Line 2: Unexpected '}'."},
        {"{,\"a\": 1}", "Line 1: Unexpected ','."},
        {"{\"a\": 1,,\"b\": 2}", "Line 1: Unexpected ','."},
        {"{\"a\": 1\n \"b\": 2}", "Line 2: Expected ',' before object key string."},
        {"{\"a\": 1 b: 2}", "Line 1: Expected ',' before identifier."},
        {"[1 2]", "Line 1: Expected ',' before identifier."},
        {"{a: 1}", "Line 1: Expected object key string."},
        {"{\"a\": 1, 2: 3}", "Line 1: Expected object key string."},
        {"{\"a\" 1}", "Line 1: Expected colon after object key string."},
        {"{\"a\"\n\n= 1}", "Line 3: Expected colon after object key string."},
        {"{\"a\": 1, \"b\": 2,\r\n \"a\": 3}", "Line 2: Duplicate key in object."},
        // JSON has no comments.
        {"{\"a\": 1 // note\n}", "Line 1: Expected ',' before identifier."},
    });
}

TEST(JsonReader, ScalarErrorsMatchTheCfgSyntax) {
    check_errors({
        {"[nil]", "Line 1: Expected \"null\"."},
        {"[None]", "Line 1: Invalid integer literal."},
        {"[nul]", "Line 1: Expected \"null\"."},
        {"[ture]", "Line 1: Expected \"true\" or \"false\"."},
        {"[1.5]", "Line 1: Invalid integer literal."},
        {"[1e3]", "Line 1: Invalid integer literal."},
        {"[-]", "Line 1: Invalid integer literal."},
        {"[\"\\n\"]", "Line 1: Invalid escape character: n"},
        {"[\"\\/\"]", "Line 1: Invalid escape character: /"},
        {"[\n9223372036854775808]", "Line 2: Integer literal is too large."},
        {"[18446744073709551616]", "Line 1: Integer literal is too large."},
    });
    ConfigObject limits = parse_json("[9223372036854775807, -9223372036854775808,0]");
    ASSERT_EQ(limits.as_array().size(), 3u);
    EXPECT_EQ(limits.as_array()[0].as_integer(), INT64_MAX);
    EXPECT_EQ(limits.as_array()[1].as_integer(), INT64_MIN);
}

TEST(JsonReader, AcceptedForms) {
    ConfigObject root = parse_json(
        "{\r\n  \"Log-2.x\": \"a\\\\b\\\"c\",\n  \"any key: with spaces\":[true,false , null],"
        "\"e\":{},\"l\":[],\"n\":{\"m\":[[-1]]}}  trailing text is ignored");
    ConfigObject expected = ConfigObject::make_object();
    expected.add_string("Log-2.x", "a\\b\"c");
    ConfigObject list = ConfigObject::make_array();
    list.push_back(ConfigObject::make_bool(true));
    list.push_back(ConfigObject::make_bool(false));
    list.push_back(ConfigObject());
    expected.insert_parsed_member("any key: with spaces", list);
    expected.add_object("e");
    expected.add_array("l");
    ConfigObject inner = ConfigObject::make_array();
    inner.push_back(ConfigObject::make_integer(-1));
    expected.add_object("n").add_array("m").push_back(inner);
    EXPECT_EQ(root, expected);
    EXPECT_EQ(parse_json("\"\"").as_string(), "");
    EXPECT_TRUE(parse_json(" null ").is_null());
}

TEST(JsonReader, EndOfTextInsideAnyValueIsEndOfStream) {
    for (const char* text : {"", "  \n", "{", "{\"a", "{\"a\"", "{\"a\":", "{\"a\": 1", "{\"a\": 1,",
                             "{\"a\": 1, ", "[", "[1", "[1,", "[[],{}", "\"abc", "\"\\", "tru", "true",
                             "nul", "12", "-", "{\"a\": {\"b\": [1, \"x"}) {
        SCOPED_TRACE(std::string("input: ") + text);
        EXPECT_THROW(parse_json(text), EndOfStreamException);
    }
}

}  // namespace
}  // namespace qmp
