// Timing of the two-formula hexadecimal digit extraction of pi at one position.
//   qmp_bbpbench POSITION [THREADS] [--bbp-only]
// prints one line "position=N hex=DIGITS seconds=T": DIGITS are the hexadecimal digits N+1,
// N+2, ... after the point (upper case, the certain ones, 16 to 24), T the wall time of the
// whole extraction (both formulas and their agreement check). A second line on standard
// error names the kernel, the threads and each formula's term count. The kernel follows
// QMP_SIMD. With --bbp-only only the BBP sum is timed (the work of the plain reference
// extractor) and its first 20 digits printed unchecked, for a like-for-like speed ratio.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "formulas/bbp/hex_digit_extractor.h"
#include "qmp/exception.h"

namespace {

std::string upper(std::string s) {
    for (char& c : s)
        if (c >= 'a' && c <= 'f') c = char(c - 'a' + 'A');
    return s;
}

int bbp_only(uint64_t position, uint32_t threads) {
    using namespace qv::bbp;
    const TermKernel& kernel = active_term_kernel();
    const uint64_t k_count = head_k_count(bbp_formula(), position);
    const auto start = std::chrono::steady_clock::now();
    FormulaSum total = sum_tail(bbp_formula(), position);
    std::unique_ptr<qmp::ParallelFramework> framework = make_extractor_framework(threads);
    std::vector<FormulaSum> parts(threads);
    auto task = [&](uint64_t t) {
        parts[t] = sum_head(bbp_formula(), position, k_count * t / threads, k_count * (t + 1) / threads, kernel);
    };
    if (framework) framework->run(threads, task);
    else task(0);
    for (const FormulaSum& p : parts) total += p;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("position=%llu hex=%s seconds=%.3f\n", (unsigned long long)position,
                upper(hex128(total.value).substr(0, 20)).c_str(), seconds);
    std::fprintf(stderr, "kernel=%s threads=%u formula=BBP terms=%llu (unchecked)\n", kernel.name, threads,
                 (unsigned long long)total.terms);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: qmp_bbpbench POSITION [THREADS] [--bbp-only]\n");
        return 2;
    }
    const uint64_t position = std::strtoull(argv[1], nullptr, 10);
    const uint32_t threads = argc > 2 && argv[2][0] != '-' ? uint32_t(std::atoi(argv[2])) : 1;
    const bool only_bbp = std::strcmp(argv[argc - 1], "--bbp-only") == 0;
    if (threads < 1 || threads > 1024) {
        std::fprintf(stderr, "THREADS must be 1 to 1024\n");
        return 2;
    }
    try {
        if (only_bbp) return bbp_only(position, threads);
        std::unique_ptr<qmp::ParallelFramework> framework = qv::bbp::make_extractor_framework(threads);
        qv::bbp::ExtractorSettings settings;
        settings.position = position;
        settings.threads = threads;
        settings.parallelizer = framework.get();
        const qv::bbp::ExtractionResult r = qv::bbp::extract_pi_hex_digits(settings);
        std::printf("position=%llu hex=%s seconds=%.3f\n", (unsigned long long)position, upper(r.digits).c_str(),
                    r.seconds);
        std::fprintf(stderr, "kernel=%s threads=%u bbp_terms=%llu bellard_terms=%llu certain_digits=%d\n",
                     r.kernel.c_str(), threads, (unsigned long long)r.bbp.terms, (unsigned long long)r.bellard.terms,
                     r.certain_digits);
        return 0;
    } catch (const qmp::Exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
