// Overhead of the parallel frameworks: the time of one run of N empty tasks (N = 2, 8, 64,
// 1024), and of a fork-join binary recursion of depth D (2^D leaves, every fork a run of two
// tasks, the shape binary splitting gives). One line per (framework, case) with microseconds:
// per run for the empty-task cases (mean over repeated runs for at least 0.2 s), per whole
// recursion for fork-join (the best of 3, or a single trial when one takes over 2 s).
//
// Usage: parallel_bench [depth (default 20)] [framework key ...]
#include "qmp/parallel/parallel_framework.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double microseconds_since(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double empty_run_us(qmp::Parallelizer& p, uint64_t n) {
    auto nothing = [](uint64_t) {};
    for (int i = 0; i < 10; ++i) p.run(n, nothing);  // warm-up: threads awake, caches filled
    uint64_t runs = 0;
    const Clock::time_point start = Clock::now();
    double elapsed = 0;
    do {
        for (int i = 0; i < 10; ++i) p.run(n, nothing);
        runs += 10;
        elapsed = microseconds_since(start);
    } while (elapsed < 200000.0);
    return elapsed / double(runs);
}

uint64_t fork_join(qmp::Parallelizer& p, uint32_t depth) {
    if (depth == 0) return 1;
    uint64_t leaves[2];
    p.run(2, [&](uint64_t h) { leaves[h] = fork_join(p, depth - 1); });
    return leaves[0] + leaves[1];
}

}  // namespace

int main(int argc, char** argv) {
    const uint32_t depth = argc > 1 ? uint32_t(std::atoi(argv[1])) : 20;
    std::vector<std::string> keys;
    for (int i = 2; i < argc; ++i) keys.push_back(argv[i]);
    if (keys.empty()) {
        for (const auto& type : qmp::parallel_framework_types()) keys.push_back(type.key);
    }
    for (const std::string& key : keys) {
        auto framework = qmp::make_parallel_framework(qmp::find_parallel_framework(key).default_config());
        for (uint64_t n : {2, 8, 64, 1024}) {
            std::printf("%-10s empty tasks N=%-5llu %12.2f us/run\n", key.c_str(), (unsigned long long)n,
                        empty_run_us(*framework, n));
            std::fflush(stdout);
        }
        double best = 1e300;
        for (int trial = 0; trial < 3; ++trial) {
            const Clock::time_point start = Clock::now();
            const uint64_t leaves = fork_join(*framework, depth);
            const double us = microseconds_since(start);
            if (leaves != (uint64_t(1) << depth)) {
                std::fprintf(stderr, "%s: fork-join counted %llu leaves\n", key.c_str(), (unsigned long long)leaves);
                return 1;
            }
            best = std::min(best, us);
            if (best > 2e6) break;  // thread-per-task frameworks: seconds per recursion, one trial
        }
        std::printf("%-10s fork-join depth=%-4u %12.0f us (%.3f us/fork)\n", key.c_str(), depth, best,
                    best / double((uint64_t(1) << depth) - 1));
        std::fflush(stdout);
    }
    return 0;
}
