// What every benchmark program shares: clocks, the best-of-rounds timer, the splitmix64 operand
// generator and 128-byte aligned word storage. Header-only; benchmarks are single files.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <vector>

namespace qmp::bench {

inline double wall_seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The process's CPU time: on a shared machine, one-thread timings of long runs in wall time
// mostly measure the other processes.
inline double process_cpu_seconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Seconds per call of f: the best of `rounds` rounds, each looping for at least `min_round_s`.
template <typename F, typename Clock = double (*)()>
double time_best(F&& f, int rounds = 3, double min_round_s = 0.05, Clock clock = wall_seconds) {
    double best = 1e30;
    for (int r = 0; r < rounds; ++r) {
        long k = 0;
        const double t0 = clock();
        double t1;
        do {
            f();
            ++k;
            t1 = clock();
        } while (t1 - t0 < min_round_s);
        best = std::min(best, (t1 - t0) / double(k));
    }
    return best;
}

struct SplitMix64 {
    uint64_t state;
    uint64_t next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
};

// n words whose start is 128-byte aligned.
struct AlignedWords {
    std::vector<uint64_t> storage;
    uint64_t* data;
    uint64_t n;
    explicit AlignedWords(uint64_t n_words) : storage(n_words + 16), n(n_words) {
        const uintptr_t p = (reinterpret_cast<uintptr_t>(storage.data()) + 127) & ~uintptr_t(127);
        data = reinterpret_cast<uint64_t*>(p);
    }
};

}  // namespace qmp::bench
