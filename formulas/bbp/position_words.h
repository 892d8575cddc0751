// Reading hexadecimal positions and core lists as the user types them. A position is a whole
// decimal number ("1000000") or a number with a size suffix, as the benchmark sizes are
// written: k = 10^3, m = 10^6, b = 10^9, t = 10^12 (lower case), with at most one decimal
// point as long as the value is whole ("2.5b", "100t"). Errors are InvalidParametersException
// under `function`:
//   "Invalid position: <word>"                              not of that form, or not whole
//   "The position must not exceed 1000000000000000000."     above kMaxHexPosition
// A core list is "0-3,8" (ranges and single cores, comma-separated); each core must exist.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv::bbp {

uint64_t parse_hex_position(std::string_view word, const std::string& function);

// "0-3,8" -> {0, 1, 2, 3, 8}. "Invalid core list: <text>" when malformed; a core beyond this
// machine fails as CoreSelector does ("Invalid core #: N").
std::vector<uint32_t> parse_core_list(std::string_view text, const std::string& function);

}  // namespace qv::bbp
