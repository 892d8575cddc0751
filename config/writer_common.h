// Pieces shared by the .cfg and JSON writers: the quoted form of a string that both readers
// read back to the same bytes (only '"' and '\' are escaped, every other byte is written as
// is), the test that decides whether an array fits on one line, and indentation.
// Internal to config/.
#pragma once

#include "config/config_object.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qmp::config_detail {

// Arrays whose String elements hold more bytes than this together are written in block form.
inline constexpr uint64_t kInlineArrayMaxStringBytes = 100;

void append_quoted(std::string& out, std::string_view text);
// True when the array is not marked for block layout, holds no Array or Object element and its
// String texts total at most kInlineArrayMaxStringBytes bytes.
bool array_fits_inline(const ConfigObject& array);
void append_indent(std::string& out, uint32_t level);
// Integer in plain decimal, leading '-' when negative.
void append_integer(std::string& out, int64_t value);

}  // namespace qmp::config_detail
