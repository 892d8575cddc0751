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
    // The six names are checked through the kind errors below.
    for (int code : {-1, 6, 255}) EXPECT_STREQ(config_kind_name(code), "invalid type");
    for (const char* key : {"a", "Log-2.x", "_", "0", "a.b-c_d9"}) ConfigObject::sanitize_key(key);
    // The bad keys include bytes the .cfg reader takes in keys but the key rule does not.
    const std::pair<std::string, const char*> bad_keys[] = {
        {"", "Key cannot be empty."}, {"a b", "Key must be alphanumeric."},
        {"a!", "Key must be alphanumeric."}, {"a/b", "Key must be alphanumeric."},
        {"\xC3\xA9", "Key must be alphanumeric."}, {std::string("a\0b", 3), "Key must be alphanumeric."}};
    for (const auto& [key, message] : bad_keys) {
        EXPECT_EQ(expect_throw<InvalidParametersException>([&] { ConfigObject::sanitize_key(key); }, message),
                  "ConfigObject::sanitize_key()");
    }
}

TEST(ConfigObject, AddsRefuseBadOrExistingKeysUnderTheirOwnName) {
    // Order, comments and values of successful adds are checked by the writer's exact layout.
    ConfigObject root = ConfigObject::make_object();
    root.add_integer("b", 2);
    root.add_bool("a", true);

    const std::vector<std::pair<const char*, std::function<void(const char*)>>> adds = {
        {"ConfigObject::add_bool()", [&](const char* k) { root.add_bool(k, false); }},
        {"ConfigObject::add_integer()", [&](const char* k) { root.add_integer(k, 1); }},
        {"ConfigObject::add_string()", [&](const char* k) { root.add_string(k, ""); }},
        {"ConfigObject::add_array()", [&](const char* k) { root.add_array(k); }},
        {"ConfigObject::add_object()", [&](const char* k) { root.add_object(k); }},
        {"Object::add_node()", [&](const char* k) { root.add_node(k, ConfigObject()); }}};
    for (const auto& [function, add] : adds) {
        EXPECT_EQ(expect_throw<InvalidParametersException>([&] { add("a"); },
                                                           "Attempted to add an existing key."),
                  function);
        expect_throw<InvalidParametersException>([&] { add("a b"); }, "Key must be alphanumeric.");
    }
    EXPECT_EQ(root.member_count(), 2u);
    EXPECT_TRUE(root.get_bool("a", "T::t()"));  // the refused adds changed nothing
    EXPECT_FALSE(root.insert_parsed_member("a", ConfigObject()));
}

TEST(ConfigObject, LookupTypedAccessAndArrayLengthMessages) {
    ConfigObject root = ConfigObject::make_object();
    root.add_string("DecimalDigits", "many");
    root.add_integer("Threads", 8);
    EXPECT_EQ(expect_throw<InvalidParametersException>([&] { root.get("Missing", "Settings::read()"); },
                                                       "Invalid Key: Missing"),
              "Settings::read()");
    EXPECT_FALSE(root.contains("threads"));  // lookups are case-sensitive
    EXPECT_EQ(expect_throw<ParseException>([&] { root.get_integer("DecimalDigits", "Settings::read()"); },
                                           "DecimalDigits: Expected Integer, got String."),
              "Settings::read()");
    const ConfigObject& text = root.get("DecimalDigits", "F::f()");
    ConfigObject number = ConfigObject::make_integer(3);
    const std::vector<std::pair<std::function<void()>, std::string>> kind_errors = {
        {[&] { root.get_bool("Threads", "F::f()"); }, "Threads: Expected Boolean, got Integer."},
        {[&] { text.as_integer(); }, "Expected Integer, got String."},
        {[&] { text.as_array("Ctx"); }, "Ctx: Expected Array, got String."},
        {[&] { ConfigObject().as_string(); }, "Expected String, got Null."},
        {[&] { root.as_bool(); }, "Expected Boolean, got Object."},
        {[&] { number.as_object(); }, "Expected Object, got Integer."},
        {[&] { number.add_integer("a", 1); }, "Expected Object, got Integer."},
        {[&] { number.push_back({}); }, "Expected Array, got Integer."}};
    for (const auto& [access, message] : kind_errors) expect_throw<ParseException>(access, message);

    ConfigObject array = ConfigObject::make_array();
    for (int i = 0; i < 3; i++) array.push_back(ConfigObject::make_integer(i));
    EXPECT_EQ(array.as_array_exact(3).size() + array.as_array_at_least(3).size(), 6u);
    const std::vector<std::pair<std::function<void()>, std::string>> length_errors = {
        {[&] { array.as_array_exact(2); }, "Expected array size to be exactly 2"},
        {[&] { array.as_array_exact(4, "Sizes"); }, "Sizes: Expected array size to be exactly 4"},
        {[&] { array.as_array_at_least(4); }, "Expected array size to be at least 4"}};
    for (const auto& [access, message] : length_errors) {
        expect_throw<InvalidParametersException>(access, message);
    }
}

TEST(ConfigObject, EqualityIsStructural) {
    const ConfigObject a = parse_cfg("{ x : 1 l : [] }");
    ConfigObject commented = ConfigObject::make_object("comment");
    commented.add_integer("x", 1, "member comment");
    commented.add_array("l").set_block_layout(true);
    EXPECT_EQ(a, commented);  // comments and layout flags aside
    // Member order, keys, values and array elements all count, and so does the kind.
    for (const char* other : {"{ l : [] x : 1 }", "{ y : 1 l : [] }", "{ x : 2 l : [] }", "{ x : 1 l : [0] }"}) {
        EXPECT_NE(a, parse_cfg(other)) << other;
    }
    const std::pair<const char*, const char*> kinds[] = {{"0 ", "false "}, {"\"\"", "null "},
                                                         {"[]", "{}"}};
    for (const auto& [x, y] : kinds) EXPECT_NE(parse_cfg(x), parse_cfg(y)) << x << " vs " << y;
}

}  // namespace
}  // namespace qmp
