// Timing of FFTv4 products and squares of N-word operands, in the peer timing tool's format
// ("words=N mul_s=T sqr_s=T": seconds per operation, best of 3 rounds of >= 50 ms each), plus
// the transform chosen and the scratch bytes the algorithm asks for, and a per-phase split of
// one product (split, forward, pointwise, inverse, release) with --phases.
//   fft_mulbench WORDS [THREADS] [--phases] [--cpu] [--thp]
//   fft_mulbench --crossover [--cpu]   FFTv4 against Basecase + Karatsuba, 96..16384 words
//   fft_mulbench --scratch             the default tables' scratch bytes for 1k .. 4M words
// THREADS > 1 runs through the push-pool framework with tds = THREADS. --cpu times by the
// process's CPU clock instead of the wall clock: on a shared, loaded machine the wall clock
// mostly measures waiting (only meaningful for one thread).
#include "benchmarks/bench_support.h"
#include "qmp/multiply/fft/fftv4.h"

#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/fft/release.h"
#include "qmp/multiply/multiply.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/multiply/karatsuba.h"
#include "qmp/multiply/fft/split.h"
#include "qmp/parallel/pushpool_framework.h"

#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

bool g_cpu_clock = false;

double now_seconds() { return g_cpu_clock ? qmp::bench::process_cpu_seconds() : qmp::bench::wall_seconds(); }

template <typename F>
double time_best(F&& f, int rounds = 3, double min_round_s = 0.05) {
    return qmp::bench::time_best(f, rounds, min_round_s, now_seconds);
}

uint64_t splitmix(uint64_t& s) {
    uint64_t z = (s += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
}

// Balanced products of n words through BKT and FFTv4, and the ratio; FFTv4 pays off where the
// ratio drops below 1.
void crossover() {
    using namespace qmp;
    const FFTv4 fft;
    for (uint64_t n : {96, 128, 160, 192, 224, 256, 384, 512, 768, 1024, 1536, 2048, 3072, 4096, 6144, 8192, 12288, 16384}) {
        std::vector<uint64_t> A(n), B(n), C(2 * n);
        uint64_t s = n;
        for (auto& w : A) w = splitmix(s);
        for (auto& w : B) w = splitmix(s);
        std::vector<uint64_t> itch(bkt_itch_bound(2 * n));
        std::vector<char> scratch(fft.multiply_buffer_bytes(2 * n));
        const double bkt_mul_s = time_best([&] { bkt_mul(C.data(), A.data(), n, B.data(), n, itch.data(), KaratsubaThresholds{}); });
        const double bkt_sqr_s = time_best([&] { bkt_sqr(C.data(), A.data(), n, itch.data(), KaratsubaThresholds{}); });
        const double fft_mul_s = time_best([&] {
            fft.multiply(C.data(), A.data(), n, B.data(), n, scratch.data(), scratch.size(), {});
        });
        const double fft_sqr_s = time_best([&] { fft.square(C.data(), A.data(), n, scratch.data(), scratch.size(), {}); });
        std::printf("words=%llu bkt_mul_s=%.4g fft_mul_s=%.4g ratio=%.2f bkt_sqr_s=%.4g fft_sqr_s=%.4g ratio=%.2f\n",
                    (unsigned long long)n, bkt_mul_s, fft_mul_s, fft_mul_s / bkt_mul_s, bkt_sqr_s, fft_sqr_s,
                    fft_sqr_s / bkt_sqr_s);
    }
}

// The scratch the default tables ask for per product, square and stored transform of N x N
// words (the buffer queries a caller sizes its working memory from).
void scratch_table() {
    using namespace qmp;
    AlgorithmRegistry registry;
    register_builtin_algorithms(registry);
    const AlgorithmTableB table = make_default_table(registry);
    for (uint64_t n : {1000, 10000, 100000, 1000000, 4000000}) {
        std::printf("words=%llu algorithm=%s mul_scratch_bytes=%llu sqr_scratch_bytes=%llu transform_bytes=%llu\n",
                    (unsigned long long)n, table.get_algorithm(2 * n).name(),
                    (unsigned long long)multiply_scratch_bytes(table, n, n),
                    (unsigned long long)square_scratch_bytes(table, n),
                    (unsigned long long)table.max_transform_buffer_sizes(2 * n));
    }
}

}  // namespace

