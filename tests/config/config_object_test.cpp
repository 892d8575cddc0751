// The tree itself: kind names, the key rule, adds and their messages, keyed and typed access,
// array length checks, member order and equality.
#include "config/config_object.h"

#include "qmp/exception.h"
#include "tests/config/config_test_support.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace qmp {
namespace {

using config_test::expect_throw;

TEST(ConfigObject, KindNamesIndexedByCode) {
    const char* expected[] = {"Null", "Boolean", "Integer", "String", "Array", "Object"};
    for (int code = 0; code < 6; code++) EXPECT_STREQ(config_kind_name(code), expected[code]);
    for (int code : {-1, 6, 7, 255, 1 << 20}) EXPECT_STREQ(config_kind_name(code), "invalid type");
}

TEST(ConfigObject, KeyRule) {
    for (const char* key : {"a", "Log-2.x", "_", "DecimalDigits", "0", "a.b-c_d9"}) {
        EXPECT_NO_THROW(ConfigObject::sanitize_key(key)) << key;
    }
    EXPECT_EQ(expect_throw<InvalidParametersException>([] { ConfigObject::sanitize_key(""); },
                                                       "Key cannot be empty."),
              "ConfigObject::sanitize_key()");
    // Bytes the .cfg reader accepts in keys but the key rule refuses, plus space and high bytes.
    for (const std::string& key : std::vector<std::string>{"a b", "a!", "a/b", "a:b", "a\"", "\xC3\xA9", std::string("a\0b", 3),
                            "a\n", "@"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(expect_throw<InvalidParametersException>(
                      [&] { ConfigObject::sanitize_key(key); }, "Key must be alphanumeric."),
                  "ConfigObject::sanitize_key()");
    }
}

TEST(ConfigObject, AddsKeepOrderAndRefuseExistingKeysUnderTheirOwnName) {
    ConfigObject root = ConfigObject::make_object("root comment");
    root.add_integer("b", 2, "an integer");
    root.add_bool("a", true);
    root.add_string("c", "text");
    root.add_array("d").push_back(ConfigObject::make_integer(7));
    root.add_object("e").add_integer("x", -1);
    root.add_node("f", ConfigObject::make_null(), "null member");
    ASSERT_EQ(root.member_count(), 6u);
    const char* keys[] = {"b", "a", "c", "d", "e", "f"};
    for (uint64_t i = 0; i < 6; i++) EXPECT_EQ(root.member_key(i), keys[i]);
    EXPECT_EQ(root.member_comment(0), "an integer");
    EXPECT_EQ(root.member_comment(1), "");
    EXPECT_EQ(root.member_comment(5), "null member");
    EXPECT_EQ(root.comment(), "root comment");
    EXPECT_EQ(root.get("d", "T::t()").as_array().at(0).as_integer(), 7);
    EXPECT_EQ(root.get("e", "T::t()").get_integer("x", "T::t()"), -1);

    struct Case {
        const char* function;
        std::function<void()> add;
    };
    const Case cases[] = {
        {"ConfigObject::add_bool()", [&] { root.add_bool("a", false); }},
        {"ConfigObject::add_integer()", [&] { root.add_integer("a", 1); }},
        {"ConfigObject::add_string()", [&] { root.add_string("a", ""); }},
        {"ConfigObject::add_array()", [&] { root.add_array("a"); }},
        {"ConfigObject::add_object()", [&] { root.add_object("a"); }},
        {"Object::add_node()", [&] { root.add_node("a", ConfigObject()); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.function);
        EXPECT_EQ(expect_throw<InvalidParametersException>(c.add, "Attempted to add an existing key."),
                  c.function);
        // Key rule before existence: a bad key is reported as such.
        EXPECT_THROW(root.add_integer("bad key", 1), InvalidParametersException);
    }
    EXPECT_EQ(root.member_count(), 6u);
    EXPECT_TRUE(root.get_bool("a", "T::t()"));  // the refused adds changed nothing
}

TEST(ConfigObject, LookupAndTypedAccessMessages) {
    ConfigObject root = ConfigObject::make_object();
    root.add_string("DecimalDigits", "many");
    root.add_integer("Threads", 8);
    root.add_array("List").push_back(ConfigObject::make_bool(false));

    EXPECT_EQ(expect_throw<InvalidParametersException>(
                  [&] { root.get("Missing", "Settings::read()"); }, "Invalid Key: Missing"),
              "Settings::read()");
    EXPECT_EQ(root.find("Missing"), nullptr);
    EXPECT_FALSE(root.contains("threads"));  // lookups are case-sensitive
    EXPECT_EQ(expect_throw<ParseException>(
                  [&] { root.get_integer("DecimalDigits", "Settings::read()"); },
                  "DecimalDigits: Expected Integer, got String."),
              "Settings::read()");
    expect_throw<ParseException>([&] { root.get_string("Threads", "F::f()"); },
                                 "Threads: Expected String, got Integer.");
    expect_throw<ParseException>([&] { root.get_bool("List", "F::f()"); },
                                 "List: Expected Boolean, got Array.");

    const ConfigObject& text = root.get("DecimalDigits", "F::f()");
    expect_throw<ParseException>([&] { text.as_integer(); }, "Expected Integer, got String.");
    expect_throw<ParseException>([&] { text.as_bool("Ctx"); }, "Ctx: Expected Boolean, got String.");
    expect_throw<ParseException>([&] { text.as_array(); }, "Expected Array, got String.");
    expect_throw<ParseException>([&] { text.as_object(); }, "Expected Object, got String.");
    expect_throw<ParseException>([&] { ConfigObject().as_string(); }, "Expected String, got Null.");
    expect_throw<ParseException>([&] { root.as_integer("Root"); },
                                 "Root: Expected Integer, got Object.");
    // Members can only be added to an Object, elements only to an Array.
    ConfigObject number = ConfigObject::make_integer(3);
    expect_throw<ParseException>([&] { number.add_integer("a", 1); }, "Expected Object, got Integer.");
    expect_throw<ParseException>([&] { number.push_back(ConfigObject()); },
                                 "Expected Array, got Integer.");
}

TEST(ConfigObject, ArrayLengthChecks) {
    ConfigObject array = ConfigObject::make_array();
    for (int i = 0; i < 3; i++) array.push_back(ConfigObject::make_integer(i));
    EXPECT_EQ(array.as_array_exact(3).size(), 3u);
    EXPECT_EQ(array.as_array_at_least(3).size(), 3u);
    EXPECT_EQ(array.as_array_at_least(0).size(), 3u);
    expect_throw<InvalidParametersException>([&] { array.as_array_exact(2); },
                                             "Expected array size to be exactly 2");
    expect_throw<InvalidParametersException>([&] { array.as_array_exact(4, "Sizes"); },
                                             "Sizes: Expected array size to be exactly 4");
    expect_throw<InvalidParametersException>([&] { array.as_array_at_least(4); },
                                             "Expected array size to be at least 4");
    expect_throw<ParseException>([] { ConfigObject::make_integer(1).as_array_exact(1, "X"); },
                                 "X: Expected Array, got Integer.");
}

TEST(ConfigObject, EqualityIsStructural) {
    auto build = [](int64_t leaf, bool swap_order, const char* comment) {
        ConfigObject o = ConfigObject::make_object(comment);
        if (swap_order) o.add_integer("y", 2);
        o.add_integer("x", leaf, comment);
        if (!swap_order) o.add_integer("y", 2);
        ConfigObject& list = o.add_array("l");
        list.set_block_layout(comment[0] != '\0');
        list.push_back(ConfigObject::make_string("s"));
        return o;
    };
    // Comments and layout flags are not part of the value.
    EXPECT_EQ(build(1, false, ""), build(1, false, "note"));
    EXPECT_NE(build(1, false, ""), build(2, false, ""));
    EXPECT_NE(build(1, false, ""), build(1, true, ""));  // member order matters
    EXPECT_NE(ConfigObject::make_integer(0), ConfigObject::make_bool(false));
    EXPECT_NE(ConfigObject::make_string(""), ConfigObject());
    EXPECT_NE(ConfigObject::make_array(), ConfigObject::make_object());
    EXPECT_EQ(ConfigObject(), ConfigObject::make_null());
}

}  // namespace
}  // namespace qmp
