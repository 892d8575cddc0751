// Timing of products and squares of N-word operands (BigInt<uint64_t>::set_mul() and set_sqr(),
// scratch sized from the table's queries) through the standard multiplication table,
// in the output format of the peer timing tool ("words=N mul_s=T sqr_s=T": seconds per
// operation, best of 3 rounds that each loop the operation for at least 50 ms).
//   qmp_mulbench WORDS [THREADS] [SEED]
//     SEED: operands are splitmix64 outputs from SEED, a's N words then b's N words, least
//           significant first; the line then adds "product_mod_M61=R square_mod_M61=R"
//           (a*b and a*a modulo 2^61 - 1), so results can be compared with another program.
//     THREADS: above 1, products get a "pushpool" framework of that many workers and a task
//              decomposition of THREADS (algorithms that split their work use it; BKT does not).
//   qmp_mulbench --bkt WORDS [THREADS] [SEED]   the same with a table of "BKT" alone.
//   qmp_mulbench --short M WORDS [THREADS]      an unbalanced WORDS x M product through the
//                                               multiplication entry point: "words=N short=M
//                                               mul_s=T product_mod_M61=R" (as gmp_mul's SHORT).
//   qmp_mulbench --tune   measures the basecase/Karatsuba/Toom-3 cross-overs on this machine.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/bench_support.h"
#include "qmp/exception.h"
#include "qmp/cpu_features.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/basecase.h"
#include "qmp/multiply/bkt_algorithm.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/karatsuba.h"
#include "qmp/multiply/multiply.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_int.h"
#include "qmp/words/word_array.h"
#include "qmp/words/mod_m61.h"
#include "qmp/parallel/parallel_framework.h"

