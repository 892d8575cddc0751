// The BBP digit extractor for pi ("bbp", menu entry 5): the hexadecimal digits of pi that
// follow a chosen position, by the BBP formula and Bellard's 7-term formula, which must agree.
// Position n prints the digits n+1, n+2, ... after the point (position 0: 243f6a88...).
//
// Command line:  bbp [POSITION] [threads=N] [pin=CORES] [-noSMT]
//   POSITION   a whole number or a size word ("1000000", "1m", "2.5b", "100t"); without one
//              the position is asked for (end of input: "No position given.", status 1)
//   threads=N  worker threads, 1 to 1024 (default: one per logical core; -noSMT: one per
//              physical core)
//   pin=CORES  StaticPinOrder: the threads are pinned round-robin to these cores ("0-3,8")
// The menu form asks for the position, the threads and the pin order. A run prints progress
// lines (percent, elapsed and estimated remaining time) when it lasts more than 10 seconds.
// The exit status is 0 only for a result both formulas agree on.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"
#include "app/prompt.h"
#include "formulas/bbp/hex_digit_extractor.h"
#include "formulas/bbp/position_words.h"
#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/parallel/core_selector.h"

#include <cstdio>

namespace qv {
namespace {

constexpr const char* kParser = "BbpExtractor::parse_options()";
constexpr const char* kRun = "BbpExtractor::run()";
constexpr uint32_t kMaxThreads = 1024;

using qmp::Console::Colour;

std::string duration_text(double seconds) {
    if (seconds < 60) {
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, "%.3f seconds", seconds);
        return buffer;
    }
    const uint64_t s = uint64_t(seconds + 0.5);
    char buffer[64];
    if (s >= 86400)
        std::snprintf(buffer, sizeof buffer, "%llu d %02llu:%02llu:%02llu", (unsigned long long)(s / 86400),
                      (unsigned long long)(s / 3600 % 24), (unsigned long long)(s / 60 % 60), (unsigned long long)(s % 60));
    else
        std::snprintf(buffer, sizeof buffer, "%llu:%02llu:%02llu", (unsigned long long)(s / 3600),
                      (unsigned long long)(s / 60 % 60), (unsigned long long)(s % 60));
    return buffer;
}

void print_line(const std::string& label, const std::string& value) {
    qmp::Console::print(label, Colour::Label);
    qmp::Console::println(value, Colour::Value);
}

uint32_t parse_threads(const std::string& text) {
    const std::optional<int64_t> n = parse_integer_line(text);
    if (!n || *n < 1 || *n > kMaxThreads)
        throw qmp::InvalidParametersException(kParser, "Threads must be between 1 and 1024.");
    return uint32_t(*n);
}

}  // namespace

void run_bbp_extraction(const BbpRunRequest& request) {
    uint32_t threads = request.threads;
    if (threads == 0) threads = request.no_smt ? qmp::physical_core_count() : qmp::logical_core_count();
    std::unique_ptr<qmp::ParallelFramework> framework = bbp::make_extractor_framework(threads);
    bbp::ExtractorSettings settings;
    settings.position = request.position;
    settings.threads = threads;
    settings.parallelizer = framework.get();
    settings.pin_order = request.pin_order;
    settings.progress_interval_seconds = 10;
    settings.progress = [](const bbp::ExtractionProgress& p) {
        char buffer[48];
        std::snprintf(buffer, sizeof buffer, "%5.1f%%", 100 * p.fraction);
        qmp::Console::println(std::string("Progress: ") + buffer + "   elapsed " + duration_text(p.elapsed_seconds) +
                              "   remaining about " + duration_text(p.remaining_seconds));
    };
    const std::string n = std::to_string(request.position);
    print_line("Position:   ", n + "  (the first digit printed is hexadecimal digit " +
                                   std::to_string(request.position + 1) + " after the point)");
    print_line("Threads:    ", std::to_string(threads) + (request.no_smt ? "  (one per physical core)" : ""));
    if (!request.pin_order.empty()) print_line("Pin order:  ", qmp::format_core_list(request.pin_order));
    print_line("Kernel:     ", bbp::active_term_kernel().name);
    qmp::Console::println("Computing...");

    const bbp::ExtractionResult r = bbp::extract_pi_hex_digits(settings);
    auto value_line = [](const bbp::FormulaSum& s) {
        return "0." + bbp::hex128(s.value) + "  (" + std::to_string(s.terms) + " terms, error below " +
               std::to_string(s.error_units) + " x 2^-128)";
    };
    qmp::Console::println();
    print_line("BBP:        ", value_line(r.bbp));
    print_line("Bellard:    ", value_line(r.bellard));
    print_line("Agreement:  ", "the two results overlap; together they fix " + std::to_string(r.certain_digits) +
                                   " hexadecimal digits");
    print_line("Hex digits: ", r.digits);
    print_line("Digits:     ", std::to_string(request.position + 1) + " to " +
                                   std::to_string(request.position + r.digits.size()) + " after the point");
    print_line("Time:       ", duration_text(r.seconds));
}

void bbp_action(qmp::CommandLine& args) {
    BbpRunRequest request;
    std::string position_word;
    const JobOptions options = parse_job_options(args, kParser, {"-noSMT"}, [&](const std::string& word) {
        if (word.rfind("threads=", 0) == 0) {
            request.threads = parse_threads(word.substr(8));
            return true;
        }
        if (word.rfind("pin=", 0) == 0) {
            request.pin_order = bbp::parse_core_list(word.substr(4), kParser);
            return true;
        }
        if (!position_word.empty()) return false;  // one position only
        position_word = word;
        return true;
    });
    request.no_smt = options.has("-noSMT");
    if (!position_word.empty()) {
        request.position = bbp::parse_hex_position(position_word, kParser);
    } else {
        try {
            request.position = bbp::parse_hex_position(prompt_line("Hexadecimal position: "), kParser);
        } catch (const EndOfInput&) {
            throw qmp::InvalidParametersException(kRun, "No position given.");
        }
    }
    run_bbp_extraction(request);
}

void bbp_menu() {
    BbpRunRequest request;
    qmp::Console::println("Digits are printed from the one after the position: position 0 gives 243f6a88...");
    try {
        for (;;) {
            try {
                request.position = bbp::parse_hex_position(prompt_line("Hexadecimal position: "), kParser);
                break;
            } catch (const qmp::InvalidParametersException& e) {
                qmp::Console::println(e.message(), Colour::Warning);
            }
        }
        request.threads = uint32_t(prompt_integer("Threads (0 for one per logical core): ", 0, kMaxThreads));
        for (;;) {
            const std::string pins = prompt_line("StaticPinOrder (cores such as 0-3,8; empty for none): ");
            if (pins.empty()) break;
            try {
                request.pin_order = bbp::parse_core_list(pins, kParser);
                break;
            } catch (const qmp::InvalidParametersException& e) {
                qmp::Console::println(e.message(), Colour::Warning);
            }
        }
    } catch (const EndOfInput&) {
        throw qmp::InvalidParametersException(kRun, "Input ended before the settings were complete.");
    }
    run_bbp_extraction(request);
}

}  // namespace qv
