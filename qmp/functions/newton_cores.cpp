// The Newton recursions of the reciprocal, the inverse n-th root and the inverse square root of
// a word (newton_core.h). Each step multiplies only the words its error can reach: x is read to
// p + 2 words, powers of y are cut to p + 3 words (each cut weighs below B^(-p-2)).
//
// Scratch of one step (carved in this order; the inner run's piece lies below it):
//   reciprocal:  [ z = x y | max(product scratch, finish_step) ]
//   inverse root: [ two power buffers of 2 (p + 3) words | z = x y^n | max(products, finish) ]
#include "qmp/functions/newton_core.h"

#include <type_traits>

namespace qmp::detail {

namespace {

constexpr uint64_t power_words(uint64_t p) { return p + 3; }

}  // namespace

template <typename W>
BigFloat<W> power_top(const BigFloat<W>& y, uint32_t n, uint64_t keep, W* A, W* B, const ProductRunner<W>& mul,
                      AlignedBufferC scratch) {
    BigFloat<W> acc = y;
    W* buffers[2] = {A, B};
    int next = 0;
    for (int bit = 30 - __builtin_clz(n); bit >= 0; --bit) {
        W* out = buffers[next];
        next ^= 1;
        mul.sqr(out, acc.T, acc.L, scratch);
        acc = top_view(word_view(out, 2 * acc.L, 2 * acc.exp), keep);
        if ((n >> bit) & 1) {
            out = buffers[next];
            next ^= 1;
            mul.mul(out, acc.T, acc.L, y.T, y.L, scratch);
            acc = top_view(word_view(out, acc.L + y.L, acc.exp + y.exp), keep);
        }
    }
    return acc;
}

template <typename W>
void reciprocal_core(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                     const ProductRunner<W>& runner) {
    const BigFloat<W> xm = top_view(x, x.L);
    auto estimate = [&](BigFloat<W>& y0) { reciprocal_estimate(y0, xm); };
    auto step = [&](BigFloat<W>& yo, const BigFloat<W>& yi, uint64_t sp, uint64_t pi, const ProductRunner<W>& mul,
                    AlignedBufferC s) {
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (use_wrapped(sp, mul)) return reciprocal_step_wrapped(yo, yi, xm, sp, pi, mul, s);
        }
        const BigFloat<W> xt = top_view(xm, sp + 2);
        W* C = s.extract_aligned<W>(xt.L + yi.L);
        mul.mul(C, xt.T, xt.L, yi.T, yi.L, s);
        finish_step(yo, yi, C, xt.L + yi.L, xt.exp + yi.exp, sp, pi, 1, mul, s);
    };
    newton_recurse(y, p, scratch, runner, estimate, step);
}

template <typename W>
uint64_t reciprocal_core_bytes(uint64_t p, const ProductRunner<W>& runner) {
    return newton_recurse_bytes(p, runner, [](uint64_t sp, uint64_t pi, const ProductRunner<W>& mul) {
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (use_wrapped(sp, mul)) return reciprocal_step_wrapped_bytes(sp, pi);
        }
        const uint64_t xl = sp + 2, yl = result_words(pi);
        return words_bytes<W>(xl + yl) + std::max(mul.mul_bytes(xl, yl), finish_step_bytes(sp, pi, 1, mul));
    });
}

template <typename W>
void inv_root_core(BigFloat<W>& y, const BigFloat<W>& x, uint32_t n, uint64_t p, AlignedBufferC scratch,
                   const ProductRunner<W>& runner) {
    const BigFloat<W> xm = top_view(x, x.L);
    auto estimate = [&](BigFloat<W>& y0) { inv_root_estimate(y0, xm, n); };
    auto step = [&](BigFloat<W>& yo, const BigFloat<W>& yi, uint64_t sp, uint64_t pi, const ProductRunner<W>& mul,
                    AlignedBufferC s) {
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (n == 2 && use_wrapped(sp, mul)) return invsqrt_step_wrapped(yo, yi, xm, sp, pi, mul, s);
        }
        const uint64_t keep = power_words(sp);
        W* A = s.extract_aligned<W>(2 * keep);
        W* B = s.extract_aligned<W>(2 * keep);
        const BigFloat<W> yn = power_top(yi, n, keep, A, B, mul, s);
        const BigFloat<W> xt = top_view(xm, sp + 2);
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (use_wrapped(sp, mul)) {
                W* F = s.extract_aligned<W>(sp + 3);
                root_error_words_wrapped(F, xt, yn, sp, pi, mul, s);
                return finish_from_error_words(yo, yi, F, sp, pi, n, mul, s);
            }
        }
        W* C = s.extract_aligned<W>(xt.L + yn.L);
        mul.mul(C, xt.T, xt.L, yn.T, yn.L, s);
        finish_step(yo, yi, C, xt.L + yn.L, xt.exp + yn.exp, sp, pi, n, mul, s);
    };
    newton_recurse(y, p, scratch, runner, estimate, step);
}

