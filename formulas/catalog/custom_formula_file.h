// Where a user's formula file is found and what its constant may be called. A path that names
// an existing file is used as it is; otherwise the name is looked up, with ".cfg" appended, in
// "../Custom Formulas/" and then "../Test Formulas/" (relative to the working directory, or to
// a given base directory). Failures are InvalidParametersException from
// "CustomFormulaFile::find()": "No formula file specified." and "File not found.". The
// constant's name becomes part of output file names, so check_name() refuses control
// characters, the ASCII characters that file systems reserve, non-ASCII bytes and names longer
// than 50 characters, each with its own message ("CustomFormulaFile::check_name()").
#pragma once

#include <string>
#include <string_view>

namespace qv {

class CustomFormulaFile {
public:
    static constexpr size_t kMaxNameLength = 50;

    static std::string find(const std::string& path_or_name, const std::string& base_directory = ".");
    // The whole file as text ("File not found." when it cannot be read).
    static std::string read_text(const std::string& path);
    static void check_name(std::string_view name);
};

}  // namespace qv