int main(int argc, char** argv) {
    using namespace qmp;
    for (int i = 1; i < argc; ++i) g_cpu_clock |= std::strcmp(argv[i], "--cpu") == 0;
    if (argc >= 2 && std::strcmp(argv[1], "--crossover") == 0) {
        crossover();
        return 0;
    }
    if (argc >= 2 && std::strcmp(argv[1], "--scratch") == 0) {
        scratch_table();
        return 0;
    }
    if (argc < 2) {
        std::fprintf(stderr, "usage: fft_mulbench WORDS [THREADS] [--phases]\n");
        return 2;
    }
    try {
        const uint64_t n = std::strtoull(argv[1], nullptr, 10);
        const uint64_t threads = argc > 2 && argv[2][0] != '-' ? std::strtoull(argv[2], nullptr, 10) : 1;
        bool phases = false;
        for (int i = 2; i < argc; ++i) phases |= std::strcmp(argv[i], "--phases") == 0;
        std::unique_ptr<PushPoolFramework> pool;
        MultiplyContext context;
        if (threads > 1) {
            pool = std::make_unique<PushPoolFramework>();
            context.parallelizer = pool.get();
            context.tds = threads;
        }
        const FFTv4 fft;
        std::vector<uint64_t> A(n), B(n), C(2 * n);
        uint64_t s = 1;
        for (auto& w : A) w = splitmix(s);
        for (auto& w : B) w = splitmix(s);
        const uint64_t bytes = fft.multiply_buffer_bytes(2 * n);
        // The scratch is the caller's: allocated once, advised for huge pages (--thp) before
        // its first touch, as a job's working buffer would be.
        bool thp = false;
        for (int i = 2; i < argc; ++i) thp |= std::strcmp(argv[i], "--thp") == 0;
        const uint64_t alloc_bytes = (bytes + (uint64_t(2) << 20) - 1) & ~((uint64_t(2) << 20) - 1);
        std::unique_ptr<char, void (*)(void*)> scratch_memory(
            static_cast<char*>(std::aligned_alloc(uint64_t(2) << 20, alloc_bytes)), std::free);
        if (thp) fft::advise_huge_pages(scratch_memory.get(), alloc_bytes);
        std::memset(scratch_memory.get(), 0, alloc_bytes);
        struct {
            char* p;
            char* data() { return p; }
        } scratch{scratch_memory.get()};
        const double mul = time_best([&] {
            fft.multiply(C.data(), A.data(), n, B.data(), n, scratch.data(), bytes, context);
        });
        const double sqr = time_best([&] { fft.square(C.data(), A.data(), n, scratch.data(), bytes, context); });
        const fft::TransformSize size = fft.plan(2 * n);
        std::printf("words=%llu mul_s=%.6g sqr_s=%.6g transform=%s scratch_bytes=%llu threads=%llu simd=%s clock=%s\n",
                    (unsigned long long)n, mul, sqr, fft::describe(size).c_str(), (unsigned long long)bytes,
                    (unsigned long long)threads, simd_level_name(active_simd_level()), g_cpu_clock ? "cpu" : "wall");
        if (phases) {
            const fft::Transform& t = fft::get_transform(size.m, size.k, FFTv4::kConversionBlockExponent);
            const uint64_t points = size.complex_points();
            std::vector<fft::Block> p(points / 8), w1(t.work_bytes() / 128), w2(t.work_bytes() / 128);
            Parallelizer* par = context.parallelizer;
            const uint64_t tds = context.tds;
            const double split = time_best([&] {
                fft::split_words(A.data(), n, size.bits, fft::DigitMode::Dithered, p.data(), points, par, tds);
            });
            const double forward = time_best([&] { t.forward(p.data(), w1.data(), nullptr, par, tds); });
            t.forward(p.data(), w2.data(), nullptr, par, tds);
            const double pointwise = time_best([&] { t.pointwise_multiply(w1.data(), w2.data(), par, tds); });
            const double inverse = time_best([&] { t.inverse(w1.data(), p.data(), nullptr, par, tds); });
            t.forward(p.data(), w1.data(), nullptr, par, tds);
            std::vector<fft::Block> q(points / 8);
            fft::split_words(A.data(), n, size.bits, fft::DigitMode::Dithered, q.data(), points, par, tds);
            const double release = time_best([&] {
                fft::release_points(q.data(), points, size.bits, fft::split_digit_count(n, size.bits) + 1, C.data(),
                                    n, par, tds);
            });
            std::printf("phases: split=%.3g forward=%.3g pointwise=%.3g inverse=%.3g release=%.3g (s)\n", split,
                        forward, pointwise, inverse, release);
        }
    } catch (const qmp::Exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
