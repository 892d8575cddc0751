// The heuristic ("NT") tables.
#include "qmp/multiply/tuning_profile.h"

#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/bkt_algorithm.h"

namespace qmp {

namespace {

// Product size (words) above which the FFT takes over from Karatsuba. Measured by
// `fft_mulbench --crossover --cpu` (process CPU time, best of 3) on AMD Zen 5 (EPYC, AVX-512),
// 2026-11-22, g++ 12, after the fused split and pointwise passes: FFTv4/BKT time 1.12 (mul) and
// 1.13 (sqr) at 128 x 128 words, 0.90 / 0.93 at 160 x 160, 0.72 / 0.72 at 256 x 256. The
// cross-over lies between 256- and 320-word products.
constexpr uint64_t bkt_to_fft_product_words = 288;
// Products above this go to the split-modulus FFT: two negacyclic products of half the size,
// for 0.63-0.78 of the scratch at 1.2-1.5x the time (measured on AMD Zen 5 under load, one
// thread, n x n words: 600k 0.065 vs 0.078 s, 127 vs 80 MB; 3M 0.33 vs 0.50 s, 608 vs 441 MB).
// Only the largest products of a computation pass this size (the top merges of a series, the
// last Newton steps), where the scratch sets the memory a computation needs.
constexpr uint64_t fft_max_product_words = uint64_t(1) << 23;
// The split-modulus FFT serves up to here (it carries up to 117,440,508 words with the limit
// table of 2^28 points); beyond, Karatsuba steps over it.
constexpr uint64_t sft_max_product_words = (uint64_t(7) << 24) - 1024;
// Largest product the heuristic table serves (2^36 words = 512 GiB of product).
constexpr uint64_t mulb_max_product_words = uint64_t(1) << 36;

}  // namespace

const TuningProfile& heuristic_profile() {
    static const TuningProfile profile{"NT", "No Training. Disable all training tables and use heuristics."};
    return profile;
}

std::vector<NamedAlgorithmEntry> default_table_entries(const AlgorithmRegistry& registry) {
    std::vector<NamedAlgorithmEntry> list;
    if (registry.contains("FFTv4")) {
        list.push_back({bkt_to_fft_product_words, "BKT", {}});
        list.push_back({fft_max_product_words, "FFTv4", {}});
        if (registry.contains("SFTv4")) list.push_back({sft_max_product_words, "SFTv4", {}});
        if (registry.contains("MULB")) list.push_back({mulb_max_product_words, "MULB", {}});
    } else {
        list.push_back({bkt_default_max_product_words, "BKT", {}});
    }
    return list;
}

AlgorithmTableB make_default_table(const AlgorithmRegistry& registry) {
    return AlgorithmTableB(registry, default_table_entries(registry));
}

}  // namespace qmp
