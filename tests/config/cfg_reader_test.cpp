// The .cfg reader: every syntax error with its line number, the integer limits, string escapes,
// the end of the text inside each kind of value, and the accepted forms (comments, bare keys
// with punctuation, trailing text).
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

void check_errors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& c : cases) {
        SCOPED_TRACE("input: " + c.text);
        EXPECT_EQ(expect_throw<ParseException>([&] { parse_cfg(c.text); }, c.message),
                  "ConfigObject::parse_cfg()");
    }
}

TEST(CfgReader, SeparatorAndBracketErrors) {
    check_errors({
        {",", "Line 1: Don't use commas to separate elements."},
        {"{\n  a : 12,\n  b : 3\n}", "Line 2: Don't use commas to separate elements."},
        {"[1 2 , 3]", "Line 1: Don't use commas to separate elements."},
        {"{ a : \"x\", b : 2 }", "Line 1: Don't use commas to separate elements."},
        {"}", "Line 1: Unexpected '}'."},
        {"[1\n 2 }\n]", "Line 2: Unexpected '}'."},
        {"]", "Line 1: Unexpected ']'."},
        {"{\r\n a : ]\r\n}", "Line 2: Unexpected ']'."},
        {"{ \"a\" : 1 }", "Line 1: Expected identifier."},
        {"{ : 1 }", "Line 1: Expected identifier."},
        {"{ a : 1\n ] }", "Line 2: Expected identifier."},
        {"{ a 1 }", "Line 1: Expected colon after identifier."},
        {"{ a b : 1 }", "Line 1: Expected colon after identifier."},
        {"{ a // the colon is on the next line\n\n = 1 }", "Line 3: Expected colon after identifier."},
        {"{ a : 1\n  a : 2 }", "Line 2: Duplicate key in object."},
        {"{ a : { x : 1 } b : { x : 1 x : 2 } }", "Line 1: Duplicate key in object."},
    });
}

TEST(CfgReader, ScalarErrors) {
    check_errors({
        {"[nul ]", "Line 1: Expected \"null\"."},
        {"[nulll ]", "Line 1: Expected \"null\"."},
        {"[\nNone ]", "Line 2: Invalid integer literal."},
        {"[ tru ]", "Line 1: Expected \"true\" or \"false\"."},
        {"[ false1 ]", "Line 1: Expected \"true\" or \"false\"."},
        {"[ f ]", "Line 1: Expected \"true\" or \"false\"."},
        {"[ True ]", "Line 1: Invalid integer literal."},
        {"[\"a\\n\"]", "Line 1: Invalid escape character: n"},
        {"[\"line\nbreak\" \"tab\\t\"]", "Line 2: Invalid escape character: t"},
        {"[\"\\u0041\"]", "Line 1: Invalid escape character: u"},
        {"[\"\\'\"]", "Line 1: Invalid escape character: '"},
    });
}

TEST(CfgReader, IntegerForms) {
    std::vector<ErrorCase> cases;
    for (const char* bad : {"1x", "-", "--1", "+1", "1.5", "0x10", "1e3", "1_000", "abc", "1/2",
                            "- 1", "12\"s\"", "3{}"}) {
        cases.push_back({std::string("[") + bad + " ]", "Line 1: Invalid integer literal."});
    }
    for (const char* big : {"9223372036854775808", "-9223372036854775809", "18446744073709551615",
                            "18446744073709551616", "18446744073709551620", "99999999999999999999",
                            "123456789012345678901234567890"}) {
        cases.push_back({std::string("{\nn : ") + big + "\n}", "Line 2: Integer literal is too large."});
    }
    check_errors(cases);

    struct Good {
        const char* text;
        int64_t value;
    };
    for (const Good& g : {Good{"9223372036854775807", INT64_MAX}, Good{"-9223372036854775808", INT64_MIN},
                          Good{"0", 0}, Good{"-0", 0}, Good{"007", 7}, Good{"-12", -12}}) {
        SCOPED_TRACE(g.text);
        ConfigObject array = parse_cfg(std::string("[") + g.text + "]");
        ASSERT_EQ(array.as_array().size(), 1u);
        EXPECT_EQ(array.as_array()[0].as_integer(), g.value);
    }
    // Everything that may end an integer: whitespace, closing brackets and a comment.
    ConfigObject ends = parse_cfg("[1\t2\r3\n4 5]");
    EXPECT_EQ(ends.as_array().size(), 5u);
    ConfigObject o = parse_cfg("{a : 1}");
    EXPECT_EQ(o.get_integer("a", "T::t()"), 1);
    EXPECT_EQ(parse_cfg("{a:5// five\n}").get_integer("a", "T::t()"), 5);
}

