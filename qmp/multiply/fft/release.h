// Points -> words: rounds the 2n coefficients of an inverse transform (coefficient j < n is the
// real part of point j, coefficient n + j its imaginary part) to integers c_j and writes
// C[0, CL) = sum_j c_j 2^(j b), releasing the signed carries block by block.
// Contract: `coefficient_count` (<= 2n) coefficients carry the product; the ones above it must
// round to zero. Coefficients must lie within +-2^62 (checked before any cast). Output words
// are written in full (C need not be initialised). No scratch. Identical for every task split.
// The caller decides what a bad status means: a large max distance is a precision failure (the
// product may be redone on a larger transform), an overrun is a fault (FFTv4::store()).
#pragma once

#include <cstdint>

#include "qmp/multiply/fft/transform.h"

namespace qmp {
class Parallelizer;
}

namespace qmp::fft {

struct ReleaseStatus {
    // Largest |x - round(x)| over every coefficient; +infinity when any coefficient was NaN,
    // infinite or beyond +-2^62 (so that `!(max_distance <= limit)` catches all of them).
    double max_distance = 0.0;
    // Some value lies beyond CL words: a nonzero coefficient above `coefficient_count`, or a
    // carry out of the top word. Index of the first word that overran (is) and the end (oe).
    bool overrun = false;
    uint64_t overrun_index = 0;
};

// `layout` says where natural block b lies (the work layout after an in-place inverse).
ReleaseStatus release_points(const Block* points, uint64_t n_complex, int bits,
                             uint64_t coefficient_count, uint64_t* C, uint64_t CL,
                             Parallelizer* parallelizer, uint64_t tds, const PointLayout& layout = {});

// Adds the signed value `carry` into C[begin, end) with propagation; returns what is left above
// `end` (0 when the carry was absorbed). The block carry fix-up between independently released
// ranges.
__int128 add_signed_carry(uint64_t* C, uint64_t begin, uint64_t end, __int128 carry);

}  // namespace qmp::fft
