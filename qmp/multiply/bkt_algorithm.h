// "BKT" (Basecase + Karatsuba, with Toom-3 above its threshold): the table algorithm for small
// and medium products. It serves any operand shape up to its largest product, recurses only
// into itself, never through the table, so its buffer need is its own, and runs on the calling
// thread (it ignores the context's parallelizer). Parameter table (checked by assert_valid()):
//   entry 0:   thresholds for products, in words: Karatsuba at least 2, Toom-3 not below it;
//   entry 1:   largest product served, in words (at least twice the Karatsuba threshold);
//   entry 2.0: thresholds for squares: Karatsuba at least 2, Toom-3 not below it.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/multiply/basic_algorithm.h"
#include "qmp/multiply/karatsuba.h"

namespace qmp {

class AlgorithmRegistry;

// Thresholds of this build on the reference machine; see bkt_algorithm.cpp for provenance.
KaratsubaThresholds default_karatsuba_thresholds();
// The largest product BKT is built for by default, in words.
inline constexpr uint64_t bkt_default_max_product_words = uint64_t(1) << 20;

class BasecaseKaratsuba final : public BasicAlgorithm {
public:
    explicit BasecaseKaratsuba(KaratsubaThresholds thresholds = default_karatsuba_thresholds(),
                               uint64_t max_product_words = bkt_default_max_product_words);

    const char* name() const noexcept override { return "BKT"; }
    std::string display_name() const override { return "Basecase + Karatsuba"; }
    void assert_valid() const override;
    // Scalar 64-bit integer code: the only instruction-set variant it has.
    bool supports(const std::string& feature) const override { return feature == "Scalar Integer"; }

    uint64_t multiply_buffer_bytes(uint64_t product_words) const override;

    void multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                  void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const override;
    void square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                const MultiplyContext& context) const override;

    const KaratsubaThresholds& thresholds() const noexcept { return thresholds_; }
    uint64_t max_product_words() const noexcept { return max_product_words_; }

private:
    KaratsubaThresholds thresholds_;
    uint64_t max_product_words_;
};

// Registers "BKT"; a table entry's threshold becomes the largest product it is built for.
void register_bkt(AlgorithmRegistry& registry);

}  // namespace qmp
