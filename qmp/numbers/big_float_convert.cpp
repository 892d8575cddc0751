// Conversions into BigFloat (from BasicInt, BigInt, BigFloat, double) and its integer part.
// Copies use memmove and run before the exponent changes, so a source in this object's own
// buffer is fine. A double converts exactly: mantissa m < 2^53 and binary exponent e give
// m * 2^e = (m << r) * B^q with e = q w + r, 0 <= r < w.
#include "qmp/numbers/big_float.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "qmp/exception.h"
#include "qmp/numbers/basic_int.h"
#include "qmp/numbers/big_int.h"
#include "qmp/numbers/words/word_array.h"

namespace qmp {

template <typename W>
void BigFloat<W>::set_BigFloat(const BigFloat& x, uint64_t p) {
    const char* function = "BigFloat::set_BigFloat()";
    if (x.L == 0) {
        set_zero();
        return;
    }
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    const uint64_t keep = std::min(p, x.L);
    require_room(base, keep, function);
    const int64_t new_exp = x.exp + int64_t(x.L - keep);
    const bool new_sign = x.sign;
    copy_words(base, x.T + (x.L - keep), keep);
    T = base;
    L = keep;
    exp = new_exp;
    sign = new_sign;
}

template <typename W>
void BigFloat<W>::set_BigInt(const BigInt<W>& x, uint64_t p) {
    const char* function = "BigFloat::set_BigInt()";
    if (x.L == 0) {
        set_zero();
        return;
    }
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    const uint64_t keep = std::min(p, x.L);
    require_room(base, keep, function);
    const bool new_sign = x.sign;
    const uint64_t xL = x.L;
    copy_words(base, x.T + (xL - keep), keep);
    T = base;
    L = keep;
    exp = int64_t(xL - keep);
    sign = new_sign;
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
    template void BigFloat<W>::set_BigFloat(const BigFloat&, uint64_t);            \
    template void BigFloat<W>::set_BigInt(const BigInt<W>&, uint64_t);             \
    template void BigFloat<W>::set_BasicInt(const BasicIntR&);                     \
    template void BigFloat<W>::set_double(double);                                 \
    template uint64_t BigFloat<W>::unsigned_integer_part() const;
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
