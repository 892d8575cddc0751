#include "app/prompt.h"

#include "qmp/console.h"

#include <limits>

namespace qv {

std::optional<int64_t> parse_integer_line(std::string_view line) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!line.empty() && blank(line.front())) line.remove_prefix(1);
    while (!line.empty() && blank(line.back())) line.remove_suffix(1);
    bool negative = false;
    if (!line.empty() && (line.front() == '-' || line.front() == '+')) {
        negative = line.front() == '-';
        line.remove_prefix(1);
    }
    if (line.empty()) return std::nullopt;
    // Accumulate as a negative number: its range is one larger, so INT64_MIN fits.
    int64_t value = 0;
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    for (char c : line) {
        if (c < '0' || c > '9') return std::nullopt;
        const int digit = c - '0';
        if (value < (kMin + digit) / 10) return std::nullopt;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == kMin) return std::nullopt;
        value = -value;
    }
    return value;
}

int64_t prompt_integer(std::string_view prompt, int64_t min, int64_t max) {
    for (;;) {
        const std::string line = prompt_line(prompt);
        const std::optional<int64_t> value = parse_integer_line(line);
        if (value && *value >= min && *value <= max) return *value;
        qmp::Console::println("Please enter a whole number from " + std::to_string(min) + " to " +
                                  std::to_string(max) + ".",
                              qmp::Console::Colour::Warning);
    }
}

std::string prompt_line(std::string_view prompt) {
    qmp::Console::print(prompt, qmp::Console::Colour::Prompt);
    std::string line;
    if (!qmp::Console::read_line(line)) {
        // The prompt left the cursor mid-line; end it so the shell prompt starts cleanly.
        qmp::Console::println();
        throw EndOfInput{};
    }
    return line;
}

}  // namespace qv
