// The constants the program computes, in ascending order of difficulty: token (as accepted on
// the command line and in job files), menu index, group ('P' fast, 'G' moderate, 'B' slow,
// 'R' other), display name, shown value and difficulty (time relative to a radix conversion;
// two numbers are the primary and the secondary algorithm). Token lookup is exact and
// case-sensitive; "apery" and "zeta(3)" are aliases of "zeta3"; an unknown token throws
// InvalidParametersException "Invalid constant token." from "ConstantTable::find()".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv {

struct ConstantEntry {
    const char* token;
    int index;
    char group;
    const char* display_name;
    const char* value;       // "" when the constant depends on an argument
    const char* difficulty;  // "" when none is shown
};

class ConstantTable {
public:
    static const std::vector<ConstantEntry>& entries();
    static const ConstantEntry& find(std::string_view token);
    // find() without throwing; nullptr for an unknown token.
    static const ConstantEntry* try_find(std::string_view token) noexcept;
    // The console's complaint for an unknown token: "Invalid Constant: " + token.
    static std::string invalid_constant_text(std::string_view token);
    // The menu "Compute a Constant: ..." with its columns, group headings and footnote.
    static std::string menu_text();
};

}  // namespace qv
