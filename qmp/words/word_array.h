// Basic arithmetic on little-endian word arrays (word 0 least significant), for W = uint32_t
// and W = uint64_t: add/subtract with carry, shifts by a bit count, multiply-accumulate by one
// word, comparison and copy/fill helpers. All routines are header-inline, never allocate and
// never throw; lengths are 64-bit word counts and may be 0.
// Aliasing: an output may be the same array as an input (r == a or r == b) everywhere; partial
// overlap is allowed only where stated at the routine (lshift upward, rshift downward).
// Carries and borrows are returned as 0 or 1; multiply forms return a full word.
#pragma once

#include <x86intrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qmp {

template <typename W>
inline constexpr bool is_word_v = std::is_same_v<W, uint32_t> || std::is_same_v<W, uint64_t>;

template <typename W>
inline constexpr unsigned word_bits_v = sizeof(W) * 8;

namespace detail {

// The 64-bit carry chains go through _addcarry_u64/_subborrow_u64 (plain ADC/SBB, no ADX
// needed), which lets the compiler keep the carry in the flags across an unrolled group of 4.
using ull = unsigned long long;
static_assert(sizeof(ull) == sizeof(uint64_t));

inline ull* as_ull(uint64_t* p) { return reinterpret_cast<ull*>(p); }

}  // namespace detail

// r[0, n) = a[0, n) + b[0, n); returns the carry out of the top (0 or 1).
template <typename W>
inline W add_n(W* r, const W* a, const W* b, uint64_t n) {
    static_assert(is_word_v<W>);
    if constexpr (sizeof(W) == 8) {
        unsigned char c = 0;
        uint64_t i = 0;
        for (const uint64_t n4 = n & ~uint64_t(3); i < n4; i += 4) {
            // Load all inputs first so that r may alias a or b word for word.
            const uint64_t a0 = a[i], a1 = a[i + 1], a2 = a[i + 2], a3 = a[i + 3];
            const uint64_t b0 = b[i], b1 = b[i + 1], b2 = b[i + 2], b3 = b[i + 3];
            c = _addcarry_u64(c, a0, b0, detail::as_ull(r + i));
            c = _addcarry_u64(c, a1, b1, detail::as_ull(r + i + 1));
            c = _addcarry_u64(c, a2, b2, detail::as_ull(r + i + 2));
            c = _addcarry_u64(c, a3, b3, detail::as_ull(r + i + 3));
        }
        for (; i < n; ++i) c = _addcarry_u64(c, a[i], b[i], detail::as_ull(r + i));
        return c;
    } else {
        uint64_t c = 0;
        for (uint64_t i = 0; i < n; ++i) {
            c += uint64_t(a[i]) + b[i];
            r[i] = uint32_t(c);
            c >>= 32;
        }
        return W(c);
    }
}

// r[0, n) = a[0, n) - b[0, n); returns the borrow out of the top (0 or 1).
template <typename W>
inline W sub_n(W* r, const W* a, const W* b, uint64_t n) {
    static_assert(is_word_v<W>);
    if constexpr (sizeof(W) == 8) {
        unsigned char c = 0;
        uint64_t i = 0;
        for (const uint64_t n4 = n & ~uint64_t(3); i < n4; i += 4) {
            const uint64_t a0 = a[i], a1 = a[i + 1], a2 = a[i + 2], a3 = a[i + 3];
            const uint64_t b0 = b[i], b1 = b[i + 1], b2 = b[i + 2], b3 = b[i + 3];
            c = _subborrow_u64(c, a0, b0, detail::as_ull(r + i));
            c = _subborrow_u64(c, a1, b1, detail::as_ull(r + i + 1));
            c = _subborrow_u64(c, a2, b2, detail::as_ull(r + i + 2));
            c = _subborrow_u64(c, a3, b3, detail::as_ull(r + i + 3));
        }
        for (; i < n; ++i) c = _subborrow_u64(c, a[i], b[i], detail::as_ull(r + i));
        return c;
    } else {
        uint64_t borrow = 0;
        for (uint64_t i = 0; i < n; ++i) {
            const uint64_t d = uint64_t(a[i]) - b[i] - borrow;
            r[i] = uint32_t(d);
            borrow = d >> 63;
        }
        return W(borrow);
    }
}

