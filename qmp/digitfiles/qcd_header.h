// The text header of a compressed digit file and its parsing. Layout, byte for byte:
//   "#Compressed Digit File\r\n\r\n"  "FileVersion:\t1.1.0\r\n\r\n"  "Base:\t<radix>\r\n\r\n"
//   "FirstDigits:\t<text>\r\n\r\n"  "TotalDigits:\t<T>\r\n\r\n"  "Blocksize:\t<P>\r\n" (one line
//   end only)  "BlockID:\t<id>\r\n\r\n"  "EndHeader\r\n\r\n"  then one NUL byte.
// The packed words start right after the NUL, unaligned. parse_qcd_header() reads whitespace-
// separated key/value tokens up to "EndHeader", skipping unknown tokens; a number that is not
// all digits keeps its leading digits (none: 0), and one past 2^64 - 1 saturates.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qmp {

struct QcdHeaderFields {
    std::string file_version;
    uint64_t radix = 0;
    std::string first_digits;
    uint64_t total_digits = 0;
    uint64_t digits_per_file = 0;
    uint64_t file_id = 0;
};

// The header text including the final NUL.
std::string build_qcd_header(uint32_t radix, const std::string& first_digits, uint64_t total_digits,
                             uint64_t digits_per_file, uint64_t file_id);

// Parses the fields from the start of a file. Returns the data offset (just past the first NUL
// after "EndHeader"), or nothing when the text ends before it.
std::optional<uint64_t> parse_qcd_header(std::string_view text, QcdHeaderFields& fields);

}  // namespace qmp
