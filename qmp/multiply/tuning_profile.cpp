// The heuristic ("NT") tables.
#include "qmp/multiply/tuning_profile.h"

#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/bkt_algorithm.h"

namespace qmp {

namespace {

// Product size (words) above which the FFT takes over from Karatsuba; a placeholder until the
// FFT is measured against BKT with qmp_mulbench.
constexpr uint64_t bkt_to_fft_product_words = 4096;
// Largest product the heuristic table routes to the FFT (2^36 words = 512 GiB of product).
constexpr uint64_t fft_max_product_words = uint64_t(1) << 36;

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
    } else {
        list.push_back({bkt_default_max_product_words, "BKT", {}});
    }
    return list;
}

AlgorithmTableB make_default_table(const AlgorithmRegistry& registry) {
    return AlgorithmTableB(registry, default_table_entries(registry));
}

}  // namespace qmp
