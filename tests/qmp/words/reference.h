// An independent reference for the word-array tests: numbers as 16-bit digits (least significant
// first, the same bytes as the word arrays) with schoolbook arithmetic in 32-bit integers, and
// long division with the compiler's 128-bit division. Slow and obviously right.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace qmp::test {

using Digits = std::vector<uint16_t>;

template <typename W>
Digits to_digits(const W* a, uint64_t n) {
    Digits d(n * sizeof(W) / 2);
    if (n != 0) std::memcpy(d.data(), a, n * sizeof(W));
    return d;
}

// Words [first, first + n) of x; digits beyond x are zero.
template <typename W>
std::vector<W> to_words(const Digits& x, uint64_t n, uint64_t first = 0) {
    std::vector<W> w(n, 0);
    const uint64_t begin = std::min<uint64_t>(x.size() * 2, first * sizeof(W));
    const uint64_t bytes = std::min<uint64_t>(x.size() * 2 - begin, n * sizeof(W));
    if (bytes != 0) std::memcpy(w.data(), reinterpret_cast<const char*>(x.data()) + begin, bytes);
    return w;
}
template <typename W>
W word_at(const Digits& x, uint64_t index) { return to_words<W>(x, 1, index)[0]; }

inline Digits ref_add(const Digits& x, const Digits& y) {
    Digits r(std::max(x.size(), y.size()) + 1);
    uint32_t c = 0;
    for (size_t i = 0; i < r.size(); ++i) {
        c += uint32_t(i < x.size() ? x[i] : 0) + (i < y.size() ? y[i] : 0);
        r[i] = uint16_t(c);
        c >>= 16;
    }
    return r;
}

// x - y modulo 2^(16 x.size()); `borrow` tells whether y > x.
inline Digits ref_sub(const Digits& x, const Digits& y, bool& borrow) {
    Digits r(x.size());
    uint32_t b = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        const uint32_t t = x[i] - (i < y.size() ? y[i] : 0u) - b;
        r[i] = uint16_t(t);
        b = t >> 31;
    }
    borrow = b != 0 || std::any_of(y.begin() + std::min(x.size(), y.size()), y.end(), [](uint16_t v) { return v != 0; });
    return r;
}

inline Digits ref_mul(const Digits& x, const Digits& y) {
    Digits r(x.size() + y.size() + 1);
    for (size_t i = 0; i < x.size(); ++i) {
        uint32_t c = 0;
        for (size_t j = 0; j < y.size() || c != 0; ++j) {
            c += uint32_t(x[i]) * (j < y.size() ? y[j] : 0) + r[i + j];
            r[i + j] = uint16_t(c);
            c >>= 16;
        }
    }
    return r;
}

// 2^bits as digits.
inline Digits ref_pow2(unsigned bits) {
    Digits r(bits / 16 + 1);
    r[bits / 16] = uint16_t(1u << (bits % 16));
    return r;
}

// Long division of (r * 2^(wL) + A) by d (A null: zeros), one word at a time.
template <typename W>
W ref_divmod(W* T, const W* A, uint64_t L, W d, W r) {
    for (uint64_t i = L; i > 0; --i) {
        const unsigned __int128 n = ((unsigned __int128)r << (sizeof(W) * 8)) | (A ? A[i - 1] : 0);
        T[i - 1] = W(n / d);
        r = W(n % d);
    }
    return r;
}

}  // namespace qmp::test
