// Formula file lookup and the constant-name rules.
#include "formulas/catalog/custom_formula_file.h"

#include <fstream>
#include <sstream>
#include <sys/stat.h>

#include "qmp/exception.h"

namespace qv {
namespace {

bool is_regular_file(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

std::string CustomFormulaFile::find(const std::string& path_or_name, const std::string& base_directory) {
    constexpr const char* kFunction = "CustomFormulaFile::find()";
    if (path_or_name.empty()) throw qmp::InvalidParametersException(kFunction, "No formula file specified.");
    if (is_regular_file(path_or_name)) return path_or_name;
    const std::string file = path_or_name.ends_with(".cfg") ? path_or_name : path_or_name + ".cfg";
    for (const char* folder : {"/../Custom Formulas/", "/../Test Formulas/"}) {
        const std::string candidate = base_directory + folder + file;
        if (is_regular_file(candidate)) return candidate;
    }
    throw qmp::InvalidParametersException(kFunction, "File not found.");
}

std::string CustomFormulaFile::read_text(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw qmp::InvalidParametersException("CustomFormulaFile::find()", "File not found.");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void CustomFormulaFile::check_name(std::string_view name) {
    constexpr const char* kFunction = "CustomFormulaFile::check_name()";
    if (name.size() > kMaxNameLength) {
        throw qmp::InvalidParametersException(kFunction, "String cannot be longer than 50 characters.");
    }
    for (const char ch : name) {
        const auto c = static_cast<unsigned char>(ch);
        if (c < 32 || c == 127) throw qmp::InvalidParametersException(kFunction, "Control characters are not allowed in name.");
        // Reserved in file names on common file systems.
        for (const char reserved : std::string_view("\"*/:<>?\\|")) {
            if (ch == reserved) {
                throw qmp::InvalidParametersException(kFunction, "ASCII " + std::to_string(c) + " is not allowed in name.");
            }
        }
        if (c >= 128) throw qmp::InvalidParametersException(kFunction, "Invalid character in name: " + std::string(1, ch));
    }
}

}  // namespace qv
