// Folded last steps: the residual window shared by the division and the square root, and the
// square root itself (newton_core.h).
//
// Square root above 9 words: r = x^(-1/2) to h = floor(p/2) + 2 words, s0 = x r to h + 2 words
// (|s0 - sqrt(x)| < 1.1 B^(-h) sqrt(x)), d = x - s0^2 over the window [lo, T) with
// T = top(x) - h + 2 and lo = top(x) - p - 3 (|d| < 2.3 B^(-h) x < B^(T - 1)), then
// s = s0 + r d / 2. The error left is about sqrt(x) (e^2 / 2 + e |r sqrt(x) - 1|) < B^(-2h)
// plus the cuts at p + 2 words.
#include "qmp/functions/newton_core.h"

#include <string>

#include "qmp/exception.h"

namespace qmp::detail {

namespace {

// words[0, n) = the words of X at positions [lo, lo + n), zero where X has none.
template <typename W>
void window_of(W* words, uint64_t n, const W* X, uint64_t XL, int64_t x_exp, int64_t lo) {
    zero_words(words, n);
    const int64_t from = std::max(lo, x_exp), to = std::min(lo + int64_t(n), x_exp + int64_t(XL));
    if (from < to) copy_words(words + (from - lo), X + (from - x_exp), uint64_t(to - from));
}

}  // namespace

template <typename W>
bool residual_window(W* R, W* PW, uint64_t n, int64_t lo, const BigFloat<W>& A, const W* P, uint64_t PL,
                     int64_t p_exp, uint64_t p, uint64_t inner_p, const char* function) {
    window_of(R, n, A.T, A.L, A.exp, lo);
    window_of(PW, n, P, PL, p_exp, lo);
    if (NewtonFaultInjector injector = newton_fault_injector()) {
        NewtonErrorWords site{function, p, inner_p, PW, n, unsigned(sizeof(W) * 8)};
        injector(site);
    }
    const W topA = R[n - 1], topB = PW[n - 1];
    sub_n(R, R, PW, n);
    if (R[n - 1] == 0) return false;
    if (R[n - 1] == W(~W(0))) {
        neg(R, R, n);
        return true;
    }
    throw AlgorithmFailedException(function, "Convergence Failure:\n    topA = " + std::to_string(topA) +
                                                 "\n    topB = " + std::to_string(topB));
}

template <typename W>
void sqrt_core(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
               const ProductRunner<W>& runner) {
    if (p <= newton_small_max_p) {
        BigFloat<W> r(scratch.spawn_words<W>(result_words(p + 1)));
        inv_root_core(r, x, 2, p + 1, scratch, runner);
        const BigFloat<W> xt = top_view(x, p + 3);
        W* P = scratch.extract_aligned<W>(xt.L + r.L);
        runner.at(p + 1).mul(P, xt.T, xt.L, r.T, r.L, scratch);
        y.set_BigFloat(word_view(P, xt.L + r.L, xt.exp + r.exp), p + 2);
        y.sign = true;
        return;
    }
    const uint64_t h = folded_half(p), n = folded_window(p);
    BigFloat<W> r(scratch.spawn_words<W>(result_words(h)));
    inv_root_core(r, x, 2, h, scratch, runner);

    const BigFloat<W> xh = top_view(x, h + 2);
    W* S0 = scratch.extract_aligned<W>(xh.L + r.L);
    runner.mul(S0, xh.T, xh.L, r.T, r.L, scratch);
    const BigFloat<W> s0 = top_view(word_view(S0, xh.L + r.L, xh.exp + r.exp), h + 2);
    W* SQ = scratch.extract_aligned<W>(2 * s0.L);
    runner.sqr(SQ, s0.T, s0.L, scratch);

    const BigFloat<W> xt = top_view(x, p + 3);
    const int64_t lo = xt.top() - int64_t(p) - 3;
    W* D = scratch.extract_aligned<W>(n);
    W* PW = scratch.extract_aligned<W>(n);
    const bool negative =
        residual_window(D, PW, n, lo, xt, SQ, 2 * s0.L, 2 * s0.exp, p, h, runner.function);
    const BigFloat<W> d = word_view(D, n, lo);
    if (d.L == 0) {
        y.set_BigFloat(s0, p + 2);
        y.sign = true;
        return;
    }
    const BigFloat<W> rt = top_view(r, n);
    W* C = scratch.extract_aligned<W>(rt.L + d.L);
    runner.mul(C, rt.T, rt.L, d.T, d.L, scratch);
    const BigFloat<W> c = word_view(C, rt.L + d.L, rt.exp + d.exp);
    BigFloat<W> half(scratch.extract_aligned<W>(c.L + 1), c.L + 1);
    half.set_div_sW(c, 2, c.L + 1);
    if (negative)
        y.set_usub(s0, half, p + 2);
    else
        y.set_uadd(s0, half, p + 2);
    truncate_top(y, p + 2);
    y.sign = true;
}

template <typename W>
uint64_t sqrt_core_bytes(uint64_t p, const ProductRunner<W>& runner) {
    if (p <= newton_small_max_p) {
        const uint64_t rl = result_words(p + 1), xl = p + 3;
        return words_bytes<W>(rl) + std::max(inv_root_core_bytes<W>(p + 1, 2, runner),
                                             words_bytes<W>(xl + rl) + runner.at(p + 1).mul_bytes(xl, rl));
    }
    const uint64_t h = folded_half(p), n = folded_window(p), rl = result_words(h), sl = h + 2;
    const uint64_t products = std::max({runner.mul_bytes(h + 2, rl), runner.sqr_bytes(sl), runner.mul_bytes(n, n)});
    const uint64_t rest = words_bytes<W>(h + 2 + rl) + words_bytes<W>(2 * sl) + 2 * words_bytes<W>(n) +
                          words_bytes<W>(2 * n) + words_bytes<W>(2 * n + 1) + products;
    return words_bytes<W>(rl) + std::max(inv_root_core_bytes<W>(h, 2, runner), rest);
}

#define QMP_INSTANTIATE(W)                                                                                     \
    template bool residual_window<W>(W*, W*, uint64_t, int64_t, const BigFloat<W>&, const W*, uint64_t,       \
                                     int64_t, uint64_t, uint64_t, const char*);                               \
    template void sqrt_core<W>(BigFloat<W>&, const BigFloat<W>&, uint64_t, AlignedBufferC,                    \
                               const ProductRunner<W>&);                                                      \
    template uint64_t sqrt_core_bytes<W>(uint64_t, const ProductRunner<W>&);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp::detail
