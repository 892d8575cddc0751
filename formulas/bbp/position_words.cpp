// Position words and core lists (see position_words.h).
#include "formulas/bbp/position_words.h"

#include "formulas/bbp/digit_formulas.h"
#include "qmp/exception.h"
#include "qmp/parallel/core_selector.h"

namespace qv::bbp {
namespace {

int suffix_power(char c) {
    switch (c) {
        case 'k': return 3;
        case 'm': return 6;
        case 'b': return 9;
        case 't': return 12;
        default: return -1;
    }
}

}  // namespace

uint64_t parse_hex_position(std::string_view word, const std::string& function) {
    const std::string invalid = "Invalid position: " + std::string(word);
    const std::string too_large = "The position must not exceed " + std::to_string(kMaxHexPosition) + ".";
    std::string_view digits = word;
    int power = 0;
    if (!digits.empty() && suffix_power(digits.back()) >= 0) {
        power = suffix_power(digits.back());
        digits.remove_suffix(1);
    }
    // Integer and fraction digits; a fraction needs a suffix to scale it back to a whole number.
    const size_t point = digits.find('.');
    const std::string_view whole = digits.substr(0, point);
    const std::string_view fraction = point == std::string_view::npos ? std::string_view() : digits.substr(point + 1);
    if (whole.empty() || (point != std::string_view::npos && fraction.empty()))
        throw qmp::InvalidParametersException(function, invalid);
    for (std::string_view part : {whole, fraction})
        for (char c : part)
            if (c < '0' || c > '9') throw qmp::InvalidParametersException(function, invalid);
    if (int(fraction.size()) > power) {
        // Only zeros may stand beyond the scale: "2.50m" is whole, "2.5000005m" is not.
        for (size_t i = size_t(power); i < fraction.size(); ++i)
            if (fraction[i] != '0') throw qmp::InvalidParametersException(function, invalid);
    }
    // value = whole * 10^power + fraction scaled, checked against the limit as it grows.
    uint64_t value = 0;
    auto push_digit = [&](int d) {
        if (value > (kMaxHexPosition - uint64_t(d)) / 10) throw qmp::InvalidParametersException(function, too_large);
        value = value * 10 + uint64_t(d);
    };
    for (char c : whole) push_digit(c - '0');
    for (int i = 0; i < power; ++i) push_digit(size_t(i) < fraction.size() ? fraction[size_t(i)] - '0' : 0);
    return value;
}

std::vector<uint32_t> parse_core_list(std::string_view text, const std::string& function) {
    const std::string invalid = "Invalid core list: " + std::string(text);
    std::vector<uint32_t> cores;
    auto read_number = [&](std::string_view& s) {
        uint64_t v = 0;
        size_t n = 0;
        while (n < s.size() && s[n] >= '0' && s[n] <= '9' && n < 6) v = v * 10 + uint64_t(s[n++] - '0');
        if (n == 0 || (n < s.size() && s[n] >= '0' && s[n] <= '9'))
            throw qmp::InvalidParametersException(function, invalid);
        s.remove_prefix(n);
        return uint32_t(v);
    };
    std::string_view s = text;
    while (!s.empty()) {
        const uint32_t first = read_number(s);
        uint32_t last = first;
        if (!s.empty() && s.front() == '-') {
            s.remove_prefix(1);
            last = read_number(s);
            if (last < first) throw qmp::InvalidParametersException(function, invalid);
        }
        for (uint32_t c = first; c <= last; ++c) cores.push_back(c);
        if (!s.empty()) {
            if (s.front() != ',' || s.size() == 1) throw qmp::InvalidParametersException(function, invalid);
            s.remove_prefix(1);
        }
    }
    if (cores.empty()) throw qmp::InvalidParametersException(function, invalid);
    // Checks each core against this machine ("Invalid core #: N").
    return qmp::CoreSelector(cores).cores();
}

}  // namespace qv::bbp