// Copies n words; the arrays may overlap in either direction.
template <typename W>
inline void copy_words(W* r, const W* a, uint64_t n) {
    if (n != 0 && r != a) std::memmove(r, a, n * sizeof(W));
}

template <typename W>
inline void zero_words(W* r, uint64_t n) {
    if (n != 0) std::memset(r, 0, n * sizeof(W));
}

template <typename W>
inline void fill_words(W* r, uint64_t n, W x) {
    for (uint64_t i = 0; i < n; ++i) r[i] = x;
}

// r[0, n) = a[0, n) + x; returns the carry (0 or 1; x itself when n = 0). Stops touching words
// once the carry dies; when r != a the untouched rest of a is copied.
template <typename W>
inline W add_1(W* r, const W* a, uint64_t n, W x) {
    uint64_t i = 0;
    for (; i < n && x != 0; ++i) {
        const W s = W(a[i] + x);
        x = W(s < x);
        r[i] = s;
    }
    if (r != a) copy_words(r + i, a + i, n - i);
    return x;
}

// r[0, n) = a[0, n) - x; returns the borrow (0 or 1; x itself when n = 0).
template <typename W>
inline W sub_1(W* r, const W* a, uint64_t n, W x) {
    uint64_t i = 0;
    for (; i < n && x != 0; ++i) {
        const W ai = a[i];
        r[i] = W(ai - x);
        x = W(ai < x);
    }
    if (r != a) copy_words(r + i, a + i, n - i);
    return x;
}

// r[0, an) = a[0, an) + b[0, bn) with an >= bn; returns the carry.
template <typename W>
inline W add(W* r, const W* a, uint64_t an, const W* b, uint64_t bn) {
    const W c = add_n(r, a, b, bn);
    return add_1(r + bn, a + bn, an - bn, c);
}

// r[0, an) = a[0, an) - b[0, bn) with an >= bn; returns the borrow.
template <typename W>
inline W sub(W* r, const W* a, uint64_t an, const W* b, uint64_t bn) {
    const W c = sub_n(r, a, b, bn);
    return sub_1(r + bn, a + bn, an - bn, c);
}

// r[0, n) = a[0, n) << bits, 0 < bits < width; returns the bits shifted out of the top, in the
// low bits of the result. Runs from the top down, so r may equal a or lie above it.
template <typename W>
inline W lshift(W* r, const W* a, uint64_t n, unsigned bits) {
    constexpr unsigned w = word_bits_v<W>;
    if (n == 0) return 0;
    const W out = W(a[n - 1] >> (w - bits));
    for (uint64_t i = n - 1; i > 0; --i) r[i] = W((a[i] << bits) | (a[i - 1] >> (w - bits)));
    r[0] = W(a[0] << bits);
    return out;
}

// r[0, n) = a[0, n) >> bits, 0 < bits < width; returns the bits shifted out of the bottom, in
// the high bits of the result. Runs from the bottom up, so r may equal a or lie below it.
template <typename W>
inline W rshift(W* r, const W* a, uint64_t n, unsigned bits) {
    constexpr unsigned w = word_bits_v<W>;
    if (n == 0) return 0;
    const W out = W(a[0] << (w - bits));
    for (uint64_t i = 0; i + 1 < n; ++i) r[i] = W((a[i] >> bits) | (a[i + 1] << (w - bits)));
    r[n - 1] = W(a[n - 1] >> bits);
    return out;
}

namespace detail {

template <typename W>
struct Wide;
template <>
struct Wide<uint32_t> { using type = uint64_t; };
template <>
struct Wide<uint64_t> { using type = unsigned __int128; };

}  // namespace detail

