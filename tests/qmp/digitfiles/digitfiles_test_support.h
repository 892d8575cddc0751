// Shared pieces of the digit-file tests: a scratch directory removed afterwards, whole-file
// reads and writes, raw digits from text, and the reference digits of the shared tree.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace qmp::test {

class ScratchDir {
public:
    ScratchDir() {
        char name[] = "/tmp/qmp_digitfiles_XXXXXX";
        path_ = ::mkdtemp(name);
    }
    ~ScratchDir() { std::filesystem::remove_all(path_); }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const auto& e : std::filesystem::directory_iterator(path_)) out.push_back(e.path().filename());
        std::sort(out.begin(), out.end());
        return out;
    }

private:
    std::string path_;
};

inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void spit(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Characters '0'-'9', 'a'-'f' to raw digit values.
inline std::vector<char> raw_from_text(const std::string& text) {
    std::vector<char> raw(text.size());
    for (size_t i = 0; i < text.size(); ++i) raw[i] = char(text[i] <= '9' ? text[i] - '0' : text[i] - 'a' + 10);
    return raw;
}

// The fractional digits of a reference file ("3." removed), or empty when it is missing.
inline std::string reference_fraction(const std::string& name) {
    const std::string text = slurp("/work/shared/reference/" + name);
    const size_t point = text.find('.');
    return point == std::string::npos ? std::string() : text.substr(point + 1);
}

}  // namespace qmp::test
