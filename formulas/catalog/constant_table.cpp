// The constant table and its menu.
#include "formulas/catalog/constant_table.h"

#include <cstdio>

#include "qmp/exception.h"

namespace qv {

const std::vector<ConstantEntry>& ConstantTable::entries() {
    static const std::vector<ConstantEntry> table = {
        {"sqrt", 0, 'P', "Sqrt(n)", "", "  1.52"},
        {"goldenratio", 1, 'P', "Golden Ratio", "1.618034...", "  1.52"},
        {"e", 2, 'P', "e", "2.718281...", "  4.26 / 4.26"},
        {"pi", 3, 'G', "Pi", "3.141592...", "  15.6 / 23.6"},
        {"lemniscate", 4, 'G', "Lemniscate", "5.244115...", "  28.8 / 28.8"},
        {"log", 5, 'G', "Log(n)", "", "> 30.2"},
        {"zeta3", 6, 'G', "Zeta(3) (Apery's Constant)", "1.202056...", "  56.7 / 63.4"},
        {"catalan", 7, 'G', "Catalan's Constant", "0.915965...", "  90.1 / 98.0"},
        {"gamma", 8, 'B', "Euler-Mascheroni Constant", "0.577215...", "  454. / 683."},
        {"brent", 9, 'B', "Euler-Mascheroni Constant (parameter override)", "", ""},
        {"custom", 10, 'R', "Custom constant with user-defined formula.", "", ""},
    };
    return table;
}

const ConstantEntry* ConstantTable::try_find(std::string_view token) noexcept {
    if (token == "apery" || token == "zeta(3)") token = "zeta3";
    for (const ConstantEntry& e : entries()) {
        if (token == e.token) return &e;
    }
    return nullptr;
}

const ConstantEntry& ConstantTable::find(std::string_view token) {
    const ConstantEntry* e = try_find(token);
    if (e == nullptr) throw qmp::InvalidParametersException("ConstantTable::find()", "Invalid constant token.");
    return *e;
}

std::string ConstantTable::invalid_constant_text(std::string_view token) {
    return "Invalid Constant: " + std::string(token);
}

std::string ConstantTable::menu_text() {
    std::string out = "Compute a Constant: (in ascending order of difficulty to compute)\n\n";
    char line[160];
    std::snprintf(line, sizeof line, "  %-4s%-50s%-14s%s\n", "#", "Constant", "Value", "Approximate Difficulty*");
    out += line;
    char group = 0;
    for (const ConstantEntry& e : entries()) {
        if (e.group != group) {
            group = e.group;
            out += "\n";
            out += group == 'P' ? "Fast Constants:\n"
                 : group == 'G' ? "Moderate Constants:\n"
                 : group == 'B' ? "Slow Constants:\n"
                                : "Other:\n";
        }
        std::snprintf(line, sizeof line, "  %-4d%-50s%-14s%s", e.index, e.display_name, e.value, e.difficulty);
        std::string text = line;
        while (!text.empty() && text.back() == ' ') text.pop_back();
        out += text + "\n";
    }
    out += "\n*Actual numbers will vary. Radix conversion = 1.00\n";
    return out;
}

}  // namespace qv
