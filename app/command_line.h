// The argument list: the process arguments as an ordered list of words (the program name is not
// one of them) and one shared cursor, the index of the next unread word. The action dispatcher
// and then the action's own option parser take words from the same cursor, so a word is read
// once. A required word that is missing throws CommandLine::CommandLineException
// "Expected more parameters.". Words are byte strings, compared exactly.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qmp/exception.h"

namespace qmp {

class CommandLine {
public:
    class CommandLineException : public Exception {
    public:
        using Exception::Exception;
        const char* type_name() const noexcept override { return "CommandLine::CommandLineException"; }
    };

    // argv[0] is the program name and is skipped; the cursor starts at argv[1].
    CommandLine(int argc, const char* const* argv);
    explicit CommandLine(std::vector<std::string> words);

    uint64_t size() const noexcept { return words_.size(); }
    uint64_t cursor() const noexcept { return cursor_; }
    uint64_t remaining() const noexcept { return words_.size() - cursor_; }
    bool has_more() const noexcept { return cursor_ < words_.size(); }

    // The next word without consuming it; nullptr when there is none.
    const std::string* peek() const noexcept;
    // Consumes and returns the next word; throws "Expected more parameters." under `caller`
    // when there is none, so that the message names the parser that needed the word.
    const std::string& next(std::string_view caller = "CommandLine::next()");
    // Consumes the next word into `word` when there is one; returns false (and leaves the cursor)
    // when the list is exhausted.
    bool try_next(std::string& word);

private:
    std::vector<std::string> words_;
    uint64_t cursor_ = 0;
};

}  // namespace qmp
