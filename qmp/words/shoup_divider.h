// Division of a word array by one word d through a precomputed reciprocal (no hardware divide in
// the loops). ShoupDivider<W> holds d, its negation 2^w - d and floor(2^(2w) / d) as two words;
// it accepts 3 <= d < 2^(w-1), d not a power of two, and throws
// qmp::InvalidParametersException "Divisor is too large." / "Untested with power-of-two."
// naming "ShoupDivider()". divmod() and mod_words() require the incoming remainder r < d, else
// "Top word is too large." naming "divmod()" / "mod_words()". Each runs from the top word down
// and keeps no state between calls; T may equal A (same index read before it is written).
#pragma once

#include <cstdint>

namespace qmp {

template <typename W>
struct ShoupDivider {
    W d;       // the divisor
    W nd;      // 2^w - d
    W rcp_lo;  // low word of floor(2^(2w) / d)
    W rcp_hi;  // high word of floor(2^(2w) / d) = floor((2^w - 1) / d)

    explicit ShoupDivider(W divisor);

    // One step of the long division: the quotient of (r * 2^w + a) / d, r < d; r becomes the
    // remainder. The estimate from the reciprocal is at most 3 below the quotient (the dropped
    // fractions of r*lo, a*hi, a*lo and of the reciprocal itself add up to less than 3.5), so
    // three masked corrections make it exact.
    W step(W& r, W a) const;
    // The same with a = 0: the estimate is at most 1 low, one correction.
    W step_expand(W& r) const;
};

// T[0, L) = (r * 2^(wL) + A[0, L)) / d; returns the remainder. L = 0 returns r unchanged.
template <typename W>
W divmod(W* T, const W* A, uint64_t L, const ShoupDivider<W>& divider, W r);

// T[0, L) = floor(r * 2^(wL) / d), the base-2^w expansion of r/d; returns the remainder.
template <typename W>
W divmod(W* T, uint64_t L, const ShoupDivider<W>& divider, W r);

// (r * 2^(wL) + A[0, L)) mod d without storing a quotient.
template <typename W>
W mod_words(const W* A, uint64_t L, const ShoupDivider<W>& divider, W r);

}  // namespace qmp
