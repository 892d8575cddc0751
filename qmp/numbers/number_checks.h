// Small checks shared by the number types: whether two word ranges overlap, and whether a carry
// of x added at a[0] runs out of the top of a[0, n). Header-inline; they never throw.
#pragma once

#include <cstdint>
#include <functional>

namespace qmp::detail {

template <typename W>
inline bool ranges_overlap(const W* a, uint64_t an, const W* b, uint64_t bn) {
    if (an == 0 || bn == 0) return false;
    std::less<const W*> less;
    return less(a, b + bn) && less(b, a + an);
}

// True when a[0, n) + x (x added at word 0) carries out of word n - 1.
template <typename W>
inline bool carry_escapes(const W* a, uint64_t n, W x) {
    if (n == 0) return x != 0;
    if (W(a[0] + x) >= x) return false;
    for (uint64_t i = 1; i < n; ++i)
        if (a[i] != W(~W(0))) return false;
    return true;
}

}  // namespace qmp::detail
