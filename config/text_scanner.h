// The byte scanner shared by the .cfg and JSON readers: one forward pointer over the text, a
// line counter from 0 (printed +1 in messages), and the scalar forms both syntaxes share
// (null, booleans, integers, strings). The end of the text plays the part of a terminating
// NUL: running into it inside a value throws qmp::EndOfStreamException; every syntax error
// throws qmp::ParseException "Line N: <message>". A number or bare word that runs into the end
// counts as cut short too: nothing shows that "12" or "tru" is complete. A NUL byte inside the
// text is an ordinary byte (valid only inside a string), so any byte string round-trips.
// Internal to config/.
#pragma once

#include "config/config_object.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qmp::config_detail {

enum class Syntax { Cfg, Json };

class TextScanner {
public:
    TextScanner(std::string_view text, const char* function, Syntax syntax)
        : text_(text), function_(function), syntax_(syntax) {}

    bool at_end() const noexcept { return pos_ >= text_.size(); }
    // The current byte; throws qmp::EndOfStreamException at the end of the text.
    char peek() const;
    // The byte after the current one, or 0 past the end (the one byte of look-ahead for "//").
    char peek_next() const noexcept { return pos_ + 1 < text_.size() ? text_[pos_ + 1] : '\0'; }
    void advance();
    uint64_t line() const noexcept { return line_; }

    [[noreturn]] void fail(std::string_view message) const;
    [[noreturn]] void end_of_stream() const;

    // Skips spaces, tabs, CR and LF, and in the .cfg syntax "//" comments to the end of the line.
    void skip();

    // Nesting guard for the recursive readers, so a hostile file cannot exhaust the stack.
    void enter_container();
    void leave_container() noexcept { --depth_; }

    ConfigObject read_null();
    ConfigObject read_bool();
    ConfigObject read_integer();
    // The current byte is the opening double quote.
    std::string read_string();

private:
    // A bare word: a run of ASCII letters and digits. Reaching the end of the text inside it
    // throws qmp::EndOfStreamException.
    std::string_view read_word();
    bool ends_integer(char c) const noexcept;

    std::string_view text_;
    const char* function_;
    Syntax syntax_;
    uint64_t pos_ = 0;
    uint64_t line_ = 0;
    uint32_t depth_ = 0;
};

bool is_space(char c) noexcept;
// A byte of a bare .cfg key: ASCII letters and digits and ! # $ % & ' ( ) * + - . / = ? @ ^ _ | ~
// (a "//" inside the run starts a comment and ends the key).
bool is_identifier_byte(char c) noexcept;

// Containers nested deeper than this are refused with "Nesting is too deep.". Real settings
// files nest a handful of levels; formula files a few dozen.
inline constexpr uint32_t kMaxNestingDepth = 1000;

}  // namespace qmp::config_detail
