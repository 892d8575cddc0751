#include "app/command_line.h"

#include <utility>

namespace qmp {

CommandLine::CommandLine(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) words_.emplace_back(argv[i]);
}

CommandLine::CommandLine(std::vector<std::string> words) : words_(std::move(words)) {}

const std::string* CommandLine::peek() const noexcept {
    return has_more() ? &words_[cursor_] : nullptr;
}

const std::string& CommandLine::next(std::string_view caller) {
    if (!has_more()) throw CommandLineException(std::string(caller), "Expected more parameters.");
    return words_[cursor_++];
}

bool CommandLine::try_next(std::string& word) {
    if (!has_more()) return false;
    word = words_[cursor_++];
    return true;
}

}  // namespace qmp
