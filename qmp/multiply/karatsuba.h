// Karatsuba (and Toom-3) multiplication and squaring over the basecase, for any shape.
//   bkt_mul: C[0, AL + BL) = A * B, AL >= BL >= 1. Shapes: BL below the threshold goes to the
//            basecase; above the Toom-3 threshold, BL > 2 ceil(AL / 3) takes a Toom-3 step;
//            BL > ceil(AL / 2) takes a Karatsuba step; a longer A is cut into pieces of BL
//            words whose products are accumulated.
//   bkt_sqr: C[0, 2 AL) = A^2.
// C must not overlap A, B or the scratch. Scratch: bkt_itch_bound(AL + BL) words always suffice;
// bkt_mul_itch()/bkt_sqr_itch() give the exact need of one shape but walk the recursion
// (time proportional to the number of Karatsuba steps), so they serve tests and audits.
// Nothing is checked here: the callers (BasecaseKaratsuba, the tables) check buffer sizes.
#pragma once

#include <cstdint>

namespace qmp {

struct KaratsubaThresholds {
    // Shorter operand length (words) from which a product takes a Karatsuba step.
    uint64_t mul_min_words = 32;
    // Operand length (words) from which a square takes a Karatsuba step.
    uint64_t sqr_min_words = 48;
    // Shorter operand length (words) from which a product of suitable shape takes a Toom-3
    // step instead, and the same for squares. Values above any size disable Toom-3.
    uint64_t toom3_mul_min_words = ~uint64_t(0);
    uint64_t toom3_sqr_min_words = ~uint64_t(0);
};

void bkt_mul(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
             uint64_t* scratch, const KaratsubaThresholds& thresholds);
void bkt_sqr(uint64_t* C, const uint64_t* A, uint64_t AL, uint64_t* scratch,
             const KaratsubaThresholds& thresholds);

uint64_t bkt_mul_itch(uint64_t AL, uint64_t BL, const KaratsubaThresholds& thresholds);
uint64_t bkt_sqr_itch(uint64_t AL, const KaratsubaThresholds& thresholds);
// An upper bound of both itch functions over all shapes with AL + BL = product_words, for any
// thresholds of at least 2 words.
uint64_t bkt_itch_bound(uint64_t product_words);

}  // namespace qmp
