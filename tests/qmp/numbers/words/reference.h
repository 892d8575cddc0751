// An independent reference for the word-array tests: numbers as vectors of 16-bit digits
// (least significant first) with schoolbook arithmetic in plain 32-bit integers, and long
// division with the compiler's 128-bit division. Slow and obviously right.
#pragma once

#include <cstdint>
#include <vector>

namespace qmp::test {

using Digits = std::vector<uint32_t>;  // each element < 2^16

template <typename W>
Digits to_digits(const W* a, uint64_t n) {
    Digits d;
    for (uint64_t i = 0; i < n; ++i)
        for (unsigned s = 0; s < sizeof(W) * 8; s += 16) d.push_back(uint32_t((a[i] >> s) & 0xFFFF));
    return d;
}

// The low n words of x (missing digits are zero).
template <typename W>
std::vector<W> to_words(const Digits& x, uint64_t n) {
    std::vector<W> w(n, 0);
    const uint64_t per = sizeof(W) / 2;
    for (uint64_t i = 0; i < x.size() && i / per < n; ++i) w[i / per] |= W(W(x[i]) << (16 * (i % per)));
    return w;
}

// Digits of x at word index n and above, as one word (for carries that fit in a word).
template <typename W>
W word_at(const Digits& x, uint64_t n) {
    const uint64_t per = sizeof(W) / 2;
    W r = 0;
    for (uint64_t k = 0; k < per && n * per + k < x.size(); ++k) r |= W(W(x[n * per + k]) << (16 * k));
    return r;
}

inline Digits ref_add(const Digits& x, const Digits& y) {
    Digits r(std::max(x.size(), y.size()) + 1, 0);
    uint32_t c = 0;
    for (size_t i = 0; i < r.size(); ++i) {
        c += (i < x.size() ? x[i] : 0) + (i < y.size() ? y[i] : 0);
        r[i] = c & 0xFFFF;
        c >>= 16;
    }
    return r;
}

// x - y modulo 2^(16 * x.size()); borrow set when y > x.
inline Digits ref_sub(const Digits& x, const Digits& y, bool& borrow) {
    Digits r(x.size(), 0);
    int64_t b = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        int64_t t = int64_t(x[i]) - (i < y.size() ? y[i] : 0) - b;
        b = t < 0;
        r[i] = uint32_t(t + (b << 16));
    }
    bool rest = false;
    for (size_t i = x.size(); i < y.size(); ++i) rest |= y[i] != 0;
    borrow = b != 0 || rest;
    return r;
}

inline Digits ref_mul(const Digits& x, const Digits& y) {
    Digits r(x.size() + y.size() + 1, 0);
    for (size_t i = 0; i < x.size(); ++i) {
        uint64_t c = 0;
        for (size_t j = 0; j < y.size(); ++j) {
            c += uint64_t(x[i]) * y[j] + r[i + j];
            r[i + j] = uint32_t(c & 0xFFFF);
            c >>= 16;
        }
        for (size_t k = i + y.size(); c != 0; ++k) {
            c += r[k];
            r[k] = uint32_t(c & 0xFFFF);
            c >>= 16;
        }
    }
    return r;
}

inline Digits ref_shl(const Digits& x, unsigned bits) {
    Digits r(x.size() + bits / 16 + 2, 0);
    for (size_t i = 0; i < x.size(); ++i) {
        const uint64_t v = uint64_t(x[i]) << (bits % 16);
        r[i + bits / 16] |= uint32_t(v & 0xFFFF);
        r[i + bits / 16 + 1] |= uint32_t(v >> 16);
    }
    return r;
}

// Long division of (r * 2^(wL) + A) by d, one word at a time with 128-bit division.
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
