#include "app/jobs/job_options.h"

#include "qmp/exception.h"

#include <algorithm>

namespace qv {

const std::vector<OptionWord>& known_option_words() {
    static const std::vector<OptionWord> words = {
        {"-noSMT", false}, {"-compress", false}, {"-verify", false}, {"-bytesperseek", true},
        {"-TD", true},     {"-PF", true},        {"-MA", true},      {"-M", true},
        {"-minIO", true},  {"-swap", true},
    };
    return words;
}

bool JobOptions::has(std::string_view word) const { return value(word) != nullptr; }

const std::string* JobOptions::value(std::string_view word) const {
    const std::string* found = nullptr;
    for (const auto& [key, val] : entries)
        if (key == word) found = &val;
    return found;
}

std::vector<std::string> JobOptions::values(std::string_view word) const {
    std::vector<std::string> out;
    for (const auto& [key, val] : entries)
        if (key == word) out.push_back(val);
    return out;
}

JobOptions parse_job_options(qmp::CommandLine& args, std::string_view caller,
                             std::initializer_list<std::string_view> supported,
                             const std::function<bool(const std::string&)>& positional) {
    const std::string function(caller);
    JobOptions options;
    std::string word;
    while (args.try_next(word)) {
        if (word.empty() || word[0] != '-') {
            if (!positional(word))
                throw qmp::InvalidParametersException(function, "Invalid Parameter: " + word);
            continue;
        }
        const std::vector<OptionWord>& known = known_option_words();
        const auto it = std::find_if(known.begin(), known.end(),
                                     [&](const OptionWord& o) { return o.word == word; });
        if (it == known.end())
            throw qmp::InvalidParametersException(function, "Invalid Command: " + word);
        if (std::find(supported.begin(), supported.end(), it->word) == supported.end())
            throw qmp::InvalidParametersException(function,
                                                  "Option " + word + " is not supported for this mode.");
        // The value is taken as given; the job's settings reader checks its range and format.
        options.entries.emplace_back(word, it->takes_value ? args.next(caller) : std::string());
    }
    return options;
}

void check_swap_only_options(const JobOptions& options, std::string_view caller,
                             std::initializer_list<std::string_view> swap_only) {
    if (options.has("-swap")) return;
    for (const auto& [key, val] : options.entries) {
        if (std::find(swap_only.begin(), swap_only.end(), key) != swap_only.end())
            throw qmp::InvalidParametersException(std::string(caller),
                                                  "Option " + key + " is not supported for this mode.");
    }
}

void job_not_available(std::string_view function, std::string_view message) {
    throw qmp::Exception(std::string(function), std::string(message));
}

}  // namespace qv
