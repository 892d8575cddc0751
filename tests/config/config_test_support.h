// Helpers of the configuration tests: exact exception checks and the reproducible seed.
#pragma once

#include "qmp/exception.h"
#include "tests/test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

namespace qmp::config_test {

using qmp::test::seed_note;
using qmp::test::test_seed;

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


}  // namespace qmp::config_test
