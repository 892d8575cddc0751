// Timing of the Newton functions at N words (64-bit words), in the output format of the peer
// timing tool:
//   words=N inv_s=T div_s=T rsqrt_s=T sqrt_s=T root4_s=T mul_s=T
// seconds per operation, best of 3 rounds that each loop the operation for at least 50 ms.
// Operands are fixed pseudo-random N-word numbers in [1, 2); results have N words of precision;
// root4 is the expanded form (y^4 by two squarings in every step), faster for n = 4 than the
// factored one (a square root, then an inverse square root); mul_s is our own N x N product
// (BigFloat::set_mul at 2N words) on the same operands, the unit of the targets.
//   qmp_funcbench WORDS [THREADS]   THREADS > 1: a "pushpool" framework with tds = THREADS.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "benchmarks/bench_support.h"
#include "qmp/exception.h"
#include "qmp/functions/division.h"
#include "qmp/functions/inv_nth_root.h"
#include "qmp/functions/invsqrt.h"
#include "qmp/functions/reciprocal.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/parallel/parallel_framework.h"

namespace {

using qmp::bench::time_best;



// 128-byte aligned words.
struct Words {
    std::vector<uint64_t> storage;
    uint64_t* data;
    uint64_t n;
    explicit Words(uint64_t n_words) : storage(n_words + 32), n(n_words) {
        const uintptr_t p = (reinterpret_cast<uintptr_t>(storage.data()) + 127) & ~uintptr_t(127);
        data = reinterpret_cast<uint64_t*>(p);
    }
    qmp::AlignedBufferC buffer() const { return qmp::AlignedBufferC(data, n * 8 / 128 * 128); }
};

// N words of [1, 2): a top word 1 over N - 1 pseudo-random words.
qmp::BigFloat<uint64_t> operand(std::vector<uint64_t>& words, uint64_t n, uint64_t seed) {
    words.assign(n, 0);
    uint64_t s = seed;
    for (uint64_t i = 0; i + 1 < n; ++i) {
        uint64_t z = (s += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        words[i] = z ^ (z >> 31);
    }
    words[n - 1] = 1;
    qmp::BigFloat<uint64_t> x(words.data(), n);
    x.L = n;
    x.exp = -int64_t(n - 1);
    return x;
}

}  // namespace

int main(int argc, char** argv) {
    using Float = qmp::BigFloat<uint64_t>;
    try {
        const uint64_t n = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
        const uint64_t threads = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
        if (n == 0 || threads == 0 || argc > 3) {
            std::fprintf(stderr, "usage: qmp_funcbench WORDS [THREADS]\n");
            return 2;
        }
        std::unique_ptr<qmp::ParallelFramework> framework;
        if (threads > 1) {
            qmp::ConfigObject settings = qmp::find_parallel_framework("pushpool").default_config();
            settings.get("WorkerThreads", "qmp_funcbench") = qmp::ConfigObject::make_integer(int64_t(threads));
            framework = qmp::make_parallel_framework(settings);
        }
        qmp::Parallelizer* par = framework.get();
        qmp::AlgorithmRegistry registry;
        qmp::register_builtin_algorithms(registry);
        const qmp::AlgorithmTableB table = qmp::make_default_table(registry);

        std::vector<uint64_t> aw, bw;
        const Float a = operand(aw, n, 1), b = operand(bw, n, 2);
        // Precision n words: the result to n words, as the peers' precision of 64 n bits.
        const qmp::Reciprocal_BigFloatR<uint64_t> recip(table, n, threads);
        const qmp::Division_BigFloatR<uint64_t> div(table, n, threads);
        const qmp::InvsqrtFloat_BigFloatR<uint64_t> rsqrt(table, n, threads);
        const qmp::SqrtFloat_BigFloatR<uint64_t> sqrt(table, n, threads);
        const qmp::InvNthRootFloat_BigFloatR_P<uint64_t> root4(table, 4, n, threads);
        const uint64_t scratch_bytes =
            std::max({recip.scratch_bytes(), div.scratch_bytes(), rsqrt.scratch_bytes(), sqrt.scratch_bytes(),
                      root4.scratch_bytes(), Float::mul_scratch_bytes(table, n, n)});
        Words scratch(scratch_bytes / 8 + 16), out(2 * n + 8);
        Float y(out.data, 2 * n + 8);
        const qmp::AlignedBufferC s = scratch.buffer();

        const double inv_s = time_best([&] { recip.run(y, a, n, s, par, threads); });
        const double div_s = time_best([&] { div.run(y, a, b, n, s, par, threads); });
        const double rsqrt_s = time_best([&] { rsqrt.run(y, a, n, s, par, threads); });
        const double sqrt_s = time_best([&] { sqrt.run(y, a, n, s, par, threads); });
        const double root4_s = time_best([&] { root4.run_expanded(y, a, n, s, par, threads); });
        const double mul_s = time_best([&] { y.set_mul(a, b, 2 * n, table, s, par, threads); });
        std::printf("words=%llu inv_s=%.6g div_s=%.6g rsqrt_s=%.6g sqrt_s=%.6g root4_s=%.6g mul_s=%.6g\n",
                    (unsigned long long)n, inv_s, div_s, rsqrt_s, sqrt_s, root4_s, mul_s);
        return 0;
    } catch (const qmp::Exception& e) {
        e.print();
        return 1;
    }
}
