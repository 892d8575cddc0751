// Helpers of the configuration tests: exact exception checks and the reproducible seed.
#pragma once

#include "qmp/exception.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

namespace qmp::config_test {

// Runs `action`, which must throw exactly the exception type E (not a subclass or a sibling)
// with the given message; returns the exception's function name for further checks.
template <typename E>
std::string expect_throw(const std::function<void()>& action, const std::string& message) {
    try {
        action();
    } catch (const qmp::Exception& e) {
        EXPECT_EQ(std::string(e.type_name()), E("", "").type_name()) << e.what();
        EXPECT_EQ(e.message(), message);
        return e.function();
    }
    ADD_FAILURE() << "no exception; expected: " << message;
    return {};
}

inline uint64_t test_seed() {
    const char* env = std::getenv("QMP_TEST_SEED");
    return env != nullptr ? std::strtoull(env, nullptr, 10) : 20261122;
}

inline std::string seed_trace() {
    return "seed=" + std::to_string(test_seed()) + " (override with QMP_TEST_SEED)";
}

}  // namespace qmp::config_test