TEST(CfgReader, AcceptedForms) {
    const std::string text =
        "// settings written by hand\r\n"
        "{\r\n"
        "    Log-2.x : \"a\\\\b\\\"c\"   // one backslash and one quote\r\n"
        "    path/with/slashes : \"x//y\"\r\n"
        "    odd!#$%&'()*+=?@^|~key: -3\r\n"
        "    key// the comment ends the key\r\n"
        "        : null\r\n"
        "    flags : [true false null [] {}]\r\n"
        "    text : \"two\nlines\"\r\n"
        "    nested : { inner : { deep : [ [ 1 ] ] } }\r\n"
        "}\r\n"
        "{ this second object is never looked at";
    ConfigObject root = parse_cfg(text);
    ConfigObject expected = ConfigObject::make_object();
    expected.add_string("Log-2.x", "a\\b\"c");
    expected.insert_parsed_member("path/with/slashes", ConfigObject::make_string("x//y"));
    expected.insert_parsed_member("odd!#$%&'()*+=?@^|~key", ConfigObject::make_integer(-3));
    expected.add_node("key", ConfigObject());
    ConfigObject& flags = expected.add_array("flags");
    flags.push_back(ConfigObject::make_bool(true));
    flags.push_back(ConfigObject::make_bool(false));
    flags.push_back(ConfigObject());
    flags.push_back(ConfigObject::make_array());
    flags.push_back(ConfigObject::make_object());
    expected.add_string("text", "two\nlines");
    ConfigObject inner_list = ConfigObject::make_array();
    inner_list.push_back(ConfigObject::make_integer(1));
    expected.add_object("nested").add_object("inner").add_array("deep").push_back(inner_list);
    EXPECT_EQ(root, expected);

    // Any kind is accepted at the top, and what follows the first value is ignored.
    EXPECT_EQ(parse_cfg("\"s\" garbage ,,, }").as_string(), "s");
    EXPECT_EQ(parse_cfg("12\n{").as_integer(), 12);
    EXPECT_EQ(parse_cfg("{}}}}").member_count(), 0u);
    EXPECT_EQ(parse_cfg(std::string("[\"nul\0byte\"]", 12)).as_array()[0].as_string(),
              std::string("nul\0byte", 8));
}

TEST(CfgReader, LineNumbersCountEveryLineFeed) {
    // Line feeds in comments, inside strings and after CR all count once.
    check_errors({
        {"x", "Line 1: Invalid integer literal."},
        {"// a\n// b\r\n\r\n{ a : 1 b : }", "Line 4: Unexpected '}'."},
        {"{ s : \"1\n2\n3\" t : , }", "Line 3: Don't use commas to separate elements."},
        {"{ a : 1 // comment with \"quote and { brace\n b 2 }", "Line 2: Expected colon after identifier."},
        {"[\n\n\n\n\n\n\n\n\n\n\n 1,]", "Line 12: Don't use commas to separate elements."},
    });
}

TEST(CfgReader, EndOfTextInsideAnyValueIsEndOfStream) {
    const char* cut[] = {
        "",        "   \r\n",     "// only a comment",  "{",          "{ a",      "{ a ",
        "{ a :",   "{ a : ",      "{ a : 1",            "{ a : 1 ",   "{ a : 1/", "{ a : 1 // c",
        "[",       "[1 2",        "[ [ ] { }",          "\"abc",      "\"ab\\",   "\"a\nb",
        "nul",     "null",        "tru",                "false",      "12",       "-",
        "-9",      "{ a : { b : [ 1 ", "{ a : \"x\" ", "{ a : [ \"s\" ] // } ]",
    };
    for (const char* text : cut) {
        SCOPED_TRACE(std::string("input: ") + text);
        EXPECT_THROW(parse_cfg(text), EndOfStreamException);
    }
}

TEST(CfgReader, RefusesAbsurdNesting) {
    std::string deep(2000, '[');
    check_errors({{deep, "Line 1: Nesting is too deep."}});
    std::string fine = std::string(500, '[') + std::string(500, ']');
    EXPECT_EQ(parse_cfg(fine).as_array().size(), 1u);
}

}  // namespace
}  // namespace qmp
