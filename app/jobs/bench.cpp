// The Pi benchmark ("bench", menu entry 0): a computation of pi with fixed settings at one of the
// listed sizes. The command-line form takes exactly one size word, and the options of a RAM run;
// "-swap" selects swap mode, which also takes -M, -minIO and -bytesperseek.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"
#include "qmp/exception.h"

#include <algorithm>

namespace qv {
namespace {

constexpr const char* kParser = "PiBenchmark::parse_options()";

void run_pi_benchmark(const std::string& size, const JobOptions& options) {
    (void)size;
    (void)options;
    job_not_available("PiBenchmark::run()", "The Pi benchmark is not available in this build.");
}

}  // namespace

const std::vector<std::string_view>& pi_benchmark_sizes() {
    // Decimal digits; m = 10^6, b = 10^9, t = 10^12.
    static const std::vector<std::string_view> sizes = {
        "25m", "50m", "100m", "250m", "500m", "1b",  "2.5b", "5b",  "10b",
        "25b", "50b", "100b", "250b", "500b", "1t", "2.5t", "5t", "10t",
    };
    return sizes;
}

void bench_action(qmp::CommandLine& args) {
    const std::vector<std::string_view>& sizes = pi_benchmark_sizes();
    std::string size;
    const JobOptions options = parse_job_options(
        args, kParser, {"-noSMT", "-TD", "-PF", "-MA", "-swap", "-M", "-minIO", "-bytesperseek"},
        [&](const std::string& word) {
            // One size only: a second one is more likely a typo than a wish.
            if (!size.empty() || std::find(sizes.begin(), sizes.end(), word) == sizes.end())
                return false;
            size = word;
            return true;
        });
    if (size.empty()) throw qmp::InvalidParametersException(kParser, "No benchmark size selected.");
    check_swap_only_options(options, kParser, {"-M", "-minIO", "-bytesperseek"});
    run_pi_benchmark(size, options);
}

void bench_menu() {
    job_not_available("PiBenchmark::run()", "The Pi benchmark is not available in this build.");
}

}  // namespace qv
