// Interactive prompts on standard input. An integer prompt accepts only a whole decimal number
// within [min, max] and asks again otherwise, so a typo never selects anything. The end of
// standard input at any prompt throws EndOfInput, which the outermost handler turns into a clean
// exit with status 0: a closed or exhausted input can never make a menu loop forever.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

// Thrown when standard input ends at a prompt. Deliberately not a std::exception, so that no
// handler written for failures swallows it on its way to the outermost handler.
struct EndOfInput {};

// Parses a whole line as a decimal integer (surrounding blanks allowed, optional '-').
// Returns nothing for an empty line, other characters or a value outside int64_t.
std::optional<int64_t> parse_integer_line(std::string_view line);

// Prints `prompt`, reads a line; repeats with a hint until it holds an integer in [min, max].
int64_t prompt_integer(std::string_view prompt, int64_t min, int64_t max);
// Prints `prompt` and returns the line read (without its line end).
std::string prompt_line(std::string_view prompt);

}  // namespace qv
