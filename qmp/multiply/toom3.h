// One Toom-3 step (evaluation at 0, 1, -1, 2 and infinity) over the BKT recursion, for the
// product and the square. Callers (bkt_mul, bkt_sqr) guarantee the shape: with n = ceil(AL/3),
// AL >= BL > 2 n, so all three pieces of both operands are non-empty.
// C[0, AL + BL) (or C[0, 2 AL)) must not overlap the inputs or the scratch; the scratch needs
// toom3_step_words(AL) words plus the recursion's own need for products of n + 1 words.
#pragma once

#include <cstdint>

#include "qmp/multiply/karatsuba.h"

namespace qmp::detail {

bool takes_toom3_step(uint64_t AL, uint64_t BL);
uint64_t toom3_piece_words(uint64_t AL);
// Scratch of the step itself, before the scratch of its sub-products.
uint64_t toom3_step_words(uint64_t AL);

void toom3_mul(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
               uint64_t* scratch, const KaratsubaThresholds& thresholds);
void toom3_sqr(uint64_t* C, const uint64_t* A, uint64_t AL, uint64_t* scratch,
               const KaratsubaThresholds& thresholds);

}  // namespace qmp::detail
