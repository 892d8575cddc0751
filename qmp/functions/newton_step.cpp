// Starting estimates and the common end of a Newton step (newton_core.h).
//
// Error words: F[0, k] with k = p + 2 holds z from position -k (F[0]) to position 0 (F[k]);
// words of z above position 0 saturate F[k] to all-ones, so that the error test reports them.
// The correction y |e| is formed from the top m = p - pi + 4 words of |e| and of y: |e| <
// B^(2 - pi), so the words dropped from |e| weigh less than B^(-p-2) |y|; y (at most pi + 3
// words) is never cut, since m >= pi + 2 for every p of the schedule. The sum y +- y |e| is
// taken at p + 2 words and cut there: each cut weighs below B^(-p-1) |y|, and the Newton error
// left, about (n + 1)/2 e^2 < B^(-p-1), is of the same order.
#include <cmath>

#include "qmp/functions/newton_core.h"
#include "qmp/words/word_array.h"

namespace qmp::detail {

template <typename W>
double top_as_double(const BigFloat<W>& x, int64_t& e) {
    constexpr double radix_inverse = 1.0 / (double(uint64_t(1) << (sizeof(W) * 4)) * double(uint64_t(1) << (sizeof(W) * 4)));
    double d = 0.0, scale = 1.0;
    // Three words carry more than 53 bits for either word size.
    for (uint64_t i = 0; i < 3 && i < x.L; ++i) {
        d += double(x.T[x.L - 1 - i]) * scale;
        scale *= radix_inverse;
    }
    e = x.top() - 1;
    return d;
}

template <typename W>
void reciprocal_estimate(BigFloat<W>& y, const BigFloat<W>& x) {
    int64_t e = 0;
    const double d = top_as_double(x, e);
    y.set_double(1.0 / d);
    y.exp -= e;
    y.sign = true;
}

template <typename W>
void inv_root_estimate(BigFloat<W>& y, const BigFloat<W>& x, uint32_t n) {
    int64_t e = 0;
    const double d = top_as_double(x, e);
    // B^(-e/n) = B^q * 2^(w r / n) with -e = q n + r, 0 <= r < n.
    const int64_t ne = -e, nn = int64_t(n);
    int64_t q = ne / nn, r = ne % nn;
    if (r < 0) {
        r += nn;
        --q;
    }
    constexpr int w = int(sizeof(W) * 8);
    double v;
    if (n == 2)
        v = (r == 0 ? 1.0 : std::ldexp(1.0, w / 2)) / std::sqrt(d);  // exact for powers of two
    else
        v = std::exp2((double(w) * double(r) - std::log2(d)) / double(n));  // exact when d is 2^j, n | wr - j
    y.set_double(v);
    y.exp += q;
    y.sign = true;
}

template <typename W>
void finish_step_words(W* F, const W* C, uint64_t CL, int64_t c_exp, uint64_t p, uint64_t pi, const char* function) {
    (void)pi;
    (void)function;
    const uint64_t k = p + 2;
    const int64_t sk = int64_t(k), c_top = c_exp + int64_t(CL);
    zero_words(F, k + 1);
    const int64_t lo = std::max(c_exp, -sk), hi = std::min<int64_t>(c_top, 1);
    if (lo < hi) copy_words(F + (lo + sk), C + (lo - c_exp), uint64_t(hi - lo));
    if (c_top > 1) {
        const int64_t from = std::max<int64_t>(1, c_exp);
        if (!is_zero(C + (from - c_exp), uint64_t(c_top - from))) F[k] = ~W(0);
    }
}

template <typename W>
void finish_step(BigFloat<W>& y_out, const BigFloat<W>& y, const W* C, uint64_t CL, int64_t c_exp, uint64_t p,
                 uint64_t pi, uint32_t divisor, const ProductRunner<W>& mul, AlignedBufferC scratch) {
    W* F = scratch.extract_aligned<W>(p + 3);
    finish_step_words(F, C, CL, c_exp, p, pi, mul.function);
    finish_from_error_words(y_out, y, F, p, pi, divisor, mul, scratch);
}

template <typename W>
void finish_from_error_words(BigFloat<W>& y_out, const BigFloat<W>& y, W* F, uint64_t p, uint64_t pi,
                             uint32_t divisor, const ProductRunner<W>& mul, AlignedBufferC scratch) {
    const uint64_t k = p + 2;
    const bool over = newton_error_test(F, k, p, pi, mul.function);
    const BigFloat<W> E = word_view(F, k + 1, -int64_t(k));
    if (E.L == 0) {
        y_out.set_BigFloat(y, p + 2);
        y_out.sign = true;
        return;
    }
    const uint64_t m = p - pi + 4;
    const BigFloat<W> Et = top_view(E, m), Yt = top_view(y, m);
    W* Qw = scratch.extract_aligned<W>(Et.L + Yt.L);
    mul.mul(Qw, Yt.T, Yt.L, Et.T, Et.L, scratch);
    apply_correction(y_out, y, word_view(Qw, Et.L + Yt.L, Et.exp + Yt.exp), over, divisor, p, scratch);
}

template <typename W>
void apply_correction(BigFloat<W>& y_out, const BigFloat<W>& y, BigFloat<W> Q, bool over, uint32_t divisor,
                      uint64_t p, AlignedBufferC scratch) {
    if (divisor > 1 && Q.L > 0) {
        BigFloat<W> Qd(scratch.extract_aligned<W>(Q.L + 1), Q.L + 1);
        Qd.set_div_sW(Q, typename BigFloat<W>::SignedWord(divisor), Q.L + 1);
        Q = Qd;
    }
    if (over)
        y_out.set_usub(y, Q, p + 2);
    else
        y_out.set_uadd(y, Q, p + 2);
    truncate_top(y_out, p + 2);
    y_out.sign = true;
}

template <typename W>
uint64_t finish_step_bytes(uint64_t p, uint64_t pi, uint32_t divisor, const ProductRunner<W>& mul) {
    const uint64_t m = p - pi + 4;
    uint64_t bytes = words_bytes<W>(p + 3) + words_bytes<W>(2 * m) + mul.mul_bytes(m, m);
    if (divisor > 1) bytes += words_bytes<W>(2 * m + 1);
    return bytes;
}

#define QMP_INSTANTIATE(W)                                                                                     \
    template double top_as_double<W>(const BigFloat<W>&, int64_t&);                                           \
    template void reciprocal_estimate<W>(BigFloat<W>&, const BigFloat<W>&);                                   \
    template void inv_root_estimate<W>(BigFloat<W>&, const BigFloat<W>&, uint32_t);                           \
    template void finish_step<W>(BigFloat<W>&, const BigFloat<W>&, const W*, uint64_t, int64_t, uint64_t,     \
                                 uint64_t, uint32_t, const ProductRunner<W>&, AlignedBufferC);                \
    template uint64_t finish_step_bytes<W>(uint64_t, uint64_t, uint32_t, const ProductRunner<W>&);          \
    template void finish_from_error_words<W>(BigFloat<W>&, const BigFloat<W>&, W*, uint64_t, uint64_t,        \
                                             uint32_t, const ProductRunner<W>&, AlignedBufferC);             \
    template void finish_step_words<W>(W*, const W*, uint64_t, int64_t, uint64_t, uint64_t, const char*);  \
    template void apply_correction<W>(BigFloat<W>&, const BigFloat<W>&, BigFloat<W>, bool, uint32_t, uint64_t, \
                                      AlignedBufferC);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp::detail
