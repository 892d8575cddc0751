// Division q = a / b: the small form multiplies a by a small reciprocal; the large form takes
// the reciprocal at about half the precision and finishes with one correction from the residual
// (the last Newton step folded into the quotient):
//
//   y = 1/b to h = floor(p/2) + 2 words, q0 = a y to h + 2 words, r = a - b q0, q = q0 + y r.
//
// |a/b - q0| < 1.1 B^(-h) |a/b|, so |r| < 1.1 B^(T - 3) with T = top(a) - h + 2: the words of
// a and of b q0 at positions T - 1 and above agree up to one borrow, and the residual is the
// difference of the window [lo, T) with lo = top(a) - p - 3 (a and b are read to p + 3 words).
// The window's top word (position T - 1) must come out 0 (r >= 0) or all-ones (r < 0); any
// other value means a wrong q0 and fails with the two words that were subtracted there. The
// error left is |a/b - q0| |1 - b y| < B^(-2h) plus the cuts, each below B^(-p-1) |q|.
#include "qmp/functions/division.h"

#include <algorithm>
#include <type_traits>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/functions/function_checks.h"
#include "qmp/functions/newton_core.h"

namespace qmp {

namespace {

constexpr uint64_t half_precision(uint64_t p) { return detail::folded_half(p); }
constexpr uint64_t window_words(uint64_t p) { return detail::folded_window(p); }

template <typename W>
uint64_t small_bytes(uint64_t p) {
    const detail::ProductRunner<W> runner;
    const uint64_t yl = detail::result_words(p);
    return detail::words_bytes<W>(yl) +
           std::max(detail::reciprocal_core_bytes<W>(p, runner), detail::words_bytes<W>(p + 2 + yl));
}

template <typename W>
uint64_t large_bytes(const detail::ProductRunner<W>& runner, uint64_t p) {
    const uint64_t h = half_precision(p), yl = detail::result_words(h), n = window_words(p);
    const uint64_t q0_words = h + 2 + yl, bq_words = (p + 3) + (h + 2);
    const uint64_t products =
        std::max({runner.mul_bytes(h + 2, yl), runner.mul_bytes(p + 3, h + 2), runner.mul_bytes(n, n)});
    const uint64_t finish = detail::words_bytes<W>(q0_words) + detail::words_bytes<W>(bq_words) +
                            2 * detail::words_bytes<W>(n) + detail::words_bytes<W>(2 * n) + products;
    uint64_t step = finish;
    if constexpr (std::is_same_v<W, uint64_t>) {
        if (detail::use_wrapped(p, runner)) step = detail::division_finish_wrapped_bytes(p);
    }
    return detail::words_bytes<W>(yl) + std::max(detail::reciprocal_core_bytes<W>(h, runner), step);
}

}  // namespace

template <typename W>
Division_BigFloatR<W>::Division_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds)
    : table_(&table),
      limits_{max_p, max_tds},
      scratch_bytes_(detail::plan_bytes(max_p, [&](uint64_t p) { return scratch_bytes(table, p); })) {}

template <typename W>
uint64_t Division_BigFloatR<W>::scratch_bytes(const AlgorithmTableB& table, uint64_t p) {
    if (p <= newton_small_max_p) return small_bytes<W>(p);
    return large_bytes<W>(detail::runner_for<W>(&table, nullptr, 1, ""), p);
}

template <typename W>
void Division_BigFloatR<W>::run(BigFloat<W>& q, const BigFloat<W>& a, const BigFloat<W>& b, uint64_t p,
                                AlignedBufferC scratch, Parallelizer* parallelizer, uint64_t tds) const {
    const char* function = "Division_BigFloatR::run()";
    limits_.check(p, tds, function, "Mismatching tds.");
    detail::check_divisor(b, function);
    if (a.L == 0) {
        q.set_zero();
        q.sign = false;
        return;
    }
    detail::check_buffers(q, b, p, scratch, scratch_bytes(*table_, p), function);
    detail::check_buffers(q, a, p, scratch, 0, function);
    const bool sign = a.sign == b.sign;
    const auto runner = detail::runner_for<W>(table_, parallelizer, tds, function);

    if (p <= newton_small_max_p) {
        BigFloat<W> y(scratch.spawn_words<W>(detail::result_words(p)));
        detail::reciprocal_core(y, b, p, scratch, runner.at(p));
        const BigFloat<W> at = detail::top_view(a, p + 2);
        W* P = scratch.extract_aligned<W>(at.L + y.L);
        runner.at(p).mul(P, at.T, at.L, y.T, y.L, scratch);
        q.set_BigFloat(detail::word_view(P, at.L + y.L, at.exp + y.exp), p + 2);
        q.sign = sign;
        return;
    }

    if (print_status) Console::println("Large Division", Console::Colour::Info);
    const uint64_t h = half_precision(p), n = window_words(p);
    BigFloat<W> y(scratch.spawn_words<W>(detail::result_words(h)));
    detail::reciprocal_core(y, b, h, scratch, runner);
    if constexpr (std::is_same_v<W, uint64_t>) {
        if (detail::use_wrapped(p, runner)) {
            detail::division_finish_wrapped(q, a, b, y, p, runner, scratch);
            q.sign = sign;
            return;
        }
    }

    // q0 = a y to h + 2 words.
    const BigFloat<W> ah = detail::top_view(a, h + 2);
    W* Q0 = scratch.extract_aligned<W>(ah.L + y.L);
    runner.mul(Q0, ah.T, ah.L, y.T, y.L, scratch);
    const BigFloat<W> q0 = detail::top_view(detail::word_view(Q0, ah.L + y.L, ah.exp + y.exp), h + 2);

    // b q0 and the residual window.
    const BigFloat<W> bt = detail::top_view(b, p + 3), at = detail::top_view(a, p + 3);
    W* BQ = scratch.extract_aligned<W>(bt.L + q0.L);
    runner.mul(BQ, bt.T, bt.L, q0.T, q0.L, scratch);
    const int64_t lo = at.top() - int64_t(p) - 3;
    W* RA = scratch.extract_aligned<W>(n);
    W* RB = scratch.extract_aligned<W>(n);
    const bool negative =
        detail::residual_window(RA, RB, n, lo, at, BQ, bt.L + q0.L, bt.exp + q0.exp, p, h, function);
    const BigFloat<W> r = detail::word_view(RA, n, lo);
    if (r.L == 0) {
        q.set_BigFloat(q0, p + 2);
    } else {
        // q = q0 +- y |r|.
        const BigFloat<W> yt = detail::top_view(y, n), rt = detail::top_view(r, n);
        W* C = scratch.extract_aligned<W>(yt.L + rt.L);
        runner.mul(C, yt.T, yt.L, rt.T, rt.L, scratch);
        const BigFloat<W> correction = detail::word_view(C, yt.L + rt.L, yt.exp + rt.exp);
        if (negative)
            q.set_usub(q0, correction, p + 2);
        else
            q.set_uadd(q0, correction, p + 2);
        detail::truncate_top(q, p + 2);
    }
    q.sign = sign;
}

template class Division_BigFloatR<uint32_t>;
template class Division_BigFloatR<uint64_t>;

}  // namespace qmp
