#include "qmp/digitfiles/qcd_header.h"

namespace qmp {

std::string build_qcd_header(uint32_t radix, const std::string& first_digits, uint64_t total_digits,
                             uint64_t digits_per_file, uint64_t file_id) {
    std::string h;
    h += "#Compressed Digit File\r\n\r\n";
    h += "FileVersion:\t1.1.0\r\n\r\n";
    h += "Base:\t" + std::to_string(radix) + "\r\n\r\n";
    h += "FirstDigits:\t" + first_digits + "\r\n\r\n";
    h += "TotalDigits:\t" + std::to_string(total_digits) + "\r\n\r\n";
    h += "Blocksize:\t" + std::to_string(digits_per_file) + "\r\n";
    h += "BlockID:\t" + std::to_string(file_id) + "\r\n\r\n";
    h += "EndHeader\r\n\r\n";
    h += '\0';
    return h;
}

namespace {

inline bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

uint64_t leading_number(std::string_view token) {
    uint64_t v = 0;
    for (char c : token) {
        if (c < '0' || c > '9') break;
        const uint64_t d = uint64_t(c - '0');
        if (v > (~uint64_t(0) - d) / 10) return ~uint64_t(0);
        v = v * 10 + d;
    }
    return v;
}

// The next whitespace-separated token from pos; empty at the end.
std::string_view next_token(std::string_view text, uint64_t& pos) {
    while (pos < text.size() && is_space(text[pos])) ++pos;
    const uint64_t begin = pos;
    while (pos < text.size() && !is_space(text[pos])) ++pos;
    return text.substr(begin, pos - begin);
}

}  // namespace

std::optional<uint64_t> parse_qcd_header(std::string_view text, QcdHeaderFields& fields) {
    uint64_t pos = 0;
    for (;;) {
        const std::string_view key = next_token(text, pos);
        if (key.empty()) return std::nullopt;
        if (key == "EndHeader") break;
        const bool known = key == "FileVersion:" || key == "Base:" || key == "FirstDigits:" ||
                           key == "TotalDigits:" || key == "Blocksize:" || key == "BlockID:";
        if (!known) continue;
        const std::string_view value = next_token(text, pos);
        if (value.empty()) return std::nullopt;
        if (key == "FileVersion:") fields.file_version = std::string(value);
        else if (key == "Base:") fields.radix = leading_number(value);
        else if (key == "FirstDigits:") fields.first_digits = std::string(value);
        else if (key == "TotalDigits:") fields.total_digits = leading_number(value);
        else if (key == "Blocksize:") fields.digits_per_file = leading_number(value);
        else fields.file_id = leading_number(value);
    }
    const size_t nul = text.find('\0', pos);
    if (nul == std::string_view::npos) return std::nullopt;
    return nul + 1;
}

}  // namespace qmp
