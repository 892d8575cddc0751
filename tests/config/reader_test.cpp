// Both readers: every syntax error with its line number, the integer limits, string escapes,
// the end of the text inside each kind of value, and the accepted forms (comments, bare keys
// with punctuation, trailing text), each checked against the same tree read from the other
// syntax.
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
    std::string message;  // with the "Line N: " prefix
};

void check_errors(bool json, const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) {
        SCOPED_TRACE((json ? "json: " : "cfg: ") + c.text);
        std::string function = expect_throw<ParseException>(
            [&] { json ? parse_json(c.text) : parse_cfg(c.text); }, c.message);
        EXPECT_EQ(function, json ? "ConfigObject::parse_json()" : "ConfigObject::parse_cfg()");
    }
}

TEST(CfgReader, SyntaxErrors) {
    check_errors(false, {
        {",", "Line 1: Don't use commas to separate elements."},
        {"{\n  a : 12,\n  b : 3\n}", "Line 2: Don't use commas to separate elements."},
        {"[1 2 , 3]", "Line 1: Don't use commas to separate elements."},
        {"{ a : \"x\", b : 2 }", "Line 1: Don't use commas to separate elements."},
        {"}", "Line 1: Unexpected '}'."},
        {"[1\n 2 }\n]", "Line 2: Unexpected '}'."},
        {"{\r\n a : ]\r\n}", "Line 2: Unexpected ']'."},
        {"{ \"a\" : 1 }", "Line 1: Expected identifier."},
        {"{ a : 1\n ] }", "Line 2: Expected identifier."},
        {"{ a b : 1 }", "Line 1: Expected colon after identifier."},
        {"{ a // the colon is on the next line\n\n = 1 }", "Line 3: Expected colon after identifier."},
        {"{ a : 1\n  a : 2 }", "Line 2: Duplicate key in object."},
        {"[nulll ]", "Line 1: Expected \"null\"."},
        {"[ false1 ]", "Line 1: Expected \"true\" or \"false\"."},
        {"[\nTrue ]", "Line 2: Invalid integer literal."},
        {"[\"line\nbreak\" \"tab\\t\"]", "Line 2: Invalid escape character: t"},
        {"[\"\\n\"]", "Line 1: Invalid escape character: n"},
        // Line feeds in comments, in strings and after CR all count once.
        {"// a\n// b\r\n\r\n{ a : 1 b : }", "Line 4: Unexpected '}'."},
        {"{ a : 1 // \"quote and { brace\n b 2 }", "Line 2: Expected colon after identifier."},
        {std::string(2000, '['), "Line 1: Nesting is too deep."},
    });
    EXPECT_EQ(parse_cfg(std::string(500, '[') + std::string(500, ']')).as_array().size(), 1u);
}

TEST(JsonReader, SyntaxErrors) {
    check_errors(true, {
        {"[1,,2]", "Line 1: Unexpected ','."},
        {"{,\"a\": 1}", "Line 1: Unexpected ','."},
        {"[1,\n]", "Line 2: Unexpected ']'."},
        {"{\"a\": 1]", "Line 1: Unexpected ']'."},
        {"[1}", "Line 1: Unexpected '}'."},
        {"{\"a\": 1,\n}", "Line 2: Unexpected '}'."},
        {"{\"a\": 1\n \"b\": 2}", "Line 2: Expected ',' before object key string."},
        {"{\"a\": 1 b: 2}", "Line 1: Expected ',' before identifier."},
        {"[1 2]", "Line 1: Expected ',' before identifier."},
        {"{\"a\": 1 // no comments in JSON\n}", "Line 1: Expected ',' before identifier."},
        {"{a: 1}", "Line 1: Expected object key string."},
        {"{\"a\"\n\n= 1}", "Line 3: Expected colon after object key string."},
        {"{\"a\": 1, \"b\": 2,\r\n \"a\": 3}", "Line 2: Duplicate key in object."},
        {"[nil]", "Line 1: Expected \"null\"."},
        {"[ture]", "Line 1: Expected \"true\" or \"false\"."},
        {"[1.5]", "Line 1: Invalid integer literal."},
        {"[\"\\/\"]", "Line 1: Invalid escape character: /"},
    });
}

