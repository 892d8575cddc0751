// Conversions into BigFloat (from BasicInt, BigInt, BigFloat, ExactFloat, SwapFloat, double)
// and its integer part. Copies use memmove and run before the exponent changes, so a source in
// this object's own buffer is fine. A double converts exactly: mantissa m < 2^53 and binary
// exponent e give m * 2^e = (m << r) * B^q with e = q w + r, 0 <= r < w. An ExactFloat's
// 32-bit words are placed the same way at half-word granularity (see set_ExactFloat()).
#include "qmp/numbers/big_float.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "qmp/exception.h"
#include "qmp/numbers/basic_int.h"
#include "qmp/numbers/big_int.h"
#include "qmp/numbers/exact_float.h"
#include "qmp/numbers/swap_float.h"
#include "qmp/words/word_array.h"

namespace qmp {

template <typename W>
void BigFloat<W>::set_top_words(const W* words, uint64_t n, int64_t x_exp, bool x_sign, uint64_t p,
                                const char* function) {
    if (n == 0) {
        set_zero();
        return;
    }
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    const uint64_t keep = std::min(p, n);
    require_room(base, keep, function);
    // words may lie in this number's own buffer (x.set_BigFloat(x, p)): copy_words moves.
    copy_words(base, words + (n - keep), keep);
    T = base;
    L = keep;
    exp = x_exp + int64_t(n - keep);
    sign = x_sign;
}

template <typename W>
void BigFloat<W>::set_BigFloat(const BigFloat& x, uint64_t p) {
    set_top_words(x.T, x.L, x.exp, x.sign, p, "BigFloat::set_BigFloat()");
}

template <typename W>
void BigFloat<W>::set_BigInt(const BigInt<W>& x, uint64_t p) {
    set_top_words(x.T, x.L, 0, x.sign, p, "BigFloat::set_BigInt()");
}

template <typename W>
void BigFloat<W>::set_BasicInt(const BasicIntR& x) {
    const char* function = "BigFloat::set_BasicInt()";
    const uint64_t n32 = x.length();
    if (n32 == 0) {
        set_zero();
        return;
    }
    const uint64_t n = (n32 * 4 + sizeof(W) - 1) / sizeof(W);
    require_room(base, n, function);
    base[n - 1] = 0;  // the upper half of an odd 32-bit length packed into 64-bit words
    std::memmove(base, x.words(), n32 * 4);  // little-endian: the same bytes either way
    T = base;
    L = normalized_length(base, n);
    exp = 0;
    sign = true;
}

template <typename W>
void BigFloat<W>::set_ExactFloat(const ExactFloat& x, uint64_t p) {
    const char* function = "BigFloat::set_ExactFloat()";
    const uint64_t n32 = x.length();
    if (n32 == 0) {
        set_zero();
        return;
    }
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    // View the result as 32-bit halves H[] (h per word): M * 2^(32 e) = (M << 32 r) * B^q with
    // e = q h + r, 0 <= r < h, so H holds r zero halves and then M. The magnitude has
    // n = ceil((r + n32) / h) words, of which the top `keep` are kept; they start at half j0.
    constexpr uint64_t h = sizeof(W) / 4;
    const int64_t e = x.exp();
    const int64_t q = e >= 0 ? e / int64_t(h) : -((-(e + 1)) / int64_t(h)) - 1;  // floor, no overflow
    const uint64_t r = uint64_t(e - q * int64_t(h));
    const uint64_t n = (r + n32 + h - 1) / h;
    const uint64_t keep = std::min(p, n);
    require_room(base, keep, function);
    const uint64_t j0 = (n - keep) * h;
    const uint64_t from = std::max(j0, r);  // first half of H that is a word of M
    const uint64_t copied = r + n32 - from;
    unsigned char* out = reinterpret_cast<unsigned char*>(base);
    // Byte moves: the halves of M land inside W words whatever their width, and memmove allows
    // M's storage to lie in this buffer. The zero halves are written after the move.
    std::memmove(out + 4 * (from - j0), x.words() + (from - r), 4 * copied);
    if (from > j0) std::memset(out, 0, 4 * (from - j0));
    const uint64_t filled = from - j0 + copied;
    std::memset(out + 4 * filled, 0, 4 * (keep * h - filled));  // the empty upper half of a top word
    T = base;
    L = keep;
    exp = q + int64_t(n - keep);
    sign = x.sign();
}

template <typename W>
void BigFloat<W>::set_SwapFloat(const SwapFloat<W>& x, uint64_t p) {
    const char* function = "BigFloat::set_SwapFloat()";
    if (x.L() == 0) {
        set_zero();
        return;
    }
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    const uint64_t keep = std::min(p, x.L());
    require_room(base, keep, function);
    x.load_words(base, x.L() - keep, keep);
    if (base[keep - 1] == 0) {
        set_zero();
        throw AlgorithmFailedException(function, "Top word is zero.");
    }
    T = base;
    L = keep;
    exp = x.exp() + int64_t(x.L() - keep);
    sign = x.sign();
}

template <typename W>
void BigFloat<W>::set_double(double d) {
    const char* function = "BigFloat::set_double()";
    if (capacity < 2) throw BufferTooSmallException(function, capacity, 2);
    const uint64_t bits = std::bit_cast<uint64_t>(d);
    const uint64_t biased = (bits >> 52) & 0x7FF;
    uint64_t m = bits & ((uint64_t(1) << 52) - 1);
    if (biased == 0x7FF) throw InvalidParametersException(function, "Number is not finite.");
    if (biased == 0 && m == 0) {
        set_zero();
        sign = false;  // zero carries no sign; comparisons look at L first
        return;
    }
    int64_t e;
    if (biased != 0) {
        m |= uint64_t(1) << 52;
        e = int64_t(biased) - 1075;
    } else {
        e = -1074;
    }
    constexpr int64_t w = int64_t(sizeof(W) * 8);
    // Floor division, so that the bit shift r is never negative.
    const int64_t q = e >= 0 ? e / w : -((-e + w - 1) / w);
    const unsigned r = unsigned(e - q * w);
    // m << r has at most 53 + w - 1 bits: 2 words of 64 bits, or 3 of 32.
    W words[3] = {};
    if constexpr (sizeof(W) == 8) {
        words[0] = r == 0 ? m : m << r;
        words[1] = r == 0 ? 0 : m >> (64 - r);
    } else {
        const unsigned __int128 v = (unsigned __int128)m << r;
        words[0] = uint32_t(v);
        words[1] = uint32_t(v >> 32);
        words[2] = uint32_t(v >> 64);
    }
    const uint64_t n = normalized_length(words, 3);
    require_room(base, n, function);
    copy_words(base, words, n);
    T = base;
    L = n;
    exp = q;
    sign = (bits >> 63) == 0;
}

template <typename W>
uint64_t BigFloat<W>::unsigned_integer_part() const {
    const char* function = "BigFloat::unsigned_integer_part()";
    if (L == 0 || top() <= 0) return 0;
    if (!sign) throw InvalidParametersException(function, "Number is out of range.");
    // The top word is not zero, so the value is at least B^(top - 1).
    if (uint64_t(top()) * sizeof(W) > 8) throw InvalidParametersException(function, "Number is out of range.");
    uint64_t v = 0;
    for (int64_t pos = top() - 1; pos >= 0 && pos >= exp; --pos) {
        if constexpr (sizeof(W) == 8) {
            v = T[pos - exp];
        } else {
            v |= uint64_t(T[pos - exp]) << (32 * pos);
        }
    }
    return v;
}

#define QMP_INSTANTIATE(W)                                                          \
    template void BigFloat<W>::set_top_words(const W*, uint64_t, int64_t, bool, uint64_t, const char*); \
    template void BigFloat<W>::set_BigFloat(const BigFloat&, uint64_t);            \
    template void BigFloat<W>::set_BigInt(const BigInt<W>&, uint64_t);             \
    template void BigFloat<W>::set_BasicInt(const BasicIntR&);                     \
    template void BigFloat<W>::set_ExactFloat(const ExactFloat&, uint64_t);        \
    template void BigFloat<W>::set_SwapFloat(const SwapFloat<W>&, uint64_t);       \
    template void BigFloat<W>::set_double(double);                                 \
    template uint64_t BigFloat<W>::unsigned_integer_part() const;
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
