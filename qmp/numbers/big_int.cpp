// BigInt arithmetic. Sums work on magnitudes: equal signs add, different signs subtract the
// smaller magnitude from the larger and take the larger one's sign. Every word of the result is
// computed from the operand words at the same index, so the result may be an operand itself.
#include "qmp/numbers/big_int.h"

#include <cstring>

#include "qmp/exception.h"
#include "qmp/numbers/basic_int.h"
#include "qmp/numbers/big_float.h"
#include "qmp/numbers/number_checks.h"
#include "qmp/numbers/word_products.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

template <typename W>
int compare_magnitudes(const BigInt<W>& A, const BigInt<W>& B) {
    if (A.L != B.L) return A.L < B.L ? -1 : 1;
    return cmp(A.T, B.T, A.L);
}

}  // namespace

template <typename W>
void BigInt<W>::check_normalization() const {
    if (L > 0 && T[L - 1] == 0) throw AlgorithmFailedException("BigInt::check_normalization()", "Top word is zero.");
}

template <typename W>
void BigInt<W>::require_room(const W* at, uint64_t n_words, const char* function) const {
    const uint64_t need = uint64_t(at - base) + n_words;
    if (need > capacity) throw BufferTooSmallException(function, capacity, need);
}

template <typename W>
void BigInt<W>::add_signed(const BigInt& A, const BigInt& B, bool negate_B, const char* function) {
    const bool sign_b = negate_B ? !B.sign || B.L == 0 : B.sign;
    const bool same = A.sign == sign_b;
    const int c = compare_magnitudes(A, B);
    const BigInt& X = c >= 0 ? A : B;  // the larger magnitude
    const BigInt& Y = c >= 0 ? B : A;
    const bool sign_x = c >= 0 ? A.sign : sign_b;
    const uint64_t n = X.L + (same ? 1 : 0);
    W* out = (this == &A || this == &B) ? T : base;
    require_room(out, n, function);
    if ((this != &A && detail::ranges_overlap<W>(out, n, A.T, A.L)) ||
        (this != &B && detail::ranges_overlap<W>(out, n, B.T, B.L)))
        throw InvalidParametersException(function, "Output overlaps an input.");
    const uint64_t XL = X.L, YL = Y.L;
    if (same) {
        const W carry = add(out, X.T, XL, Y.T, YL);
        out[XL] = carry;
    } else {
        sub(out, X.T, XL, Y.T, YL);
    }
    T = out;
    L = normalized_length(out, n);
    sign = L == 0 ? true : sign_x;
}

template <typename W>
void BigInt<W>::set_add(const BigInt& A, const BigInt& B) { add_signed(A, B, false, "BigInt::set_add()"); }

template <typename W>
void BigInt<W>::set_sub(const BigInt& A, const BigInt& B) { add_signed(A, B, true, "BigInt::set_sub()"); }

template <typename W>
BigInt<W>& BigInt<W>::operator<<=(uint64_t bits) {
    if (L == 0 || bits == 0) return *this;
    constexpr uint64_t w = sizeof(W) * 8;
    const uint64_t q = bits / w;
    const unsigned r = unsigned(bits % w);
    const W out = r == 0 ? W(0) : W(T[L - 1] >> (w - r));
    const uint64_t n = L + q + (out != 0);
    require_room(T, n, "BigInt::operator<<=()");
    if (r == 0)
        copy_words(T + q, T, L);
    else
        lshift(T + q, T, L, r);  // top-down, so the upward move is safe
    if (out != 0) T[L + q] = out;
    zero_words(T, q);
    L = n;
    return *this;
}

template <typename W>
void BigInt<W>::mul_uW(W x) {
    if (x == 0 || L == 0) {
        set_zero();
        return;
    }
    require_room(T, L + 1, "BigInt::mul_uW()");
    T[L] = mul_1(T, T, L, x);
    if (T[L] != 0) ++L;
}

template <typename W>
void BigInt<W>::set_mul_uW(const BigInt& A, W x) {
    const char* function = "BigInt::set_mul_uW()";
    if (x == 0 || A.L == 0) {
        set_zero();
        return;
    }
    if (&A == this) {
        mul_uW(x);
        return;
    }
    require_room(base, A.L + 1, function);
    if (detail::ranges_overlap<W>(base, A.L + 1, A.T, A.L) && A.T < base)
        throw InvalidParametersException(function, "Output overlaps an input.");
    const uint64_t AL = A.L;
    const W carry = mul_1(base, A.T, AL, x);
    base[AL] = carry;
    T = base;
    L = AL + (carry != 0);
    sign = A.sign;
}