template <typename W>
uint64_t inv_root_core_bytes(uint64_t p, uint32_t n, const ProductRunner<W>& runner) {
    return newton_recurse_bytes(p, runner, [n](uint64_t sp, uint64_t pi, const ProductRunner<W>& mul) {
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (n == 2 && use_wrapped(sp, mul)) return invsqrt_step_wrapped_bytes(sp, pi);
        }
        const uint64_t keep = power_words(sp), xl = sp + 2;
        uint64_t products = std::max({mul.sqr_bytes(keep), mul.mul_bytes(keep, result_words(pi)),
                                      mul.mul_bytes(xl, keep)});
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (use_wrapped(sp, mul))
                products = std::max(products, words_bytes<W>(sp + 3) + std::max(root_error_words_wrapped_bytes(sp, pi),
                                                                                  finish_step_bytes(sp, pi, n, mul)));
        }
        return 2 * words_bytes<W>(2 * keep) + words_bytes<W>(xl + keep) +
               std::max(products, finish_step_bytes(sp, pi, n, mul));
    });
}

template <typename W>
void invsqrt_word_core(BigFloat<W>& y, W n, uint64_t p, AlignedBufferC scratch, const ProductRunner<W>& runner) {
    W word = n;
    const BigFloat<W> xm = word_view(&word, 1, 0);
    auto estimate = [&](BigFloat<W>& y0) { inv_root_estimate(y0, xm, 2); };
    auto step = [&](BigFloat<W>& yo, const BigFloat<W>& yi, uint64_t sp, uint64_t pi, const ProductRunner<W>& mul,
                    AlignedBufferC s) {
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (use_wrapped(sp, mul)) return invsqrt_word_step_wrapped(yo, yi, n, sp, pi, mul, s);
        }
        W* S = s.extract_aligned<W>(2 * yi.L);
        mul.sqr(S, yi.T, yi.L, s);
        const BigFloat<W> St = top_view(word_view(S, 2 * yi.L, 2 * yi.exp), power_words(sp));
        W* C = s.extract_aligned<W>(St.L + 1);
        C[St.L] = mul_1(C, St.T, St.L, n);
        finish_step(yo, yi, C, St.L + 1, St.exp, sp, pi, 2, mul, s);
    };
    newton_recurse(y, p, scratch, runner, estimate, step);
}

template <typename W>
uint64_t invsqrt_word_core_bytes(uint64_t p, const ProductRunner<W>& runner) {
    return newton_recurse_bytes(p, runner, [](uint64_t sp, uint64_t pi, const ProductRunner<W>& mul) {
        if constexpr (std::is_same_v<W, uint64_t>) {
            if (use_wrapped(sp, mul)) return invsqrt_word_step_wrapped_bytes(sp);
        }
        const uint64_t yl = result_words(pi);
        return words_bytes<W>(2 * yl) + words_bytes<W>(power_words(sp) + 1) +
               std::max(mul.sqr_bytes(yl), finish_step_bytes(sp, pi, 2, mul));
    });
}

#define QMP_INSTANTIATE(W)                                                                                     \
    template BigFloat<W> power_top<W>(const BigFloat<W>&, uint32_t, uint64_t, W*, W*, const ProductRunner<W>&, \
                                      AlignedBufferC);                                                         \
    template void reciprocal_core<W>(BigFloat<W>&, const BigFloat<W>&, uint64_t, AlignedBufferC,              \
                                     const ProductRunner<W>&);                                                \
    template uint64_t reciprocal_core_bytes<W>(uint64_t, const ProductRunner<W>&);                            \
    template void inv_root_core<W>(BigFloat<W>&, const BigFloat<W>&, uint32_t, uint64_t, AlignedBufferC,      \
                                   const ProductRunner<W>&);                                                  \
    template uint64_t inv_root_core_bytes<W>(uint64_t, uint32_t, const ProductRunner<W>&);                   \
    template void invsqrt_word_core<W>(BigFloat<W>&, W, uint64_t, AlignedBufferC, const ProductRunner<W>&);   \
    template uint64_t invsqrt_word_core_bytes<W>(uint64_t, const ProductRunner<W>&);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp::detail
