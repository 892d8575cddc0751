// Both readers: every syntax error with its line number, the integer limits, the string
// escapes, the end of the text inside each kind of value, and the accepted forms (comments,
// bare keys with punctuation, trailing text), checked against the same tree read as JSON.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qmp {
namespace {

using config_test::expect_throw;

enum Syntax : bool { kCfg = false, kJson = true };

ConfigObject parse(Syntax syntax, std::string_view text) {
    return syntax == kJson ? parse_json(text) : parse_cfg(text);
}

struct ErrorCase {
    Syntax syntax;
    std::string text;
    std::string message;  // with the "Line N: " prefix
};

void check_errors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) {
        SCOPED_TRACE((c.syntax == kJson ? "json: " : "cfg: ") + c.text);
        EXPECT_EQ(expect_throw<ParseException>([&] { parse(c.syntax, c.text); }, c.message),
                  c.syntax == kJson ? "ConfigObject::parse_json()" : "ConfigObject::parse_cfg()");
    }
}

TEST(ConfigReaders, SyntaxErrorsWithTheirLineNumbers) {
    const std::string commas = "Don't use commas to separate elements.";
    const std::string colon = "Expected colon after identifier.";
    check_errors({
        // .cfg: a comma where a value starts or right after an integer is named; elsewhere it
        // reads as an empty key.
        {kCfg, ",", "Line 1: " + commas}, {kCfg, "[1 2 , 3]", "Line 1: " + commas},
        {kCfg, "{\n  a : 12,\n  b : 3\n}", "Line 2: " + commas},
        {kCfg, "{ a : \"x\",\n b : 2 }", "Line 1: Expected identifier."},
        {kCfg, "}", "Line 1: Unexpected '}'."}, {kCfg, "[1\n 2 }\n]", "Line 2: Unexpected '}'."},
        {kCfg, "{\r\n a : ]\r\n}", "Line 2: Unexpected ']'."},
        {kCfg, "{ \"a\" : 1 }", "Line 1: Expected identifier."},
        {kCfg, "{ a : 1\n ] }", "Line 2: Expected identifier."},
        {kCfg, "{ a b : 1 }", "Line 1: " + colon},
        {kCfg, "{ a // the colon is on the next line\n\n = 1 }", "Line 3: " + colon},
        {kCfg, "{ a : 1\n  a : 2 }", "Line 2: Duplicate key in object."},
        {kCfg, "[nulll ]", "Line 1: Expected \"null\"."},
        {kCfg, "[ false1 ]", "Line 1: Expected \"true\" or \"false\"."},
        {kCfg, "[\nTrue ]", "Line 2: Invalid integer literal."},
        {kCfg, "[ / ]", "Line 1: Invalid integer literal."},  // one slash is no comment
        // Line feeds in comments, in strings and after CR all count once.
        {kCfg, "// a\n// b\r\n\r\n{ a : 1 b : }", "Line 4: Unexpected '}'."},
        {kCfg, "{ a : 1 // \"quote and { brace\n b 2 }", "Line 2: " + colon},
        {kCfg, "[\"line\nbreak\" \"tab\\t\"]", "Line 2: Invalid escape character: t"},
        {kCfg, std::string(1001, '['), "Line 1: Nesting is too deep."},
        {kJson, "[1,,2]", "Line 1: Unexpected ','."}, {kJson, "{,\"a\": 1}", "Line 1: Unexpected ','."},
        {kJson, "[1,\n]", "Line 2: Unexpected ']'."}, {kJson, "{\"a\": 1]", "Line 1: Unexpected ']'."},
        {kJson, "[1}", "Line 1: Unexpected '}'."}, {kJson, "{\"a\": 1,\n}", "Line 2: Unexpected '}'."},
        {kJson, "{\"a\": 1\n \"b\": 2}", "Line 2: Expected ',' before object key string."},
        {kJson, "{\"a\": 1 b: 2}", "Line 1: Expected ',' before identifier."},
        {kJson, "[1 2]", "Line 1: Expected ',' before identifier."},
        {kJson, "{\"a\": 1 // no comments in JSON\n}", "Line 1: Expected ',' before identifier."},
        {kJson, "{a: 1}", "Line 1: Expected object key string."},
        {kJson, "{\"a\"\n\n= 1}", "Line 3: Expected colon after object key string."},
        {kJson, "{\"a\": 1, \"b\": 2,\r\n \"a\": 3}", "Line 2: Duplicate key in object."},
        {kJson, "[nil]", "Line 1: Expected \"null\"."},
        {kJson, "[ture]", "Line 1: Expected \"true\" or \"false\"."},
        {kJson, std::string(1001, '['), "Line 1: Nesting is too deep."},
    });
    EXPECT_EQ(parse_cfg(std::string(1000, '[') + std::string(1000, ']')).as_array().size(), 1u);
}

