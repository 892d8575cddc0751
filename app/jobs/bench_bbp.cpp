// The BBP digit-extraction benchmark ("bench-bbp", menu entry 1): extracts hexadecimal digits of
// pi at one of the listed offsets, on the processor only. The size word is required and comes
// first; the only option is -noSMT.
#include "app/jobs/jobs.h"

#include "app/jobs/job_options.h"
#include "qmp/exception.h"

#include <algorithm>

namespace qv {
namespace {

constexpr const char* kParser = "BbpBenchmark::parse_options()";

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
    const JobOptions options =
        parse_job_options(args, kParser, {"-noSMT"}, [](const std::string&) { return false; });
    (void)options;
    job_not_available("BbpBenchmark::run()",
                      "The BBP digit-extraction benchmark is not available in this build.");
}

void bench_bbp_menu() {
    job_not_available("BbpBenchmark::run()",
                      "The BBP digit-extraction benchmark is not available in this build.");
}

}  // namespace qv
