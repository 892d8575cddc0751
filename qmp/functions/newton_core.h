// The machinery under every Newton function (internal): how a step multiplies (through the
// table, or by rows for the small forms), read-only views of the top words of a float, the
// double-precision starting estimates, and the common end of a step, which turns z ~ 1
// (z = x y, x y^2, ...) into y' = y +- y |1 - z| / divisor. Scratch-size functions sit next
// to each routine; every routine carves its pieces from the AlignedBufferC it is given.
#pragma once

#include <algorithm>
#include <cstdint>

#include "qmp/functions/newton_schedule.h"
#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"
#include "qmp/numbers/word_products.h"
#include "qmp/words/word_array.h"

namespace qmp::detail {

template <typename W>
constexpr uint64_t words_bytes(uint64_t n_words) {
    return AlignedBufferC::round_up(n_words * sizeof(W));
}

// Forms exact products: through the table, or by rows when `table` is null (the small forms).
template <typename W>
struct ProductRunner {
    const AlgorithmTableB* table = nullptr;
    Parallelizer* parallelizer = nullptr;
    uint64_t tds = 1;
    const char* function = "";

    // The runner for a step at p words: the small forms below 10 words.
    ProductRunner at(uint64_t p) const {
        ProductRunner r = *this;
        if (p <= newton_small_max_p) r.table = nullptr;
        return r;
    }
    uint64_t mul_bytes(uint64_t AL, uint64_t BL) const {
        return table != nullptr ? mul_words_scratch_bytes<W>(*table, AL, BL) : 0;
    }
    uint64_t sqr_bytes(uint64_t AL) const { return table != nullptr ? sqr_words_scratch_bytes<W>(*table, AL) : 0; }
    // C[0, AL + BL) = A * B.
    void mul(W* C, const W* A, uint64_t AL, const W* B, uint64_t BL, AlignedBufferC scratch) const {
        if (table == nullptr) {
            if (AL >= BL)
                mul_words_basecase(C, A, AL, B, BL);
            else
                mul_words_basecase(C, B, BL, A, AL);
        } else {
            mul_words<W>(*table, C, A, AL, B, BL, scratch, parallelizer, tds, function);
        }
    }
    void sqr(W* C, const W* A, uint64_t AL, AlignedBufferC scratch) const {
        if (table == nullptr)
            mul_words_basecase(C, A, AL, A, AL);
        else
            sqr_words<W>(*table, C, A, AL, scratch, parallelizer, tds, function);
    }
};

// A read-only view of words[0, n) at exponent `exp`, with its zero top words dropped.
template <typename W>
BigFloat<W> word_view(const W* words, uint64_t n, int64_t exp) {
    BigFloat<W> v(const_cast<W*>(words), n);
    v.L = normalized_length(words, n);
    v.exp = exp;
    v.sign = true;
    return v;
}

// The top min(n, L) words of x, as a view of x's own words (sign cleared to +).
template <typename W>
BigFloat<W> top_view(const BigFloat<W>& x, uint64_t n) {
    const uint64_t keep = std::min(n, x.L), drop = x.L - keep;
    BigFloat<W> v = word_view(x.T + drop, keep, x.exp + int64_t(drop));
    return v;
}

// Cuts y to its top n words in place.
template <typename W>
void truncate_top(BigFloat<W>& y, uint64_t n) {
    if (y.L <= n) return;
    const uint64_t drop = y.L - n;
    y.T += drop;
    y.L = n;
    y.exp += int64_t(drop);
}

// x ~ d B^e with d in [1, B^2) read from x's top words (x != 0): d and e.
template <typename W>
double top_as_double(const BigFloat<W>& x, int64_t& e);

// Starting estimates (p = 0), written into y (capacity >= 3 words), sign +. x > 0 (magnitude).
template <typename W>
void reciprocal_estimate(BigFloat<W>& y, const BigFloat<W>& x);
// x^(-1/n), n >= 2: for n = 2 the sqrt(B) rule of the inverse square root.
template <typename W>
void inv_root_estimate(BigFloat<W>& y, const BigFloat<W>& x, uint32_t n);

// The end of a step at p words after an inner run at pi words: z = C[0, CL) B^c_exp ~ 1 is read
// as the fixed-point error words, tested (newton_error_test), and y_out = y +- y |e| / divisor
// at p + 2 words. y_out's buffer holds p + 3 words and overlaps nothing.
template <typename W>
void finish_step(BigFloat<W>& y_out, const BigFloat<W>& y, const W* C, uint64_t CL, int64_t c_exp, uint64_t p,
                 uint64_t pi, uint32_t divisor, const ProductRunner<W>& mul, AlignedBufferC scratch);
template <typename W>
uint64_t finish_step_bytes(uint64_t p, uint64_t pi, uint32_t divisor, const ProductRunner<W>& mul);
// The first part of a step: F[0, p + 3) = the error words of z = C[0, CL) B^c_exp (before the
// error test).
template <typename W>
void finish_step_words(W* F, const W* C, uint64_t CL, int64_t c_exp, uint64_t p, uint64_t pi, const char* function);

// The step after its error words: the error test on F[0, p + 3) (turned into |e|), then
// y_out = y -+ y |e| / divisor. Scratch: finish_step_bytes() less the p + 3 words of F.
template <typename W>
void finish_from_error_words(BigFloat<W>& y_out, const BigFloat<W>& y, W* F, uint64_t p, uint64_t pi,
                             uint32_t divisor, const ProductRunner<W>& mul, AlignedBufferC scratch);

// The last part of a step: y_out = y -+ Q / divisor (minus for an over-estimate) at p + 2
// words. Scratch: Q.L + 1 words when divisor > 1.
template <typename W>
void apply_correction(BigFloat<W>& y_out, const BigFloat<W>& y, BigFloat<W> Q, bool over, uint32_t divisor,
                      uint64_t p, AlignedBufferC scratch);

// Steps whose products wrap modulo B^N + 1 and share y's stored transform (64-bit words and a
// table only; wrapped_steps.cpp, division_wrapped.cpp): used from wrapped_min_p words up, where
// a step's full products (about (p + 2) x (p/2 + 3) words) reach the FFT. Measured with
// qmp_funcbench (one thread, AMD Zen 5, g++ 12, 2026-11-23, noisy shared machine): starting
// at 200 rather than 1000 words took the reciprocal/product ratio at 600 and 900 words from
// 2.5 and 2.9 to 1.8 and 1.9 (250-400 words: within noise); a start at 40 words was slower at
// 50-220 words, and a start at 100 was within noise of 200.
inline constexpr uint64_t wrapped_min_p = 200;
bool use_wrapped(uint64_t p, const ProductRunner<uint64_t>& mul);
void reciprocal_step_wrapped(BigFloat<uint64_t>& y_out, const BigFloat<uint64_t>& y, const BigFloat<uint64_t>& x,
                             uint64_t p, uint64_t pi, const ProductRunner<uint64_t>& mul, AlignedBufferC scratch);
uint64_t reciprocal_step_wrapped_bytes(uint64_t p, uint64_t pi);
void invsqrt_step_wrapped(BigFloat<uint64_t>& y_out, const BigFloat<uint64_t>& y, const BigFloat<uint64_t>& x,
                          uint64_t p, uint64_t pi, const ProductRunner<uint64_t>& mul, AlignedBufferC scratch);
uint64_t invsqrt_step_wrapped_bytes(uint64_t p, uint64_t pi);
void invsqrt_word_step_wrapped(BigFloat<uint64_t>& y_out, const BigFloat<uint64_t>& y, uint64_t n, uint64_t p,
                               uint64_t pi, const ProductRunner<uint64_t>& mul, AlignedBufferC scratch);
uint64_t invsqrt_word_step_wrapped_bytes(uint64_t p);
// The large division after y = 1/b at folded_half(p) words: q (p + 3 words) = a / b with its
// products modulo B^N + 1 (division_wrapped.cpp); sign left to the caller.
uint64_t division_finish_wrapped_bytes(uint64_t p);
void division_finish_wrapped(BigFloat<uint64_t>& q, const BigFloat<uint64_t>& a, const BigFloat<uint64_t>& b,
                             const BigFloat<uint64_t>& y, uint64_t p, const ProductRunner<uint64_t>& mul,
                             AlignedBufferC scratch);

// The error words F[0, p + 3) of z = xt yn for the inverse roots (yn = y^n cut to p + 3 words),
// from a product modulo B^N + 1 instead of the full one: the scratch it needs, and the run.
uint64_t root_error_words_wrapped_bytes(uint64_t p, uint64_t pi);
void root_error_words_wrapped(uint64_t* F, const BigFloat<uint64_t>& xt, const BigFloat<uint64_t>& yn, uint64_t p,
                              uint64_t pi, const ProductRunner<uint64_t>& mul, AlignedBufferC scratch);

// Upper bound on the words of a result at precision p (the double estimate at p = 0).
constexpr uint64_t result_words(uint64_t p) { return p + 3; }

// The shared recursion: estimate at p = 0, else inner run at pi into a (pi + 3)-word piece of
// the scratch, then the step. `step(y_out, y_inner, p, pi, runner, scratch)`.
template <typename W, typename Estimate, typename Step>
void newton_recurse(BigFloat<W>& y, uint64_t p, AlignedBufferC scratch, const ProductRunner<W>& runner,
                    const Estimate& estimate, const Step& step) {
    if (p == 0) {
        estimate(y);
        return;
    }
    const uint64_t pi = newton_inner_precision(p);
    BigFloat<W> inner(scratch.spawn_words<W>(result_words(pi)));
    newton_recurse(inner, pi, scratch, runner, estimate, step);
    step(y, inner, p, pi, runner.at(p), scratch);
}

// The scratch of newton_recurse() when a step at p needs step_bytes(p, pi, runner) bytes.
template <typename W, typename StepBytes>
uint64_t newton_recurse_bytes(uint64_t p, const ProductRunner<W>& runner, const StepBytes& step_bytes) {
    if (p == 0) return 0;
    const uint64_t pi = newton_inner_precision(p);
    return words_bytes<W>(result_words(pi)) +
           std::max(newton_recurse_bytes(pi, runner, step_bytes), step_bytes(p, pi, runner.at(p)));
}

// Core runs shared by the classes (x > 0 as a magnitude; y's buffer p + 3 words).
template <typename W>
void reciprocal_core(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                     const ProductRunner<W>& runner);
template <typename W>
uint64_t reciprocal_core_bytes(uint64_t p, const ProductRunner<W>& runner);
// x^(-1/n) with y^n raised by squarings (n = 2: the inverse square root).
template <typename W>
void inv_root_core(BigFloat<W>& y, const BigFloat<W>& x, uint32_t n, uint64_t p, AlignedBufferC scratch,
                   const ProductRunner<W>& runner);
template <typename W>
uint64_t inv_root_core_bytes(uint64_t p, uint32_t n, const ProductRunner<W>& runner);
// n^(-1/2) of a word.
template <typename W>
void invsqrt_word_core(BigFloat<W>& y, W n, uint64_t p, AlignedBufferC scratch, const ProductRunner<W>& runner);
template <typename W>
uint64_t invsqrt_word_core_bytes(uint64_t p, const ProductRunner<W>& runner);

// y^n (n >= 2), cut to its top `keep` words after every product (left-to-right binary
// powering), alternating between buffers A and B of 2 keep words each; y.L <= keep. The result
// views A or B. Scratch: the larger of mul.sqr_bytes(keep) and mul.mul_bytes(keep, y.L).
template <typename W>
BigFloat<W> power_top(const BigFloat<W>& y, uint32_t n, uint64_t keep, W* A, W* B, const ProductRunner<W>& mul,
                      AlignedBufferC scratch);

// The residual of a folded last step: |A - P| over the word positions [lo, lo + n) into R
// (n words), where the exact difference is known to lie below B^(lo + n - 1). The window's top
// word of the difference must be 0 (A >= P: returns false) or all-ones (A < P: returns true);
// anything else throws AlgorithmFailedException "Convergence Failure:\n    topA = " ...
// "\n    topB = " with the two words subtracted there. PW (n words) receives P's window, which
// the fault injector sees first (as NewtonErrorWords with p and inner_p).
template <typename W>
bool residual_window(W* R, W* PW, uint64_t n, int64_t lo, const BigFloat<W>& A, const W* P, uint64_t PL,
                     int64_t p_exp, uint64_t p, uint64_t inner_p, const char* function);

// Precision of the inner run of a folded last step, and the words of its residual window.
constexpr uint64_t folded_half(uint64_t p) { return p / 2 + 2; }
constexpr uint64_t folded_window(uint64_t p) { return p - folded_half(p) + 5; }

// sqrt(x) to p words: below 10 words x * x^(-1/2); above, x^(-1/2) at h = folded_half(p)
// words, s0 = x r, then s = s0 + r (x - s0^2) / 2 with the residual checked as above.
template <typename W>
void sqrt_core(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
               const ProductRunner<W>& runner);
template <typename W>
uint64_t sqrt_core_bytes(uint64_t p, const ProductRunner<W>& runner);

// The plan of a root function: products of at most `max_p` words through `table`.
template <typename W>
ProductRunner<W> runner_for(const AlgorithmTableB* table, Parallelizer* parallelizer, uint64_t tds,
                            const char* function) {
    ProductRunner<W> r;
    r.table = table;
    r.parallelizer = parallelizer;
    r.tds = tds;
    r.function = function;
    return r;
}

}  // namespace qmp::detail
