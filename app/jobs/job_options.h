// The option words of the jobs' command-line parsers. Every job reads the words after its action
// word from the shared cursor: a word that starts with '-' is an option (some take the next word
// as their value), any other word is offered to the job as a positional word (a benchmark size, a
// path). Errors, all qmp::InvalidParametersException under the job's own function name except
// the missing value:
//   unknown option                     "Invalid Command: " + word
//   option the job does not take       "Option " + word + " is not supported for this mode."
//   value option at the end            CommandLineException "Expected more parameters."
//   positional word the job refuses    "Invalid Parameter: " + word
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/command_line.h"

namespace qv {

// Every option word the parsers know and whether it takes a value:
//   -noSMT          one worker thread per physical core instead of per logical core
//   -compress       write compressed digit files
//   -verify         read the written digits back and compare them
//   -bytesperseek V swap mode: the disk's sequential-to-seek cost ratio
//   -TD V           task decomposition
//   -PF V           parallel framework key
//   -MA V           memory allocator
//   -M V            working memory to use (swap mode)
//   -minIO V        swap mode: the minimum I/O block size
//   -swap V         a swap path; repeat for several paths; selects swap mode
struct OptionWord {
    std::string_view word;
    bool takes_value;
};
const std::vector<OptionWord>& known_option_words();

// The options found, in command-line order; an option given twice appears twice.
struct JobOptions {
    std::vector<std::pair<std::string, std::string>> entries;

    bool has(std::string_view word) const;
    // The last value given for `word`; nullptr when absent.
    const std::string* value(std::string_view word) const;
    std::vector<std::string> values(std::string_view word) const;
};

// Reads every remaining word. `supported` lists the options this job takes; `positional`
// receives the other words and returns false to refuse one. `caller` names the parser in errors.
JobOptions parse_job_options(qmp::CommandLine& args, std::string_view caller,
                             std::initializer_list<std::string_view> supported,
                             const std::function<bool(const std::string&)>& positional);

// For jobs with a RAM mode and a swap mode: fails with "Option <w> is not supported for this
// mode." for the first option of `swap_only` given without "-swap".
void check_swap_only_options(const JobOptions& options, std::string_view caller,
                             std::initializer_list<std::string_view> swap_only);

// The jobs of later work reach their dispatch point and stop here with a clear error:
// qmp::Exception under `function` with `message` (e.g. "The Pi benchmark is not available in
// this build.").
[[noreturn]] void job_not_available(std::string_view function, std::string_view message);

}  // namespace qv
