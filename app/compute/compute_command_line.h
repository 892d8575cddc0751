// The words of the "custom" action: CONSTANT [ARGUMENT] DIGITS followed or interleaved with
// options, mapped onto the same ComputeSettings a job file gives. ARGUMENT is n for sqrt and
// log, the exponent k for brent, the formula file for custom. DIGITS is a count with an
// optional suffix k, m, b or t (10^3, 10^6, 10^9, 10^12): "1m", "25m", "100003".
// Options: -algorithm/-alg TOKEN, -hex, -o DIR ("-" = standard output), -format txt|qcd,
// -compress (same as -format qcd), -digitsperfile N, -verify (second computation with the secondary algorithm), -outputverify
// (read the files back), -T N (worker threads), -TD N, -PF FRAMEWORK, -MA ALLOCATOR.
// -swap is read and refused; -M, -minIO and -bytesperseek only exist with it.
// Errors: "Invalid Command: " + word, "Invalid Parameter: " + word (InvalidParametersException
// at "CustomCompute::parse_options()"), "Expected more parameters." (CommandLineException),
// and the catalog's "Invalid constant token." / "Invalid Algorithm: " + token.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "app/command_line.h"
#include "app/compute/compute_settings.h"

namespace qv {

// "1m" -> 1000000; nothing for anything that is not digits with at most one suffix, or that
// overflows 64 bits.
std::optional<uint64_t> parse_digit_count(std::string_view word);

ComputeSettings parse_compute_command_line(qmp::CommandLine& args);

}  // namespace qv
