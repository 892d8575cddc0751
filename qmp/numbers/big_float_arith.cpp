// BigFloat sums, differences, word operations, perturbation and comparison. Operands of the
// sums are aligned by word position; the result occupies positions [lo, top] where lo is the
// lower operand exponent raised to top - p when the precision cuts it:
//
//   A:        [ A.exp ............ A.top )
//   B:   [ B.exp ...... B.top )
//   this:[ lo ........................ top ] + one carry word
#include "qmp/numbers/big_float.h"

#include <algorithm>

#include "qmp/exception.h"
#include "qmp/numbers/number_checks.h"
#include "qmp/words/parallel_division.h"
#include "qmp/words/shoup_divider.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

template <typename W>
int compare_magnitudes(const BigFloat<W>& A, const BigFloat<W>& B) {
    if (A.L == 0 || B.L == 0) return A.L == B.L ? 0 : (A.L == 0 ? -1 : 1);
    if (A.top() != B.top()) return A.top() < B.top() ? -1 : 1;
    uint64_t ia = A.L, ib = B.L;
    while (ia > 0 && ib > 0) {
        --ia;
        --ib;
        if (A.T[ia] != B.T[ib]) return A.T[ia] < B.T[ib] ? -1 : 1;
    }
    // Equal down to where one ran out: the other is larger if anything non-zero remains.
    if (!is_zero(A.T, ia)) return 1;
    if (!is_zero(B.T, ib)) return -1;
    return 0;
}

// The words of X at positions >= lo, as (pointer, count, first position).
template <typename W>
struct Part {
    const W* words;
    uint64_t n;
    int64_t pos;
};

template <typename W>
Part<W> part_from(const BigFloat<W>& X, int64_t lo) {
    if (X.L == 0 || X.top() <= lo) return {X.T, 0, lo};
    const int64_t first = std::max(lo, X.exp);
    return {X.T + (first - X.exp), uint64_t(X.top() - first), first};
}

template <typename W>
void check_no_overlap(const BigFloat<W>& R, uint64_t n, const BigFloat<W>& X, const char* function) {
    if (detail::ranges_overlap<W>(R.base, n, X.T, X.L))
        throw InvalidParametersException(function, "Output overlaps an input.");
}

int64_t low_position(int64_t lo, int64_t top, uint64_t p, const char* function) {
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    if (p < uint64_t(top - lo)) return top - int64_t(p);
    return lo;
}

}  // namespace

template <typename W>
void BigFloat<W>::set_zero() noexcept {
    T = base;
    L = 0;
    exp = 0;
    sign = true;
}

template <typename W>
void BigFloat<W>::check_normalization() const {
    if (L > 0 && T[L - 1] == 0)
        throw AlgorithmFailedException("BigFloat::check_normalization()", "Top word is zero.");
}

template <typename W>
void BigFloat<W>::require_room(const W* at, uint64_t n_words, const char* function) const {
    const uint64_t need = uint64_t(at - base) + n_words;
    if (need > capacity) throw BufferTooSmallException(function, capacity, need);
}

template <typename W>
void BigFloat<W>::normalize_from_base(uint64_t n_words, int64_t new_exp, bool new_sign) {
    T = base;
    L = normalized_length(base, n_words);
    exp = L == 0 ? 0 : new_exp;
    sign = L == 0 ? true : new_sign;
}

template <typename W>
void BigFloat<W>::set_uadd(const BigFloat& A, const BigFloat& B, uint64_t p) {
    const char* function = "BigFloat::set_uadd()";
    if (A.L == 0 || B.L == 0) {
        const BigFloat& X = A.L == 0 ? B : A;
        set_BigFloat(X, p);
        sign = true;
        return;
    }
    const int64_t top = std::max(A.top(), B.top());
    const int64_t lo = low_position(std::min(A.exp, B.exp), top, p, function);
    const uint64_t n = uint64_t(top - lo);
    require_room(base, n + 1, function);
    check_no_overlap(*this, n + 1, A, function);
    check_no_overlap(*this, n + 1, B, function);
    const Part<W> a = part_from(A, lo), b = part_from(B, lo);
    zero_words(base, n);
    copy_words(base + (a.pos - lo), a.words, a.n);
    const uint64_t off = uint64_t(b.pos - lo);
    base[n] = add(base + off, base + off, n - off, b.words, b.n);
    normalize_from_base(n + 1, lo, true);
}

