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

TEST(ConfigObject, KindNamesAndKeyRule) {
    const char* names[] = {"Null", "Boolean", "Integer", "String", "Array", "Object"};
    for (int code = 0; code < 6; code++) EXPECT_STREQ(config_kind_name(code), names[code]);
    for (int code : {-1, 6, 255}) EXPECT_STREQ(config_kind_name(code), "invalid type");

    for (const char* key : {"a", "Log-2.x", "_", "0", "a.b-c_d9"}) {
        EXPECT_NO_THROW(ConfigObject::sanitize_key(key)) << key;
    }
    EXPECT_EQ(expect_throw<InvalidParametersException>([] { ConfigObject::sanitize_key(""); },
                                                       "Key cannot be empty."),
              "ConfigObject::sanitize_key()");
    // Includes bytes the .cfg reader takes in keys but the key rule does not.
    for (const std::string& key : std::vector<std::string>{"a b", "a!", "a/b", "a:b", "\xC3\xA9",
                                                           std::string("a\0b", 3), "@"}) {
        EXPECT_EQ(expect_throw<InvalidParametersException>(
                      [&] { ConfigObject::sanitize_key(key); }, "Key must be alphanumeric."),
                  "ConfigObject::sanitize_key()")
            << key;
    }
}

TEST(ConfigObject, AddsKeepOrderAndRefuseExistingKeysUnderTheirOwnName) {
    ConfigObject root = ConfigObject::make_object("root comment");
    root.add_integer("b", 2, "an integer");
    root.add_bool("a", true);
    root.add_string("c", "text");
    root.add_array("d").push_back(ConfigObject::make_integer(7));
    root.add_object("e").add_integer("x", -1);
    root.add_node("f", ConfigObject(), "null member");
    ASSERT_EQ(root.member_count(), 6u);
    EXPECT_EQ(root.member_key(0) + root.member_key(1) + root.member_key(5), "baf");
    EXPECT_EQ(root.member_comment(0) + "|" + root.member_comment(1), "an integer|");
    EXPECT_EQ(root.get("e", "T::t()").get_integer("x", "T::t()"), -1);

    const std::vector<std::pair<const char*, std::function<void()>>> adds = {
        {"ConfigObject::add_bool()", [&] { root.add_bool("a", false); }},
        {"ConfigObject::add_integer()", [&] { root.add_integer("a", 1); }},
        {"ConfigObject::add_string()", [&] { root.add_string("a", ""); }},
        {"ConfigObject::add_array()", [&] { root.add_array("a"); }},
        {"ConfigObject::add_object()", [&] { root.add_object("a"); }},
        {"Object::add_node()", [&] { root.add_node("a", ConfigObject()); }},
    };
    for (const auto& [function, add] : adds) {
        EXPECT_EQ(expect_throw<InvalidParametersException>(add, "Attempted to add an existing key."),
                  function);
    }
    EXPECT_EQ(root.member_count(), 6u);
    EXPECT_TRUE(root.get_bool("a", "T::t()"));  // the refused adds changed nothing
    EXPECT_FALSE(root.insert_parsed_member("a", ConfigObject()));
}

TEST(ConfigObject, LookupAndTypedAccessMessages) {
    ConfigObject root = ConfigObject::make_object();
    root.add_string("DecimalDigits", "many");
    root.add_integer("Threads", 8);
    EXPECT_EQ(expect_throw<InvalidParametersException>(
                  [&] { root.get("Missing", "Settings::read()"); }, "Invalid Key: Missing"),
              "Settings::read()");
    EXPECT_FALSE(root.contains("threads"));  // lookups are case-sensitive
    EXPECT_EQ(expect_throw<ParseException>(
                  [&] { root.get_integer("DecimalDigits", "Settings::read()"); },
                  "DecimalDigits: Expected Integer, got String."),
              "Settings::read()");
    expect_throw<ParseException>([&] { root.get_bool("Threads", "F::f()"); },
                                 "Threads: Expected Boolean, got Integer.");

    const ConfigObject& text = root.get("DecimalDigits", "F::f()");
    expect_throw<ParseException>([&] { text.as_integer(); }, "Expected Integer, got String.");
    expect_throw<ParseException>([&] { text.as_array("Ctx"); }, "Ctx: Expected Array, got String.");
    expect_throw<ParseException>([&] { ConfigObject().as_string(); }, "Expected String, got Null.");
    expect_throw<ParseException>([&] { root.as_bool(); }, "Expected Boolean, got Object.");
    ConfigObject number = ConfigObject::make_integer(3);
    expect_throw<ParseException>([&] { number.as_object(); }, "Expected Object, got Integer.");
    expect_throw<ParseException>([&] { number.add_integer("a", 1); }, "Expected Object, got Integer.");
    expect_throw<ParseException>([&] { number.push_back({}); }, "Expected Array, got Integer.");

    ConfigObject array = ConfigObject::make_array();
    for (int i = 0; i < 3; i++) array.push_back(ConfigObject::make_integer(i));
    EXPECT_EQ(array.as_array_exact(3).size() + array.as_array_at_least(3).size(), 6u);
    expect_throw<InvalidParametersException>([&] { array.as_array_exact(2); },
                                             "Expected array size to be exactly 2");
    expect_throw<InvalidParametersException>([&] { array.as_array_exact(4, "Sizes"); },
                                             "Sizes: Expected array size to be exactly 4");
    expect_throw<InvalidParametersException>([&] { array.as_array_at_least(4); },
                                             "Expected array size to be at least 4");
}

TEST(ConfigObject, EqualityIsStructural) {
    auto build = [](int64_t leaf, bool swap_order, const char* comment) {
        ConfigObject o = ConfigObject::make_object(comment);
        if (swap_order) o.add_integer("y", 2);
        o.add_integer("x", leaf, comment);
        if (!swap_order) o.add_integer("y", 2);
        o.add_array("l").set_block_layout(comment[0] != '\0');
        return o;
    };
    EXPECT_EQ(build(1, false, ""), build(1, false, "note"));  // comments and layout aside
    EXPECT_NE(build(1, false, ""), build(2, false, ""));
    EXPECT_NE(build(1, false, ""), build(1, true, ""));  // member order matters
    EXPECT_NE(ConfigObject::make_integer(0), ConfigObject::make_bool(false));
    EXPECT_NE(ConfigObject::make_string(""), ConfigObject());
    EXPECT_NE(ConfigObject::make_array(), ConfigObject::make_object());
}

}  // namespace
}  // namespace qmp
