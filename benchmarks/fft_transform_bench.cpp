// Micro-benchmark of the transforms alone: for m * 2^k real points, the best-of-N time of one
// forward transform, of forward + pointwise square + inverse (a squaring's transform work), and
// ns per complex point per radix-4 pass (forward time / (n * log2(n) / 2)).
// Usage: fft_transform_bench [threads=1] [k_min=11] [k_max=24] [m=1]; QMP_SIMD picks the kernels.
#include "qmp/cpu_features.h"
#include "qmp/multiply/fft/transform.h"
#include "qmp/parallel/parallelizer.h"

#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

class ThreadPerTask final : public qmp::Parallelizer {
public:
    void run_in_parallel(uint64_t count, qmp::TaskFunction task) override {
        std::vector<std::thread> threads;
        for (uint64_t i = 1; i < count; ++i) threads.emplace_back([&task, i] { task(i); });
        if (count > 0) task(0);
        for (auto& t : threads) t.join();
    }
    std::string description() const override { return "thread per task"; }
};

// With one thread the clock is the thread's CPU time: on a shared, oversubscribed machine wall
// time of long runs mostly measures other processes. With threads it is wall time.
bool g_cpu_clock = true;
double now_seconds() {
    timespec ts;
    clock_gettime(g_cpu_clock ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

qmp::fft::Block* alloc_blocks(uint64_t bytes) {
    void* p = std::aligned_alloc(4096, (bytes + 4095) / 4096 * 4096);
    qmp::fft::advise_huge_pages(p, bytes);
    std::memset(p, 0, bytes);
    return static_cast<qmp::fft::Block*>(p);
}

}  // namespace

int main(int argc, char** argv) {
    const uint64_t threads = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    const int k_min = argc > 2 ? std::atoi(argv[2]) : 11;
    const int k_max = argc > 3 ? std::atoi(argv[3]) : 24;
    const int m = argc > 4 ? std::atoi(argv[4]) : 1;
    g_cpu_clock = threads <= 1;
    ThreadPerTask pool;
    qmp::Parallelizer* p = threads > 1 ? &pool : nullptr;
    std::printf("kernels=%s threads=%llu m=%d clock=%s\n", qmp::simd_level_name(qmp::active_simd_level()),
                (unsigned long long)threads, m, g_cpu_clock ? "thread-cpu" : "wall");
    for (int k = k_min; k <= k_max; ++k) {
        const qmp::fft::Transform& t = qmp::fft::get_transform(m, k, 0);
        const uint64_t n = t.complex_points();
        qmp::fft::Block* in = alloc_blocks(n * 16);
        qmp::fft::Block* work = alloc_blocks(t.work_bytes());
        for (uint64_t i = 0; i < n; ++i) {
            in[i / 8].re[i % 8] = double((i * 2654435761u) % 65536) - 32768;
            in[i / 8].im[i % 8] = double((i * 40503u) % 65536) - 32768;
        }
        const int reps = n <= (1u << 14) ? 200 : n <= (1u << 18) ? 20 : 4;
        double best_fwd = 1e30, best_cycle = 1e30;
        for (int r = 0; r < reps; ++r) {
            double t0 = now_seconds();
            t.forward(in, work, nullptr, p, threads);
            best_fwd = std::min(best_fwd, (now_seconds() - t0));
            t0 = now_seconds();
            t.forward(in, work, nullptr, p, threads);
            t.pointwise_square(work, p, threads);
            t.inverse(work, in, nullptr, p, threads);
            best_cycle = std::min(best_cycle, (now_seconds() - t0));
            // The square grows the data; bring it back to the same scale for the next round.
            for (uint64_t i = 0; i < n; ++i) {
                in[i / 8].re[i % 8] = double((i * 2654435761u) % 65536) - 32768;
                in[i / 8].im[i % 8] = double((i * 40503u) % 65536) - 32768;
            }
        }
        const double passes = std::log2(double(n)) / 2;
        std::printf("%s  n=2^%-5.2f fwd=%10.3f us  fwd+sqr+inv=%10.3f us  ns/point/pass=%.3f\n",
                    t.description().c_str(), std::log2(double(n)), best_fwd * 1e6,
                    best_cycle * 1e6, best_fwd * 1e9 / (double(n) * passes));
        std::free(in);
        std::free(work);
    }
    return 0;
}
