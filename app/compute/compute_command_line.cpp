// Parsing of the "custom" action's words into ComputeSettings.
#include "app/compute/compute_command_line.h"

#include <string>

#include "formulas/catalog/constant_table.h"
#include "qmp/exception.h"

namespace qv {
namespace {

constexpr const char* kParser = "CustomCompute::parse_options()";

[[noreturn]] void invalid_parameter(const std::string& word) {
    throw qmp::InvalidParametersException(kParser, "Invalid Parameter: " + word);
}

uint64_t positive_integer(const std::string& word, uint64_t max) {
    const std::optional<uint64_t> value = parse_digit_count(word);
    if (!value || *value == 0 || *value > max || word.find_first_not_of("0123456789") != std::string::npos)
        invalid_parameter(word);
    return *value;
}

}  // namespace

std::optional<uint64_t> parse_digit_count(std::string_view word) {
    uint64_t scale = 1;
    if (!word.empty()) {
        switch (word.back()) {
            case 'k': case 'K': scale = 1000; break;
            case 'm': case 'M': scale = 1000000; break;
            case 'b': case 'B': scale = 1000000000; break;
            case 't': case 'T': scale = 1000000000000; break;
            default: break;
        }
        if (scale != 1) word.remove_suffix(1);
    }
    if (word.empty() || word.size() > 19) return std::nullopt;
    uint64_t value = 0;
    for (char c : word) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + uint64_t(c - '0');
    }
    if (value > UINT64_MAX / scale) return std::nullopt;
    return value * scale;
}

ComputeSettings parse_compute_command_line(qmp::CommandLine& args) {
    ComputeSettings s = ComputeSettings::defaults();
    std::vector<std::string> positional;
    std::optional<std::string> algorithm, format, threads, tds, framework;
    std::optional<uint64_t> digits_per_file;

    while (args.has_more()) {
        const std::string word = args.next(kParser);
        if (word.empty() || word[0] != '-' || word == "-") {
            positional.push_back(word);
            continue;
        }
        if (word == "-algorithm" || word == "-alg") algorithm = args.next(kParser);
        else if (word == "-hex") s.hex_digits = true;
        else if (word == "-o") {
            const std::string& dir = args.next(kParser);
            if (dir == "-") s.output.writer = "stdout";
            else s.output.path = dir;
        } else if (word == "-format") format = args.next(kParser);
        else if (word == "-compress") format = "qcd";
        else if (word == "-digitsperfile") {
            const std::string& value = args.next(kParser);
            const std::optional<uint64_t> n = parse_digit_count(value);
            if (!n || *n > uint64_t(INT64_MAX)) invalid_parameter(value);
            digits_per_file = *n;
        } else if (word == "-verify") s.verify_with_secondary = true;
        else if (word == "-outputverify") s.output_verify = true;
        else if (word == "-T") threads = args.next(kParser);
        else if (word == "-TD") tds = args.next(kParser);
        else if (word == "-PF") framework = args.next(kParser);
        else if (word == "-MA") {
            const std::string& value = args.next(kParser);
            if (value != "mmap" && value != "mmap-largepages" && value != "malloc") invalid_parameter(value);
            s.allocator = value;
        } else if (word == "-swap") {
            args.next(kParser);
            throw qmp::InvalidParametersException(kParser, "Swap mode is not available in this build: use \"ram\".");
        } else if (word == "-M" || word == "-minIO" || word == "-bytesperseek") {
            throw qmp::InvalidParametersException(kParser, "Option " + word + " is not supported for this mode.");
        } else {
            throw qmp::InvalidParametersException(kParser, "Invalid Command: " + word);
        }
    }

    // Positional words: the constant, its argument when it takes one, the digit count.
    size_t next = 0;
    auto take = [&]() -> const std::string& {
        if (next >= positional.size())
            throw qmp::CommandLine::CommandLineException(kParser, "Expected more parameters.");
        return positional[next++];
    };
    s.set_constant(take());
    if (s.constant == "custom") {
        s.formula_file = take();
    } else if (s.constant == "sqrt" || s.constant == "log" || s.constant == "brent") {
        s.argument = int64_t(positive_integer(take(), uint64_t(INT64_MAX)));
    }
    const std::string& digits_word = take();
    const std::optional<uint64_t> digits = parse_digit_count(digits_word);
    if (!digits) invalid_parameter(digits_word);
    s.decimal_digits = *digits;
    if (next < positional.size()) invalid_parameter(positional[next]);

    s.algorithm.clear();
    s.set_algorithm(algorithm.value_or(""));
    if (format) {
        if (*format != "txt" && *format != "qcd") invalid_parameter(*format);
        s.output.extension = *format;
    }
    if (digits_per_file) s.output.files.set_digits_per_file(int64_t(*digits_per_file));
    if (framework) s.parallelism.framework = qmp::find_parallel_framework(*framework).default_config();
    if (threads) {
        const uint64_t n = positive_integer(*threads, 65535);
        qmp::ConfigObject& options = s.parallelism.framework;
        if (options.contains("WorkerThreads"))
            options.get("WorkerThreads", kParser) = qmp::ConfigObject::make_integer(int64_t(n));
        if (!tds) s.parallelism.task_decomposition = uint32_t(n == 1 ? 1 : 2 * n);
    }
    if (tds) s.parallelism.task_decomposition = uint32_t(positive_integer(*tds, qmp::kMaxTaskDecomposition));
    return s;
}

}  // namespace qv