template <typename W>
void BigInt<W>::add_ip(W x, uint64_t p) {
    const char* function = "BigInt::add_ip()";
    if (L == 0 || p > L) throw InvalidParametersException(function, "Magnitude is out of range.");
    require_room(T, L + 1, function);
    T[L] = 0;
    add_1(T + p, T + p, L + 1 - p, x);
    if (T[L] != 0) ++L;
}

template <typename W>
uint64_t BigInt<W>::mul_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    return mul_words_scratch_bytes<W>(table, AL, BL);
}

template <typename W>
uint64_t BigInt<W>::sqr_scratch_bytes(const AlgorithmTableB& table, uint64_t AL) {
    return sqr_words_scratch_bytes<W>(table, AL);
}

template <typename W>
W* BigInt<W>::product_target(const BigInt& A, const BigInt& B, uint64_t PL, const char* function) {
    require_room(base, PL, function);
    if (detail::ranges_overlap<W>(base, PL, A.T, A.L) || detail::ranges_overlap<W>(base, PL, B.T, B.L))
        throw InvalidParametersException(function, "Output overlaps an input.");
    return base;
}

template <typename W>
void BigInt<W>::set_mul(const BigInt& A, const BigInt& B, const AlgorithmTableB& table, AlignedBufferC scratch,
                        Parallelizer* parallelizer, uint64_t tds) {
    const char* function = "BigInt::set_mul()";
    if (A.L == 0 || B.L == 0) {
        set_zero();
        return;
    }
    const uint64_t PL = A.L + B.L;
    W* out = product_target(A, B, PL, function);
    const bool new_sign = A.sign == B.sign;
    mul_words<W>(table, out, A.T, A.L, B.T, B.L, scratch, parallelizer, tds, function);
    T = out;
    L = normalized_length(out, PL);
    sign = new_sign;
}

template <typename W>
void BigInt<W>::set_sqr(const BigInt& A, const AlgorithmTableB& table, AlignedBufferC scratch,
                        Parallelizer* parallelizer, uint64_t tds) {
    const char* function = "BigInt::set_sqr()";
    if (A.L == 0) {
        set_zero();
        return;
    }
    const uint64_t PL = 2 * A.L;
    W* out = product_target(A, A, PL, function);
    sqr_words<W>(table, out, A.T, A.L, scratch, parallelizer, tds, function);
    T = out;
    L = normalized_length(out, PL);
    sign = true;
}

template <typename W>
void BigInt<W>::set_BasicInt(const BasicIntR& x) {
    const uint64_t n32 = x.length();
    if (n32 == 0) {
        set_zero();
        return;
    }
    const uint64_t n = (n32 * 4 + sizeof(W) - 1) / sizeof(W);
    require_room(base, n, "BigInt::set_BasicInt()");
    base[n - 1] = 0;
    std::memmove(base, x.words(), n32 * 4);
    T = base;
    L = normalized_length(base, n);
    sign = true;
}

template <typename W>
void BigInt<W>::set_BigInt(const BigInt& x) {
    if (&x == this) return;
    require_room(base, x.L, "BigInt::set_BigInt()");
    const uint64_t n = x.L;
    const bool s = x.sign;
    copy_words(base, x.T, n);
    T = base;
    L = n;
    sign = n == 0 ? true : s;
}

template <typename W>
void BigInt<W>::set_BigFloat(const BigFloat<W>& x) {
    if (x.L == 0 || x.top() <= 0) {
        set_zero();
        return;
    }
    const uint64_t n = uint64_t(x.top());
    require_room(base, n, "BigInt::set_BigFloat()");
    const bool s = x.sign;
    if (x.exp >= 0) {
        copy_words(base + x.exp, x.T, x.L);
        zero_words(base, uint64_t(x.exp));
    } else {
        copy_words(base, x.T + (-x.exp), n);
    }
    T = base;
    L = n;
    sign = s;
}

template class BigInt<uint32_t>;
template class BigInt<uint64_t>;

}  // namespace qmp
