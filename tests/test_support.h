// Helpers every test suite shares: the random seed (a fixed default so that runs repeat;
// QMP_TEST_SEED, decimal or 0x-hex, picks another) with the note that puts it in a failure's
// trace, and an exact check of a thrown exception's class, function name and message.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <typeinfo>

namespace qmp::test {

inline uint64_t test_seed() {
    const char* s = std::getenv("QMP_TEST_SEED");
    return (s != nullptr && s[0] != '\0') ? std::strtoull(s, nullptr, 0) : 20261122;
}

inline std::string seed_note() { return "QMP_TEST_SEED=" + std::to_string(test_seed()); }

// Expects f to throw exactly class E (not a subclass) naming `function` with exactly `message`.
template <typename E, typename F>
void expect_throw(F&& f, const std::string& function, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected " << function << ": " << message;
    } catch (const E& e) {
        EXPECT_EQ(e.function(), function);
        EXPECT_EQ(e.message(), message);
        EXPECT_TRUE(typeid(e) == typeid(E)) << e.type_name();
    }
}

}  // namespace qmp::test