TEST(ConfigReaders, IntegerLimitsAndForms) {
    for (bool json : {false, true}) {
        std::vector<ErrorCase> cases;
        for (const char* bad : {"1x", "-", "--1", "+1", "1e3", "0x10", "1_000", "abc", "- 1", "3{}"}) {
            cases.push_back({std::string("[") + bad + "]", "Line 1: Invalid integer literal."});
        }
        // Both overflow paths: past 0x1999999999999999 before "* 10", and a carry on "+ digit".
        for (const char* big : {"9223372036854775808", "-9223372036854775809", "18446744073709551615",
                                "18446744073709551616", "18446744073709551620", "99999999999999999999"}) {
            cases.push_back({std::string("[\n") + big + "]", "Line 2: Integer literal is too large."});
        }
        check_errors(json, cases);
    }
    const char* text = "[9223372036854775807 -9223372036854775808 -0 007 12//c\n]";
    const std::vector<int64_t> expected = {INT64_MAX, INT64_MIN, 0, 7, 12};
    const ConfigObject tree = parse_cfg(text);
    const std::vector<ConfigObject>& values = tree.as_array();
    ASSERT_EQ(values.size(), expected.size());
    for (uint64_t i = 0; i < expected.size(); i++) EXPECT_EQ(values[i].as_integer(), expected[i]);
}

TEST(ConfigReaders, AcceptedFormsAgreeAcrossSyntaxes) {
    const std::string cfg =
        "// written by hand\r\n"
        "{\r\n"
        "    Log-2.x : \"a\\\\b\\\"c\"   // one backslash and one quote\r\n"
        "    path/with/slashes : \"x//y\"\r\n"
        "    odd!#$%&'()*+=?@^|~key: -3\r\n"
        "    key// the comment ends the key\r\n"
        "        : null\r\n"
        "    flags : [true\tfalse\rnull [] {}]\r\n"
        "    text : \"two\nlines\"\r\n"
        "    nested : { inner : { deep : [ [ 1 ] ] } }\r\n"
        "}\r\n"
        "{ a second object is never looked at";
    const std::string json =
        "{\"Log-2.x\": \"a\\\\b\\\"c\", \"path/with/slashes\":\"x//y\",\n"
        "\"odd!#$%&'()*+=?@^|~key\" : -3, \"key\": null, \"flags\": [true,false,null,[],{}],"
        "\"text\": \"two\nlines\", \"nested\": {\"inner\": {\"deep\": [[1]]}}} ,trailing";
    ConfigObject from_cfg = parse_cfg(cfg);
    EXPECT_EQ(from_cfg, parse_json(json));
    ASSERT_EQ(from_cfg.member_count(), 7u);
    EXPECT_EQ(from_cfg.get_string("Log-2.x", "T::t()"), "a\\b\"c");
    EXPECT_EQ(from_cfg.member_key(3), "key");
    EXPECT_EQ(from_cfg.get("flags", "T::t()").as_array().size(), 5u);
    // Any kind may stand at the top; a NUL byte is an ordinary string byte.
    EXPECT_EQ(parse_cfg("12\n{").as_integer(), 12);
    EXPECT_EQ(parse_json(std::string("\"a\0b\"", 5)).as_string(), std::string("a\0b", 3));
}

TEST(ConfigReaders, EndOfTextInsideAnyValueIsEndOfStream) {
    const std::vector<const char*> cfg = {
        "",    "   \r\n", "// only a comment", "{",      "{ a",     "{ a :",   "{ a : 1/",
        "{ a : 1 // c", "[1 2", "\"abc", "\"ab\\", "\"a\nb", "nul", "false", "12", "-",
        "{ a : { b : [ 1 ", "{ a : [ \"s\" ] // } ]"};
    const std::vector<const char*> json = {
        "",   "{",   "{\"a",  "{\"a\"", "{\"a\":", "{\"a\": 1,", "[1,",  "[[],{}",
        "\"\\", "true", "-",  "{\"a\": {\"b\": [1, \"x"};
    for (bool is_json : {false, true}) {
        for (const char* text : is_json ? json : cfg) {
            SCOPED_TRACE(std::string(is_json ? "json: " : "cfg: ") + text);
            EXPECT_THROW(is_json ? parse_json(text) : parse_cfg(text), EndOfStreamException);
        }
    }
}

}  // namespace
}  // namespace qmp
