#include "qmp/digitfiles/digit_file_names.h"

#include "qmp/exception.h"

namespace qmp {

std::string digit_file_base_name(const std::string& constant, uint32_t radix, const std::string& algorithm) {
    if (radix == 10) return constant + " - Dec - " + algorithm;
    if (radix == 16) return constant + " - Hex - " + algorithm;
    throw InvalidParametersException("digit_file_base_name()", "Invalid Base");
}

std::string qcd_file_name(const std::string& base, uint64_t file_id) {
    return base + " - " + std::to_string(file_id) + ".qcd";
}

std::string qcd_working_name(const std::string& base, uint64_t file_id) {
    return base + " - " + std::to_string(file_id) + " (incomplete).qcd";
}

std::string join_path(const std::string& dir, const std::string& name) {
    if (dir.empty()) return name;
    return dir.back() == '/' ? dir + name : dir + "/" + name;
}

std::string format_with_commas(uint64_t value) {
    std::string digits = std::to_string(value), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i != 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

}  // namespace qmp
