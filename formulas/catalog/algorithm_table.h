// The algorithms offered for each constant, as menus of (index, token) pairs: index 0 is the
// primary algorithm (the default) and index 1 the secondary one that verifies a computation.
// Each entry carries its menu name and a relative cost (time relative to a radix conversion,
// 0 when unknown) from which the menu prints "(fastest)" or "(1.1x slower)". The logarithm's
// menu depends on its argument: the dedicated series of log 2, 3, 5 and 10 come before the two
// Machin-like searches. An unknown token throws InvalidParametersException "Invalid Algorithm: "
// + token from "AlgorithmTable::find()".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

struct AlgorithmEntry {
    int index;
    std::string token;
    std::string menu_name;
    double relative_cost;
};

struct AlgorithmMenu {
    std::string menu_id;  // "Menu-Pi-Algorithms", ...
    std::vector<AlgorithmEntry> algorithms;

    const AlgorithmEntry& find(std::string_view token) const;
    const AlgorithmEntry& primary() const { return algorithms.at(0); }
    const AlgorithmEntry& secondary() const { return algorithms.at(algorithms.size() > 1 ? 1 : 0); }
    // "(fastest)", "(1.5x slower)", or "" when the cost is unknown.
    std::string speed_text(const AlgorithmEntry& entry) const;
    // One line per algorithm: index, menu name, speed.
    std::string text() const;
};

class AlgorithmTable {
public:
    // The menu of a constant token (aliases accepted; "gamma" and "brent" share
    // "Menu-Brent-Algorithms"). `log_argument` selects the logarithm's menu; `brent_exponent`
    // (k of n = 2^k) is shown in the Brent-McMillan names when it is positive.
    static AlgorithmMenu menu_for(std::string_view constant_token, uint64_t log_argument = 0,
                                  int brent_exponent = 0);
};

}  // namespace qv