namespace {

using qmp::bench::AlignedWords;
using qmp::bench::SplitMix64;
using qmp::bench::time_best;


// Seconds per call of f: best of `rounds`, each looping for at least `min_round_s`.



// For each candidate size n, `lower(n)` (the method below the cross-over) against `upper(n)`
// (one step of the method above it, children as usual). Short rounds alternate the two and the
// minimum of each is kept: on a shared machine the minimum over many short rounds is the
// stable statistic. A win needs a 2 % margin. The cross-over is the first size that wins and
// whose next four candidates win at least three times, so one disturbed measurement neither
// starts nor blocks it.
template <typename Lower, typename Upper>
uint64_t find_crossover(const char* label, uint64_t first, uint64_t last, uint64_t step, Lower lower, Upper upper) {
    std::vector<bool> wins;
    std::vector<uint64_t> sizes;
    for (uint64_t n = first; n <= last; n += step) {
        double t_low = 1e30, t_up = 1e30;
        for (int round = 0; round < 25; ++round) {
            t_low = std::min(t_low, time_best([&] { lower(n); }, 1, 0.002));
            t_up = std::min(t_up, time_best([&] { upper(n); }, 1, 0.002));
        }
        std::printf("  %s n=%4llu lower_s=%.4g upper_s=%.4g ratio=%.3f\n", label, (unsigned long long)n, t_low,
                    t_up, t_up / t_low);
        sizes.push_back(n);
        wins.push_back(t_up < 0.98 * t_low);
    }
    for (size_t i = 0; i + 4 < wins.size(); ++i) {
        const int later = wins[i + 1] + wins[i + 2] + wins[i + 3] + wins[i + 4];
        if (wins[i] && later >= 3) return sizes[i];
    }
    return last;
}

// Seconds of one n x n basecase product and square under each row kernel.
void compare_kernels() {
    SplitMix64 rng{99};
    std::vector<uint64_t> a(128), b(128), c(256);
    for (auto& w : a) w = rng.next();
    for (auto& w : b) w = rng.next();
    const bool saved = qmp::basecase_adx_enabled();
    for (uint64_t n : {8, 16, 32, 64, 128}) {
        for (bool adx : {false, true}) {
            qmp::set_basecase_adx(adx);
            if (qmp::basecase_adx_enabled() != adx) continue;
            double m = 1e30, q = 1e30;
            for (int round = 0; round < 25; ++round) {
                m = std::min(m, time_best([&] { qmp::mul_basecase(c.data(), a.data(), n, b.data(), n); }, 1, 0.002));
                q = std::min(q, time_best([&] { qmp::sqr_basecase(c.data(), a.data(), n); }, 1, 0.002));
            }
            std::printf("  basecase n=%3llu kernel=%-8s mul_s=%.4g sqr_s=%.4g\n", (unsigned long long)n,
                        adx ? "adx" : "portable", m, q);
        }
    }
    qmp::set_basecase_adx(saved);
}

int tune() {
    const qmp::CpuIdentity cpu = qmp::cpu_identity();
    std::printf("cpu: %s\n", cpu.brand.c_str());
    compare_kernels();
    const uint64_t max_n = 600;
    SplitMix64 rng{12345};
    std::vector<uint64_t> a(max_n), b(max_n), c(2 * max_n);
    for (auto& w : a) w = rng.next();
    for (auto& w : b) w = rng.next();
    std::vector<uint64_t> scratch(qmp::bkt_itch_bound(2 * max_n));
    uint64_t* s = scratch.data();
    const uint64_t off = ~uint64_t(0);

    // Karatsuba over the basecase: threshold n makes the top product take one step and its
    // halves (< n) use the basecase.
    const uint64_t kmul = find_crossover("karatsuba-mul", 12, 160, 4,
        [&](uint64_t n) { qmp::mul_basecase(c.data(), a.data(), n, b.data(), n); },
        [&](uint64_t n) { qmp::bkt_mul(c.data(), a.data(), n, b.data(), n, s, {n, n, off, off}); });
    const uint64_t ksqr = find_crossover("karatsuba-sqr", 12, 160, 4,
        [&](uint64_t n) { qmp::sqr_basecase(c.data(), a.data(), n); },
        [&](uint64_t n) { qmp::bkt_sqr(c.data(), a.data(), n, s, {n, n, off, off}); });
    // Toom-3 over Karatsuba, with the Karatsuba thresholds just measured.
    const uint64_t tmul = find_crossover("toom3-mul", 48, max_n, 12,
        [&](uint64_t n) { qmp::bkt_mul(c.data(), a.data(), n, b.data(), n, s, {kmul, ksqr, off, off}); },
        [&](uint64_t n) { qmp::bkt_mul(c.data(), a.data(), n, b.data(), n, s, {kmul, ksqr, n, off}); });
    const uint64_t tsqr = find_crossover("toom3-sqr", 48, max_n, 12,
        [&](uint64_t n) { qmp::bkt_sqr(c.data(), a.data(), n, s, {kmul, ksqr, off, off}); },
        [&](uint64_t n) { qmp::bkt_sqr(c.data(), a.data(), n, s, {kmul, ksqr, off, n}); });
    std::printf("mul_min_words=%llu sqr_min_words=%llu toom3_mul_min_words=%llu toom3_sqr_min_words=%llu\n",
                (unsigned long long)kmul, (unsigned long long)ksqr, (unsigned long long)tmul,
                (unsigned long long)tsqr);
    return 0;
}

int bench(uint64_t n, uint64_t threads, bool seeded, uint64_t seed, bool bkt_only) {
    std::unique_ptr<qmp::ParallelFramework> framework;
    if (threads > 1) {
        qmp::ConfigObject settings = qmp::find_parallel_framework("pushpool").default_config();
        settings.get("WorkerThreads", "qmp_mulbench") = qmp::ConfigObject::make_integer(int64_t(threads));
        framework = qmp::make_parallel_framework(settings);
    }
    qmp::Parallelizer* parallelizer = framework.get();
    std::vector<uint64_t> a(n), b(n), c(2 * n);
    if (seeded) {
        SplitMix64 rng{seed};
        for (auto& w : a) w = rng.next();
        for (auto& w : b) w = rng.next();
    } else {
        SplitMix64 rng{0x0123456789ABCDEFull};
        for (auto& w : a) w = rng.next();
        for (auto& w : b) w = rng.next();
        a[n - 1] |= 1ull << 63;  // full-length operands, as the peer uses
        b[n - 1] |= 1ull << 63;
    }

    qmp::AlgorithmRegistry registry;
    qmp::register_builtin_algorithms(registry);
    qmp::AlgorithmTableB table = bkt_only ? qmp::AlgorithmTableB(registry, {{std::max<uint64_t>(2 * n, 64), "BKT", {}}})
                                          : qmp::make_default_table(registry);
    if (2 * n > table.max_product_words()) {
        std::printf("This test size is beyond the limit of the current algorithm.\n");
        std::printf("Reverting to default algorithm...\n");
        table = qmp::AlgorithmTableB(registry, {{2 * n, "BKT", {}}});
    }
    using Int = qmp::BigInt<uint64_t>;
    Int A(a.data(), n), B(b.data(), n), C(c.data(), 2 * n);
    A.L = qmp::normalized_length(a.data(), n);
    B.L = qmp::normalized_length(b.data(), n);
    const uint64_t mul_bytes = qmp::AlignedBufferC::round_up(Int::mul_scratch_bytes(table, n, n));
    const uint64_t sqr_bytes = qmp::AlignedBufferC::round_up(Int::sqr_scratch_bytes(table, n));
    AlignedWords mul_scratch(mul_bytes / 8), sqr_scratch(sqr_bytes / 8);
    const qmp::AlignedBufferC mul_buffer(mul_scratch.data, mul_bytes);
    const qmp::AlignedBufferC sqr_buffer(sqr_scratch.data, sqr_bytes);

    const double mul_s = time_best([&] { C.set_mul(A, B, table, mul_buffer, parallelizer, threads); });
    const uint64_t product_mod = qmp::mod_m61(C.T, C.L);
    const double sqr_s = time_best([&] { C.set_sqr(A, table, sqr_buffer, parallelizer, threads); });
    const uint64_t square_mod = qmp::mod_m61(C.T, C.L);

    std::printf("words=%llu mul_s=%.6g sqr_s=%.6g", (unsigned long long)n, mul_s, sqr_s);
    if (seeded)
        std::printf(" product_mod_M61=%llu square_mod_M61=%llu", (unsigned long long)product_mod,
                    (unsigned long long)square_mod);
    std::printf("\n");
    return 0;
}

int bench_short(uint64_t n, uint64_t m, uint64_t threads) {
    std::unique_ptr<qmp::ParallelFramework> framework;
    if (threads > 1) {
        qmp::ConfigObject settings = qmp::find_parallel_framework("pushpool").default_config();
        settings.get("WorkerThreads", "qmp_mulbench") = qmp::ConfigObject::make_integer(int64_t(threads));
        framework = qmp::make_parallel_framework(settings);
    }
    SplitMix64 rng{0x0123456789ABCDEFull};
    std::vector<uint64_t> a(n), b(m), c(n + m);
    for (auto& w : a) w = rng.next();
    for (auto& w : b) w = rng.next();
    a[n - 1] |= 1ull << 63;
    b[m - 1] |= 1ull << 63;
    qmp::AlgorithmRegistry registry;
    qmp::register_builtin_algorithms(registry);
    const qmp::AlgorithmTableB table = qmp::make_default_table(registry);
    const uint64_t bytes = qmp::AlignedBufferC::round_up(qmp::multiply_scratch_bytes(table, n, m));
    AlignedWords scratch(bytes / 8);
    const double mul_s = time_best([&] {
        qmp::multiply(table, c.data(), a.data(), n, b.data(), m, scratch.data, bytes, framework.get(), threads);
    });
    std::printf("words=%llu short=%llu mul_s=%.6g product_mod_M61=%llu\n", (unsigned long long)n,
                (unsigned long long)m, mul_s, (unsigned long long)qmp::mod_m61(c.data(), n + m));
    return 0;
}

bool parse_u64(const char* text, uint64_t& value) {
    char* end = nullptr;
    value = std::strtoull(text, &end, 10);
    return end != text && *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 2 && std::strcmp(argv[1], "--tune") == 0) return tune();
        if (argc >= 4 && std::strcmp(argv[1], "--short") == 0) {
            uint64_t m = 0, n = 0, threads = 1;
            if (!parse_u64(argv[2], m) || !parse_u64(argv[3], n) || m == 0 || n < m ||
                (argc > 4 && (!parse_u64(argv[4], threads) || threads == 0))) {
                std::fprintf(stderr, "usage: qmp_mulbench --short M WORDS [THREADS]\n");
                return 2;
            }
            return bench_short(n, m, threads);
        }
        const bool bkt_only = argc > 1 && std::strcmp(argv[1], "--bkt") == 0;
        if (bkt_only) {
            --argc;
            ++argv;
        }
        uint64_t n = 0, threads = 1, seed = 0;
        if (argc < 2 || argc > 4 || !parse_u64(argv[1], n) || n == 0 ||
            (argc > 2 && (!parse_u64(argv[2], threads) || threads == 0)) ||
            (argc > 3 && !parse_u64(argv[3], seed))) {
            std::fprintf(stderr,
                         "usage: qmp_mulbench [--bkt] WORDS [THREADS] [SEED]\n       qmp_mulbench --tune\n");
            return 2;
        }
        return bench(n, threads, argc > 3, seed, bkt_only);
    } catch (const qmp::Exception& e) {
        e.print();
        return 1;
    }
}
