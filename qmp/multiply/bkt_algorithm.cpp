// The BKT table algorithm: buffer checks in front of bkt_mul()/bkt_sqr(), and its thresholds.
#include "qmp/multiply/bkt_algorithm.h"

#include <memory>

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"

namespace qmp {

// Cross-over points (operand words) of basecase -> Karatsuba -> Toom-3, measured by
// `qmp_mulbench --tune` on AMD Zen 5 (2 vCPUs shared with other work, ADX rows), 2026-11-22,
// g++ 12 -O2. Three runs gave: products 32 / 32 / 32, squares 60 / 76 / 68, Toom-3 products
// 384 / 396 / 396, Toom-3 squares 468 / 540 / 420; the medians are used. Near each cross-over
// the two methods are within a few per cent over a wide range, so the spread between runs is
// noise on a flat curve and the exact values matter little.
KaratsubaThresholds default_karatsuba_thresholds() {
    KaratsubaThresholds t;
    t.mul_min_words = 32;
    t.sqr_min_words = 68;
    t.toom3_mul_min_words = 396;
    t.toom3_sqr_min_words = 468;
    return t;
}

BasecaseKaratsuba::BasecaseKaratsuba(KaratsubaThresholds thresholds, uint64_t max_product_words)
    : thresholds_(thresholds), max_product_words_(max_product_words) {}

void BasecaseKaratsuba::assert_valid() const {
    // Below 2 words a Karatsuba step would not shrink its operands; Toom-3 takes over from
    // Karatsuba, never from the basecase.
    if (thresholds_.mul_min_words < 2 || thresholds_.toom3_mul_min_words < thresholds_.mul_min_words)
        throw InvalidParametersException("BasecaseKaratsuba::assert_valid()", "Invalid table entry 0.");
    if (max_product_words_ < 2 * thresholds_.mul_min_words)
        throw InvalidParametersException("BasecaseKaratsuba::assert_valid()", "Invalid table entry 1.");
    if (thresholds_.sqr_min_words < 2 || thresholds_.toom3_sqr_min_words < thresholds_.sqr_min_words)
        throw InvalidParametersException("BasecaseKaratsuba::assert_valid()", "Invalid table entry 2.0.");
}

uint64_t BasecaseKaratsuba::multiply_buffer_bytes(uint64_t product_words) const {
    return bkt_itch_bound(product_words) * sizeof(uint64_t);
}

void BasecaseKaratsuba::multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B,
                                 uint64_t BL, void* scratch, uint64_t scratch_bytes,
                                 const MultiplyContext& context) const {
    (void)context;
    const uint64_t need = multiply_buffer_bytes(AL + BL);
    if (scratch_bytes < need)
        throw BufferTooSmallException("BasecaseKaratsuba::multiply()", scratch_bytes, need);
    bkt_mul(C, A, AL, B, BL, static_cast<uint64_t*>(scratch), thresholds_);
}

void BasecaseKaratsuba::square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch,
                               uint64_t scratch_bytes, const MultiplyContext& context) const {
    (void)context;
    const uint64_t need = multiply_buffer_bytes(2 * AL);
    if (scratch_bytes < need)
        throw BufferTooSmallException("BasecaseKaratsuba::square()", scratch_bytes, need);
    bkt_sqr(C, A, AL, static_cast<uint64_t*>(scratch), thresholds_);
}

void register_bkt(AlgorithmRegistry& registry) {
    registry.add("BKT", [](const NamedAlgorithmEntry& entry) {
        return std::make_unique<BasecaseKaratsuba>(default_karatsuba_thresholds(),
                                                   entry.threshold_words);
    });
}

}  // namespace qmp
