// NormalFloatSessionB: the in-memory computation of one constant, in this order: check the
// settings, size the run (the formula's plan and the digit writers' memory), allocate the one
// working block, build the multiplication tables, "Begin Computation:", evaluate the catalog's
// formula (first with the secondary algorithm when the job asks for that verification), convert
// with both hash checks, compare with the secondary result, spot-check, write the digit files
// under working names (renamed when complete), read them back when asked, then write the
// validation file and the JSON report. Every failed check is an exception and leaves no digit
// file under a final name. A session runs only with the token it was made with and that this
// process issued ("AuthorizationToken is invalid."); its seed is set once ("Cannot set to
// different seed.") and is recorded in the report so that a run can be reproduced.
#pragma once

#include <cstdint>
#include <optional>

#include "app/compute/compute_settings.h"
#include "app/compute/run_summary.h"

namespace qv {

struct SessionToken {
    uint64_t value = 0;
};
// The token of this process's driver; the only one sessions accept.
SessionToken issue_session_token();

class NormalFloatSessionB {
public:
    NormalFloatSessionB(const ComputeSettings& settings, SessionToken token);

    // Sets the run's seed; a second, different seed is refused.
    void set(uint64_t seed);
    RunSummary run(SessionToken token);

private:
    ComputeSettings settings_;
    SessionToken token_;
    std::optional<uint64_t> seed_;
};

// The working memory a run of these settings allocates (the menu's "Logical Memory Needed").
uint64_t estimate_working_memory(const ComputeSettings& settings);

// Test hook: when the environment variable QMP_TEST_CORRUPT_DIGIT_WORD holds an index, that
// converted decimal word is changed after the conversion and before its hash check.
inline constexpr const char* kCorruptDigitWordVariable = "QMP_TEST_CORRUPT_DIGIT_WORD";

}  // namespace qv