template <typename W>
void BigFloat<W>::set_usub(const BigFloat& A, const BigFloat& B, uint64_t p) {
    const char* function = "BigFloat::set_usub()";
    const int c = compare_magnitudes(A, B);
    if (c == 0) {
        set_zero();
        return;
    }
    const BigFloat& X = c > 0 ? A : B;  // the larger magnitude
    const BigFloat& Y = c > 0 ? B : A;
    if (Y.L == 0) {
        set_BigFloat(X, p);
        sign = c > 0;
        return;
    }
    const int64_t top = X.top();
    const int64_t lo = low_position(std::min(X.exp, Y.exp), top, p, function);
    const uint64_t n = uint64_t(top - lo);
    require_room(base, n, function);
    check_no_overlap(*this, n, A, function);
    check_no_overlap(*this, n, B, function);
    const Part<W> x = part_from(X, lo), y = part_from(Y, lo);
    zero_words(base, n);
    copy_words(base + (x.pos - lo), x.words, x.n);
    const uint64_t off = uint64_t(y.pos - lo);
    // |X| >= |Y| and truncation at one position keeps the order, so no borrow leaves the top.
    sub(base + off, base + off, n - off, y.words, y.n);
    normalize_from_base(n, lo, c > 0);
}

template <typename W>
void BigFloat<W>::set_rsub(const BigFloat& A, const BigFloat& B, uint64_t p) {
    set_usub(B, A, p);
}

template <typename W>
void BigFloat<W>::add_ip(W x, int64_t p) {
    const char* function = "BigFloat::add_ip()";
    if (L == 0 || p < exp || p > top()) throw InvalidParametersException(function, "Magnitude is out of range.");
    const uint64_t i = uint64_t(p - exp);
    // Decide about the new top word before touching anything, so a short buffer leaves the
    // value intact.
    if (detail::carry_escapes(T + i, L - i, x)) require_room(T, L + 1, function);
    if (add_1(T + i, T + i, L - i, x) != 0) {
        T[L] = i == L ? x : W(1);
        ++L;
    }
}

template <typename W>
void BigFloat<W>::mul_uW(W x) {
    if (x == 0) {
        set_zero();
        return;
    }
    if (L == 0) return;
    require_room(T, L + 1, "BigFloat::mul_uW()");
    T[L] = mul_1(T, T, L, x);
    if (T[L] != 0) ++L;
}

template <typename W>
void BigFloat<W>::set_mul_uW(const BigFloat& A, W x) {
    const char* function = "BigFloat::set_mul_uW()";
    if (x == 0 || A.L == 0) {
        set_zero();
        return;
    }
    if (&A == this) {
        mul_uW(x);
        return;
    }
    require_room(base, A.L + 1, function);
    // mul_1 may write over its input when the result starts at or below it.
    if (detail::ranges_overlap<W>(base, A.L + 1, A.T, A.L) && A.T < base)
        throw InvalidParametersException(function, "Output overlaps an input.");
    const uint64_t AL = A.L;
    const W carry = mul_1(base, A.T, AL, x);
    base[AL] = carry;
    T = base;
    L = AL + (carry != 0);
    exp = A.exp;
    sign = A.sign;
}

template <typename W>
void BigFloat<W>::set_div_sW(const BigFloat& A, SignedWord x, uint64_t TL, Parallelizer* parallelizer,
                             uint64_t tds) {
    const char* function = "BigFloat::set_div_sW()";
    if (x == 0) throw ArithmeticException(function, "Divide by zero.");
    if (A.L == 0) {
        set_zero();
        return;
    }
    if (TL < A.L) throw InvalidParametersException(function, "TL < AL");
    require_room(base, TL, function);
    check_no_overlap(*this, TL, A, function);
    const W d = x < 0 ? W(0) - W(x) : W(x);
    const uint64_t AL = A.L, shift_words = TL - AL;
    if ((d & (d - 1)) == 0) {
        // A power of two (which the reciprocal divider does not take): an exact bit shift,
        // truncated at the bottom like the division.
        copy_words(base + shift_words, A.T, AL);
        zero_words(base, shift_words);
        const unsigned bits = unsigned(__builtin_ctzll(d));
        if (bits != 0) rshift(base, base, TL, bits);
    } else {
        const ShoupDivider<W> divider(d);
        bp_div_np(base, TL, A.T, AL, divider, W(0), parallelizer, tds);
    }
    normalize_from_base(TL, A.exp - int64_t(shift_words), A.sign == (x > 0));
}

template <typename W>
void BigFloat<W>::purturb_up(uint64_t p) {
    if (p >= L) return;
    if (detail::carry_escapes(T + p, L - p, W(1))) {
        require_room(T, L + 1, "BigFloat::purturb_up()");
        add_1(T + p, T + p, L - p, W(1));
        T[L] = 1;
        L = L - p + 1;
        return;
    }
    add_1(T + p, T + p, L - p, W(1));
}

template <typename W>
int BigFloat<W>::compare(const BigFloat& A, const BigFloat& B) {
    if (A.L == 0 && B.L == 0) return 0;
    if (A.L == 0) return B.sign ? -1 : 1;
    if (B.L == 0) return A.sign ? 1 : -1;
    if (A.sign != B.sign) return A.sign ? 1 : -1;
    const int c = compare_magnitudes(A, B);
    return A.sign ? c : -c;
}

template class BigFloat<uint32_t>;
template class BigFloat<uint64_t>;

}  // namespace qmp
