// Names of digit files and the number texts shown with them. The digits of a constant in one
// radix share a base name: "<constant> - Dec - <algorithm>" or "<constant> - Hex - <algorithm>"
// (any other radix: InvalidParametersException "Invalid Base"). A text file is the base name
// plus ".txt"; file number id of a compressed set is "<base> - <id>.qcd", written under the
// working name "<base> - <id> (incomplete).qcd" until it is complete.
#pragma once

#include <cstdint>
#include <string>

namespace qmp {

std::string digit_file_base_name(const std::string& constant, uint32_t radix, const std::string& algorithm);
std::string qcd_file_name(const std::string& base, uint64_t file_id);
std::string qcd_working_name(const std::string& base, uint64_t file_id);
// "<dir>/<name>", or the name alone when dir is empty.
std::string join_path(const std::string& dir, const std::string& name);

// A count with thousands separators: 1000000 -> "1,000,000".
std::string format_with_commas(uint64_t value);

}  // namespace qmp
