// The algorithm menus. Costs are the difficulty figures of the constant table (primary /
// secondary); the reduced-memory pi variants and the logarithms have none.
#include "formulas/catalog/algorithm_table.h"

#include <algorithm>
#include <cstdio>

#include "formulas/catalog/constant_table.h"
#include "qmp/exception.h"

namespace qv {

const AlgorithmEntry& AlgorithmMenu::find(std::string_view token) const {
    for (const AlgorithmEntry& e : algorithms) {
        if (e.token == token) return e;
    }
    throw qmp::InvalidParametersException("AlgorithmTable::find()", "Invalid Algorithm: " + std::string(token));
}

std::string AlgorithmMenu::speed_text(const AlgorithmEntry& entry) const {
    if (entry.relative_cost <= 0) return "";
    double fastest = entry.relative_cost;
    for (const AlgorithmEntry& e : algorithms) {
        if (e.relative_cost > 0) fastest = std::min(fastest, e.relative_cost);
    }
    const double ratio = entry.relative_cost / fastest;
    if (ratio < 1.05) return "(fastest)";
    char text[32];
    std::snprintf(text, sizeof text, "(%.1fx slower)", ratio);
    return text;
}

std::string AlgorithmMenu::text() const {
    std::string out;
    char line[160];
    for (const AlgorithmEntry& e : algorithms) {
        std::snprintf(line, sizeof line, "  %-4d%-40s%s", e.index, e.menu_name.c_str(), speed_text(e).c_str());
        std::string s = line;
        while (!s.empty() && s.back() == ' ') s.pop_back();
        out += s + "\n";
    }
    return out;
}

namespace {

AlgorithmMenu make_menu(std::string id, std::vector<std::pair<std::string, std::string>> items,
                        std::vector<double> costs = {}) {
    AlgorithmMenu menu{std::move(id), {}};
    for (size_t i = 0; i < items.size(); ++i) {
        menu.algorithms.push_back({int(i), items[i].first, items[i].second, i < costs.size() ? costs[i] : 0.0});
    }
    return menu;
}

AlgorithmMenu log_menu(uint64_t n) {
    std::vector<std::pair<std::string, std::string>> items;
    if (n == 2) {
        items = {{"zuniga2024iii", "Zuniga (2024-iii)"}, {"zuniga2024ii", "Zuniga (2024-ii)"}, {"zuniga2024i", "Zuniga (2024-i)"}};
    } else if (n == 3) {
        items = {{"zuniga2024i", "Zuniga (2024-i)"}, {"zuniga2024ii", "Zuniga (2024-ii)"}};
    } else if (n == 5) {
        items = {{"zuniga2024i", "Zuniga (2024-i)"}, {"zuniga2025", "Zuniga (2025)"}};
    } else if (n == 10) {
        items = {{"zuniga2025", "Zuniga (2025)"}};
    }
    items.push_back({"machin-primary", "Primary Machin-like Formula"});
    items.push_back({"machin-secondary", "Secondary Machin-like Formula"});
    return make_menu("Menu-Log-Algorithms", std::move(items));
}

}  // namespace

AlgorithmMenu AlgorithmTable::menu_for(std::string_view constant_token, uint64_t log_argument, int brent_exponent) {
    const std::string token = ConstantTable::find(constant_token).token;
    if (token == "pi") {
        return make_menu("Menu-Pi-Algorithms",
                         {{"chudnovsky", "Chudnovsky (1988)"},
                          {"ramanujan", "Ramanujan (1910)"},
                          {"chudnovsky-reduced", "Chudnovsky (1988) - Reduced Memory"},
                          {"ramanujan-reduced", "Ramanujan (1910) - Reduced Memory"}},
                         {15.6, 23.6});
    }
    if (token == "e") return make_menu("Menu-E-Algorithms", {{"exp(1)", "exp(1)"}, {"exp(-1)", "exp(-1)"}}, {4.26, 4.26});
    if (token == "catalan") {
        return make_menu("Menu-Catalan-Algorithms",
                         {{"pilehrood-short", "Pilehrood (2010-short)"}, {"zuniga2023", "Zuniga (2023)"}}, {90.1, 98.0});
    }
    if (token == "lemniscate") {
        return make_menu("Menu-Lemniscate-Algorithms", {{"zuniga2023x", "Zuniga (2023-x)"}, {"guillera", "Guillera"}},
                         {28.8, 28.8});
    }
    if (token == "log") return log_menu(log_argument);
    if (token == "zeta3") {
        return make_menu("Menu-Zeta3-Algorithms",
                         {{"zuniga2023vi", "Zuniga (2023-vi)"}, {"zuniga2023v", "Zuniga (2023-v)"}}, {56.7, 63.4});
    }
    if (token == "gamma" || token == "brent") {
        const std::string shown = brent_exponent > 0 ? " ( n = 2^" + std::to_string(brent_exponent) + " )" : "";
        return make_menu("Menu-Brent-Algorithms",
                         {{"brent-refined", "Brent-McMillan with Refinement" + shown},
                          {"brent-original", "Brent-McMillan" + shown}},
                         {454., 683.});
    }
    if (token == "goldenratio") return make_menu("Menu-Goldenratio-Algorithms", {{"newton", "Newton's Method"}});
    if (token == "sqrt") return make_menu("Menu-Sqrt-Algorithms", {{"newton", "Newton's Method"}});
    return make_menu("Menu-Custom-Algorithms", {{"formula", "User-Defined Formula File"}});
}

}  // namespace qv
