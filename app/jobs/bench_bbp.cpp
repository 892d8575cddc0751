// The BBP digit-extraction benchmark ("bench-bbp", menu entry 1): extracts hexadecimal digits of
// pi at one of the listed offsets, on the processor only, with one thread per logical core
// (-noSMT: per physical core), and prints the digits and the time (run_bbp_extraction()).
//
//   bench-bbp SIZE [confirm] [-noSMT]
// Before starting, a short timed sample of the kernel gives an estimate of the run time.
// Sizes estimated at more than a day on this machine say so with the estimate and run only
// when confirmed: by the word "confirm", or by answering "y" to "Run it anyway? (y/n): ".
// Any other answer, or the end of input (a non-interactive run), declines without waiting:
// the run fails with "Not run: estimated at more than a day. Add \"confirm\" to run it." The
// menu form lists the sizes and asks for one.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"
#include "app/prompt.h"
#include "formulas/bbp/hex_digit_extractor.h"
#include "formulas/bbp/position_words.h"
#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/parallel/core_selector.h"

#include <algorithm>
#include <cstdio>

namespace qv {
namespace {

constexpr const char* kParser = "BbpBenchmark::parse_options()";
constexpr const char* kRun = "BbpBenchmark::run()";
constexpr double kOneDaySeconds = 86400;

std::string estimate_text(double seconds) {
    char buffer[64];
    if (seconds >= kOneDaySeconds) std::snprintf(buffer, sizeof buffer, "%.1f days", seconds / kOneDaySeconds);
    else if (seconds >= 3600) std::snprintf(buffer, sizeof buffer, "%.1f hours", seconds / 3600);
    else std::snprintf(buffer, sizeof buffer, "%.1f seconds", seconds);
    return buffer;
}

bool confirm_long_run() {
    try {
        const std::string answer = prompt_line("Run it anyway? (y/n): ");
        return answer == "y" || answer == "Y" || answer == "yes";
    } catch (const EndOfInput&) {
        return false;
    }
}

void run_benchmark(const std::string& size, bool no_smt, bool confirmed) {
    BbpRunRequest request;
    request.position = bbp::parse_hex_position(size, kParser);
    request.no_smt = no_smt;
    const uint32_t threads = no_smt ? qmp::physical_core_count() : qmp::logical_core_count();
    request.threads = threads;
    qmp::Console::println("Benchmark Pi BBP: hexadecimal digits after position " + size, qmp::Console::Colour::Header);
    const double estimate = bbp::estimate_extraction_seconds(request.position, threads, bbp::active_term_kernel());
    qmp::Console::println("Estimated time: " + estimate_text(estimate));
    if (estimate > kOneDaySeconds) {
        qmp::Console::println("This size takes longer than a day on this machine (estimated " + estimate_text(estimate) +
                                  ").",
                              qmp::Console::Colour::Warning);
        if (!confirmed && !confirm_long_run())
            throw qmp::Exception(kRun, "Not run: estimated at more than a day. Add \"confirm\" to run it.");
    }
    run_bbp_extraction(request);
}

}  // namespace

const std::vector<std::string_view>& bbp_benchmark_sizes() {
    // Hexadecimal offsets; m = 10^6, b = 10^9, t = 10^12.
    static const std::vector<std::string_view> sizes = {
        "1m", "10m", "100m", "1b", "10b", "100b", "1t", "10t", "100t",
    };
    return sizes;
}

void bench_bbp_action(qmp::CommandLine& args) {
    const std::string size = args.next(kParser);
    const std::vector<std::string_view>& sizes = bbp_benchmark_sizes();
    if (std::find(sizes.begin(), sizes.end(), size) == sizes.end())
        throw qmp::InvalidParametersException(kParser, "Invalid benchmark size: " + size);
    bool confirmed = false;
    const JobOptions options = parse_job_options(args, kParser, {"-noSMT"}, [&](const std::string& word) {
        if (word != "confirm") return false;
        confirmed = true;
        return true;
    });
    run_benchmark(size, options.has("-noSMT"), confirmed);
}

void bench_bbp_menu() {
    const std::vector<std::string_view>& sizes = bbp_benchmark_sizes();
    qmp::Console::println("Hexadecimal offsets:");
    for (size_t i = 0; i < sizes.size(); ++i)
        qmp::Console::println("  " + std::to_string(i) + "  " + std::string(sizes[i]));
    int64_t choice = 0;
    try {
        choice = prompt_integer("Offset: ", 0, int64_t(sizes.size()) - 1);
    } catch (const EndOfInput&) {
        throw qmp::Exception(kRun, "No size chosen.");
    }
    run_benchmark(std::string(sizes[size_t(choice)]), false, false);
}

}  // namespace qv
