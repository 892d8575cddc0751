// Timing of pi by its series in memory: qmp_pibench DIGITS [THREADS] [ALGORITHM]
// computes pi to DIGITS decimal digits' worth of 64-bit words (plus guard words) with the
// "chudnovsky" (default) or "ramanujan" series and prints one line
//   digits=N series_s=T final_s=T total_s=T hex_mod_M61=R
// where R = floor(pi 16^h) mod 2^61 - 1, h = floor(DIGITS log2(10) / 4) - 16, to compare with
// the reference digits. THREADS above 1 runs a "pushpool" framework of that many workers with
// a task decomposition of THREADS. QMP_PIBENCH_PEAK=1 adds the planned buffer, the peak
// resident set and the twiddle tables built, in MiB; QMP_PIBENCH_PROFILE=1 adds lines with the time of the leaf blocks, of the merges above them
// by size (summed over tasks) and of the final steps.
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "formulas/pi/pi_finish.h"
#include "benchmarks/bench_support.h"
#include "qmp/exception.h"
#include "qmp/multiply/fft/transform.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/parallel/parallel_framework.h"

namespace {

constexpr auto now_s = qmp::bench::wall_seconds;


}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: qmp_pibench DIGITS [THREADS] [ALGORITHM]\n");
        return 2;
    }
    try {
        const uint64_t digits = std::strtoull(argv[1], nullptr, 10);
        const uint64_t threads = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
        const std::string algorithm = argc > 3 ? argv[3] : "chudnovsky";
        std::unique_ptr<qmp::ParallelFramework> framework;
        if (threads > 1) {
            qmp::ConfigObject settings = qmp::find_parallel_framework("pushpool").default_config();
            settings.get("WorkerThreads", "qmp_pibench") = qmp::ConfigObject::make_integer(int64_t(threads));
            framework = qmp::make_parallel_framework(settings);
        }
        qmp::AlgorithmRegistry registry;
        qmp::register_builtin_algorithms(registry);
        const qmp::AlgorithmTableB table = qmp::make_default_table(registry);

        const double t0 = now_s();
        const uint64_t words = uint64_t(std::ceil(double(digits) * std::log2(10.0) / 64.0)) + 1;
        qv::Pi_Series_BigFloatR pi(algorithm, table, words, threads);
        const double t_plan = now_s();
        const uint64_t bytes = pi.memory_bytes();
        // The working buffer is obtained and touched once before the run, as a job does.
        std::vector<uint64_t> memory(bytes / 8 + 32);
        void* base = reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(memory.data()) + 127) & ~uintptr_t(127));
        std::vector<uint64_t> result_words(pi.result_words() + 32);
        qmp::BigFloat<uint64_t> result(result_words.data(), pi.result_words());
        qv::PiTimings timings;
        const char* profile = std::getenv("QMP_PIBENCH_PROFILE");
        timings.profile.timing = profile && profile[0] == '1';
        const double t1 = now_s();
        pi.run(result, qmp::AlignedBufferC(base, bytes), framework.get(), &timings);
        const double t2 = now_s();
        const uint64_t h = uint64_t(std::floor(double(digits) * std::log2(10.0) / 4.0)) - 16;
        std::printf("digits=%llu series_s=%.4f final_s=%.4f total_s=%.4f hex_mod_M61=%llu", (unsigned long long)digits,
                    timings.series_s, timings.final_s, t2 - t0, (unsigned long long)qv::hex_prefix_residue(result, h));
        if (const char* e = std::getenv("QMP_PIBENCH_PEAK"); e && e[0] == '1') {
            rusage usage{};
            getrusage(RUSAGE_SELF, &usage);
            std::printf(" plan_s=%.4f alloc_s=%.4f planned_MiB=%.1f peak_MiB=%.1f twiddle_MiB=%.1f", t_plan - t0,
                        t1 - t_plan, double(bytes) / 1048576.0, double(usage.ru_maxrss) / 1024.0,
                        double(qmp::fft::twiddle_bytes_built()) / 1048576.0);
        }
        std::printf("\n");
        if (timings.profile.timing) {
            std::printf("  leaf_blocks_s=%.4f division_s=%.4f invsqrt_s=%.4f product_s=%.4f\n",
                        double(timings.profile.block_ns.load()) * 1e-9, timings.division_s, timings.invsqrt_s,
                        timings.product_s);
            for (int b = 0; b < 64; ++b)
                if (timings.profile.merge_count[b] != 0)
                    std::printf("  merges_of_2^%d_words count=%llu s=%.4f\n", b - 1,
                                (unsigned long long)timings.profile.merge_count[b].load(),
                                double(timings.profile.merge_ns[b].load()) * 1e-9);
        }
    } catch (const qmp::Exception& e) {
        e.print();
        return 1;
    }
    return 0;
}
