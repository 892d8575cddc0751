// The scalar forms shared by the .cfg and JSON readers, and the error reporting with the line
// prefix. Integers are decimal only, accumulated as unsigned 64-bit with an overflow check at
// every digit, then range-checked against signed 64-bit. Strings know two escapes, \" and \\;
// every other byte (line feeds and NUL included) is taken as is.
#include "config/text_scanner.h"

#include "qmp/exception.h"

#include <cstdint>
#include <string>

namespace qmp::config_detail {

bool is_space(char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool is_identifier_byte(char c) noexcept {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '!': case '#': case '$': case '%': case '&': case '\'': case '(': case ')':
        case '*': case '+': case '-': case '.': case '/': case '=': case '?': case '@':
        case '^': case '_': case '|': case '~':
            return true;
        default:
            return false;
    }
}

namespace {
bool is_word_byte(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}
}  // namespace

char TextScanner::peek() const {
    if (at_end()) end_of_stream();
    return text_[pos_];
}

void TextScanner::advance() {
    if (text_[pos_] == '\n') ++line_;
    ++pos_;
}

void TextScanner::fail(std::string_view message) const {
    std::string text = "Line ";
    text += std::to_string(line_ + 1);
    text += ": ";
    text += message;
    throw ParseException(function_, std::move(text));
}

void TextScanner::end_of_stream() const { throw EndOfStreamException(function_); }

void TextScanner::skip() {
    while (!at_end()) {
        char c = text_[pos_];
        if (is_space(c)) {
            advance();
        } else if (syntax_ == Syntax::Cfg && c == '/' && peek_next() == '/') {
            // The line feed that ends the comment is left to the loop, which counts it.
            while (!at_end() && text_[pos_] != '\n') ++pos_;
        } else {
            return;
        }
    }
}

void TextScanner::enter_container() {
    if (++depth_ > kMaxNestingDepth) fail("Nesting is too deep.");
}

std::string_view TextScanner::read_word() {
    uint64_t start = pos_;
    while (true) {
        // A word cut by the end of the text is a value cut short, not a spelling mistake.
        if (at_end()) end_of_stream();
        if (!is_word_byte(text_[pos_])) break;
        ++pos_;
    }
    return text_.substr(start, pos_ - start);
}

ConfigObject TextScanner::read_null() {
    if (read_word() != "null") fail("Expected \"null\".");
    return ConfigObject::make_null();
}

ConfigObject TextScanner::read_bool() {
    std::string_view word = read_word();
    if (word == "true") return ConfigObject::make_bool(true);
    if (word == "false") return ConfigObject::make_bool(false);
    fail("Expected \"true\" or \"false\".");
}

bool TextScanner::ends_integer(char c) const noexcept {
    if (is_space(c) || c == '}' || c == ']') return true;
    if (syntax_ == Syntax::Json) return c == ',';
    return c == '/' && peek_next() == '/';
}

ConfigObject TextScanner::read_integer() {
    // Largest accumulator that can still be multiplied by 10 without leaving 64 bits.
    constexpr uint64_t kMaxBeforeTimesTen = 0x1999999999999999ull;
    constexpr uint64_t kTwoPow63 = uint64_t(1) << 63;

    bool negative = false;
    if (peek() == '-') {
        negative = true;
        advance();
    }
    uint64_t magnitude = 0;
    uint64_t n_digits = 0;
    while (true) {
        char c = peek();  // the end of the text inside a number is a value cut short
        if (c < '0' || c > '9') break;
        if (magnitude > kMaxBeforeTimesTen) fail("Integer literal is too large.");
        uint64_t digit = uint64_t(c - '0');
        uint64_t times_ten = magnitude * 10;
        if (times_ten + digit < times_ten) fail("Integer literal is too large.");
        magnitude = times_ten + digit;
        ++n_digits;
        advance();
    }
    char c = peek();
    // "12/" at the very end may be the start of a comment cut off: a short text, not a typo.
    if (syntax_ == Syntax::Cfg && c == '/' && pos_ + 1 == text_.size()) end_of_stream();
    if (syntax_ == Syntax::Cfg && c == ',') fail("Don't use commas to separate elements.");
    if (n_digits == 0 || !ends_integer(c)) fail("Invalid integer literal.");

    if (negative) {
        if (magnitude > kTwoPow63) fail("Integer literal is too large.");
        // -2^63 has no positive twin; negate in unsigned arithmetic, then reinterpret.
        return ConfigObject::make_integer(static_cast<int64_t>(uint64_t(0) - magnitude));
    }
    if (magnitude >= kTwoPow63) fail("Integer literal is too large.");
    return ConfigObject::make_integer(static_cast<int64_t>(magnitude));
}

std::string TextScanner::read_string() {
    advance();  // the opening quote
    std::string value;
    while (true) {
        char c = peek();
        if (c == '"') {
            advance();
            return value;
        }
        if (c == '\\') {
            advance();
            char escaped = peek();
            if (escaped != '"' && escaped != '\\') {
                std::string message = "Invalid escape character: ";
                message += escaped;
                fail(message);
            }
            value += escaped;
            advance();
            continue;
        }
        value += c;
        advance();
    }
}

}  // namespace qmp::config_detail