TEST(ConfigReaders, ScalarErrorsAreTheSameInBothSyntaxes) {
    std::vector<ErrorCase> cases;
    for (Syntax syntax : {kCfg, kJson}) {
        for (const char* bad : {"1x", "-", "--1", "+1", "1.5", "1e3", "0x10", "1_000", "abc", "- 1", "3{}"}) {
            cases.push_back({syntax, std::string("[") + bad + "]", "Line 1: Invalid integer literal."});
        }
        // Both overflow paths: past 0x1999999999999999 before "* 10", and a carry on "+ digit".
        for (const char* big : {"9223372036854775808", "-9223372036854775809", "18446744073709551615",
                                "18446744073709551616", "18446744073709551620", "99999999999999999999"}) {
            cases.push_back({syntax, std::string("[\n") + big + "]",
                             "Line 2: Integer literal is too large."});
        }
        for (const char* escape : {"n", "t", "/", "u0041", "'"}) {
            cases.push_back({syntax, std::string("[\"a\\") + escape + "\"]",
                             std::string("Line 1: Invalid escape character: ") + escape[0]});
        }
    }
    check_errors(cases);
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
        "    limits : [9223372036854775807 -9223372036854775808 -0 007 12//c\n]\r\n"
        "    text : \"two\nlines\"\r\n"
        "    nested : { inner : { deep : [ [ 1 ] ] } }\r\n"
        "}\r\n"
        "{ a second object is never looked at";
    const std::string json =
        "{\"Log-2.x\": \"a\\\\b\\\"c\", \"path/with/slashes\":\"x//y\",\n"
        "\"odd!#$%&'()*+=?@^|~key\" : -3, \"key\": null, \"flags\": [true,false,null,[],{}],"
        "\"limits\": [9223372036854775807,-9223372036854775808,-0,007,12],"
        "\"text\": \"two\nlines\", \"nested\": {\"inner\": {\"deep\": [[1]]}}} ,trailing";
    const ConfigObject from_cfg = parse_cfg(cfg);
    EXPECT_EQ(from_cfg, parse_json(json));
    ASSERT_EQ(from_cfg.member_count(), 8u);
    EXPECT_EQ(from_cfg.get_string("Log-2.x", "T::t()"), "a\\b\"c");
    EXPECT_EQ(from_cfg.member_key(3), "key");
    const std::vector<ConfigObject>& limits = from_cfg.get("limits", "T::t()").as_array_exact(5);
    const int64_t expected[] = {INT64_MAX, INT64_MIN, 0, 7, 12};
    for (int i = 0; i < 5; i++) EXPECT_EQ(limits[i].as_integer(), expected[i]);
    // Any kind may stand at the top; a NUL byte is an ordinary string byte.
    EXPECT_EQ(parse_cfg("12\n{").as_integer(), 12);
    EXPECT_EQ(parse_json(std::string("\"a\0b\"", 5)).as_string(), std::string("a\0b", 3));
}

TEST(ConfigReaders, EndOfTextInsideAnyValueIsEndOfStream) {
    const std::vector<std::pair<Syntax, const char*>> cases = {
        {kCfg, ""}, {kCfg, "   \r\n"}, {kCfg, "// only a comment"}, {kCfg, "{"}, {kCfg, "{ a"},
        {kCfg, "{ a :"}, {kCfg, "{ a : 1/"}, {kCfg, "{ a : 1 // c"}, {kCfg, "[1 2"},
        {kCfg, "\"abc"}, {kCfg, "\"ab\\"}, {kCfg, "\"a\nb"}, {kCfg, "nul"}, {kCfg, "false"},
        {kCfg, "12"}, {kCfg, "-"}, {kCfg, "{ a : { b : [ 1 "}, {kCfg, "{ a : [ \"s\" ] // } ]"},
        {kJson, ""}, {kJson, "{"}, {kJson, "{\"a"}, {kJson, "{\"a\""}, {kJson, "{\"a\":"},
        {kJson, "{\"a\": 1,"}, {kJson, "[1,"}, {kJson, "[[],{}"}, {kJson, "\"\\"},
        {kJson, "true"}, {kJson, "-"}, {kJson, "{\"a\": {\"b\": [1, \"x"}};
    for (const auto& [syntax, text] : cases) {
        SCOPED_TRACE(std::string(syntax == kJson ? "json: " : "cfg: ") + text);
        EXPECT_THROW(parse(syntax, text), EndOfStreamException);
    }
}

}  // namespace
}  // namespace qmp