namespace detail {

// One multiply-accumulate step: r = low(a*x + add + c), c = high(...). The sum cannot overflow
// two words: (2^w - 1)^2 + 2 (2^w - 1) = 2^(2w) - 1.
template <typename W>
inline W mac_step(W a, W x, W add, W& c) {
    using D = typename Wide<W>::type;
    const D p = D(a) * x + add + c;
    c = W(p >> word_bits_v<W>);
    return W(p);
}

}  // namespace detail

// r[0, n) = a[0, n) * x; returns the high word. r may equal a. The loops are unrolled by 4 so
// that the loads and multiplies of a group issue ahead of the carry chain.
template <typename W>
inline W mul_1(W* r, const W* a, uint64_t n, W x) {
    W c = 0;
    uint64_t i = 0;
    for (const uint64_t n4 = n & ~uint64_t(3); i < n4; i += 4) {
        r[i] = detail::mac_step(a[i], x, W(0), c);
        r[i + 1] = detail::mac_step(a[i + 1], x, W(0), c);
        r[i + 2] = detail::mac_step(a[i + 2], x, W(0), c);
        r[i + 3] = detail::mac_step(a[i + 3], x, W(0), c);
    }
    for (; i < n; ++i) r[i] = detail::mac_step(a[i], x, W(0), c);
    return c;
}

// r[0, n) += a[0, n) * x; returns the carry word. r may equal a.
template <typename W>
inline W addmul_1(W* r, const W* a, uint64_t n, W x) {
    W c = 0;
    uint64_t i = 0;
    for (const uint64_t n4 = n & ~uint64_t(3); i < n4; i += 4) {
        r[i] = detail::mac_step(a[i], x, r[i], c);
        r[i + 1] = detail::mac_step(a[i + 1], x, r[i + 1], c);
        r[i + 2] = detail::mac_step(a[i + 2], x, r[i + 2], c);
        r[i + 3] = detail::mac_step(a[i + 3], x, r[i + 3], c);
    }
    for (; i < n; ++i) r[i] = detail::mac_step(a[i], x, r[i], c);
    return c;
}

// r[0, n) -= a[0, n) * x; returns the borrow word (the amount still owed above the top).
template <typename W>
inline W submul_1(W* r, const W* a, uint64_t n, W x) {
    // The high word of a*x + c is at most 2^w - 1, and then its low word is 0, so adding the
    // borrow of the subtraction never overflows.
    auto step = [x](W ai, W& ri, W& c) {
        const W lo = detail::mac_step(ai, x, W(0), c);
        c = W(c + W(ri < lo));
        ri = W(ri - lo);
    };
    W c = 0;
    uint64_t i = 0;
    for (const uint64_t n4 = n & ~uint64_t(3); i < n4; i += 4) {
        step(a[i], r[i], c);
        step(a[i + 1], r[i + 1], c);
        step(a[i + 2], r[i + 2], c);
        step(a[i + 3], r[i + 3], c);
    }
    for (; i < n; ++i) step(a[i], r[i], c);
    return c;
}

// Three-way comparison of two n-word magnitudes: -1, 0 or 1.
template <typename W>
inline int cmp(const W* a, const W* b, uint64_t n) {
    while (n > 0) {
        --n;
        if (a[n] != b[n]) return a[n] < b[n] ? -1 : 1;
    }
    return 0;
}

// The length of a[0, n) without its zero top words (0 for an all-zero array).
template <typename W>
inline uint64_t normalized_length(const W* a, uint64_t n) {
    while (n > 0 && a[n - 1] == 0) --n;
    return n;
}

// True when every word of a[0, n) is zero.
template <typename W>
inline bool is_zero(const W* a, uint64_t n) {
    return normalized_length(a, n) == 0;
}

// r[0, n) = 0 - a[0, n) (two's complement); returns 1 unless a is zero (the borrow). r may equal a.
template <typename W>
inline W neg(W* r, const W* a, uint64_t n) {
    uint64_t i = 0;
    while (i < n && a[i] == 0) r[i++] = 0;
    if (i == n) return 0;
    r[i] = W(0 - a[i]);
    for (++i; i < n; ++i) r[i] = W(~a[i]);
    return 1;
}

}  // namespace qmp
