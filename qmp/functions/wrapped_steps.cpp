// Reciprocal steps on wrapped products (newton_core.h, qmp/multiply/fft/negacyclic_product.h).
//
// z = x y has about 1.5 p words, but its top words are known: z = 1 + e with |e| < B^(2 - p'),
// so z's words at positions 3 - p' and above are 1, 0, 0, ... (over-estimate) or 0, all-ones,
// ... (under-estimate). The product is taken modulo B^N + 1 with N = p + 8 >= u + 4 - p', u
// (at most p + p' + 4) the index of position 0 in z's words: the words from index N up are then known up to the choice
// between the two patterns, H = B^(u-N) or B^(u-N) - 1, and z mod B^N = (z mod (B^N + 1)) + H
// modulo B^N + 1. The right H leaves the word at index N - 1 (position N - 1 - u >= 3 - p')
// equal to 0 or all-ones; when neither does, the error words get an impossible top word and
// the error test reports it. y's forward transform serves both products of the step: y (x mod
// B^N + 1) and y |e| (at most N - 1 words: no wrap). The step's products, on transforms for
// about 1.5 p and p words, become two on one transform for about p words, y transformed once.
// The inverse roots take x y^n modulo B^N + 1 the same way (N = 2 p + 9 - p': the product's
// 2 p + 5 words less the known ones), on a transform for 1.5 p words instead of 2 p.
#include <algorithm>

#include "qmp/functions/newton_core.h"
#include "qmp/multiply/fft/negacyclic_product.h"

namespace qmp::detail {

namespace {

using Float = BigFloat<uint64_t>;

constexpr uint64_t modulus_min_words(uint64_t p) { return p + 8; }

// C[0, N + 1) (a residue below B^N + 1) += B^j modulo B^N + 1.
void add_power_mod(uint64_t* C, uint64_t N, uint64_t j) {
    add_1(C + j, C + j, N + 1 - j, uint64_t(1));
    if (C[N] != 0 && !is_zero(C, N)) {  // >= B^N + 1: subtract it once
        sub_1(C, C, N, uint64_t(1));
        C[N] -= 1;
    }
}

// C -= 1 modulo B^N + 1.
void sub_one_mod(uint64_t* C, uint64_t N) {
    if (is_zero(C, N + 1)) {
        C[N] = 1;  // -1 = B^N
        return;
    }
    sub_1(C, C, N + 1, uint64_t(1));
}

// F[0, p + 3) = the error words of z, given R = z mod (B^N + 1) (N + 1 words, changed) and the
// index u of position 0 in z's words; N >= u + 4 - pi.
void wrapped_error_words(uint64_t* F, uint64_t* R, uint64_t N, int64_t u, uint64_t p, uint64_t pi,
                         const char* function) {
    const uint64_t k = p + 2;
    if (u < int64_t(N)) {
        // No wrap: R is z itself.
        finish_step_words(F, R, N + 1, -u, p, pi, function);
        return;
    }
    add_power_mod(R, N, uint64_t(u) - N);  // H = B^(u-N): over-estimate
    const bool over = R[N] == 0 && R[N - 1] == 0;
    if (!over) sub_one_mod(R, N);  // H = B^(u-N) - 1: under-estimate
    const bool under = !over && R[N] == 0 && R[N - 1] == ~uint64_t(0);
    for (uint64_t i = 0; i < k; ++i) {
        const uint64_t index = uint64_t(u) - k + i;
        F[i] = index < N ? R[index] : (over ? 0 : ~uint64_t(0));
    }
    F[k] = over ? 1 : under ? 0 : ~uint64_t(0);
}

}  // namespace

bool use_wrapped(uint64_t p, const ProductRunner<uint64_t>& mul) { return mul.table != nullptr && p >= wrapped_min_p; }

// [ stored y | R, N + 1 words | F, p + 3 words | Q, N + 1 words | product scratch ]
// The end of every wrapped step once the error words F[0, p + 3) are formed: the error test,
// then y_out = y when the error is zero, else y + y e / divisor with y e taken through y's
// stored transform Ty into Q (N + 1 words).
void finish_wrapped_step(Float& y_out, const Float& y, uint64_t* F, uint64_t p, uint64_t pi,
                         const fft::NegacyclicProduct& np, const void* Ty, uint64_t* Q, uint64_t divisor,
                         const ProductRunner<uint64_t>& mul, AlignedBufferC scratch) {
    const uint64_t k = p + 2;
    const bool over = newton_error_test(F, k, p, pi, mul.function);
    const Float E = word_view(F, k + 1, -int64_t(k));
    if (E.L == 0) {
        y_out.set_BigFloat(y, p + 2);
        y_out.sign = true;
        return;
    }
    const Float Et = top_view(E, p - pi + 4);
    np.multiply(Q, Ty, Et.T, Et.L, scratch.data(), mul.parallelizer, mul.tds);
    apply_correction(y_out, y, word_view(Q, np.modulus_words() + 1, y.exp + Et.exp), over, divisor, p, scratch);
}

uint64_t reciprocal_step_wrapped_bytes(uint64_t p, uint64_t pi) {
    (void)pi;
    const fft::NegacyclicProduct wp(modulus_min_words(p));
    const uint64_t N = wp.modulus_words();
    return wp.stored_bytes() + 2 * words_bytes<uint64_t>(N + 1) + words_bytes<uint64_t>(p + 3) + wp.scratch_bytes();
}

void reciprocal_step_wrapped(Float& y_out, const Float& y, const Float& x, uint64_t p, uint64_t pi,
                             const ProductRunner<uint64_t>& mul, AlignedBufferC scratch) {
    const fft::NegacyclicProduct wp(modulus_min_words(p));
    const uint64_t N = wp.modulus_words(), k = p + 2;
    const Float xt = top_view(x, p + 2);
    void* Ty = scratch.extract(wp.stored_bytes());
    uint64_t* R = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* F = scratch.extract_aligned<uint64_t>(k + 1);
    uint64_t* Q = scratch.extract_aligned<uint64_t>(N + 1);
    wp.forward(Ty, y.T, y.L, scratch.data(), mul.parallelizer, mul.tds);
    wp.multiply(R, Ty, xt.T, xt.L, scratch.data(), mul.parallelizer, mul.tds);

    wrapped_error_words(F, R, N, -(xt.exp + y.exp), p, pi, mul.function);
    finish_wrapped_step(y_out, y, F, p, pi, wp, Ty, Q, 1, mul, scratch);
}

}  // namespace qmp::detail

namespace qmp::detail {

namespace {

// xt has p + 2 words and yn p + 3: u <= 2 p + 5, and index N - 1 must lie at position 3 - pi
// or above: N >= u + 4 - pi.
uint64_t root_modulus_min_words(uint64_t p, uint64_t pi) { return 2 * p + 9 - pi; }

}  // namespace

// [ stored yn | R, N + 1 words | product scratch ]
uint64_t root_error_words_wrapped_bytes(uint64_t p, uint64_t pi) {
    const fft::NegacyclicProduct wp(root_modulus_min_words(p, pi));
    return wp.stored_bytes() + words_bytes<uint64_t>(wp.modulus_words() + 1) + wp.scratch_bytes();
}

void root_error_words_wrapped(uint64_t* F, const Float& xt, const Float& yn, uint64_t p, uint64_t pi,
                              const ProductRunner<uint64_t>& mul, AlignedBufferC scratch) {
    const fft::NegacyclicProduct wp(root_modulus_min_words(p, pi));
    const uint64_t N = wp.modulus_words();
    void* T = scratch.extract(wp.stored_bytes());
    uint64_t* R = scratch.extract_aligned<uint64_t>(N + 1);
    wp.forward(T, yn.T, yn.L, scratch.data(), mul.parallelizer, mul.tds);
    wp.multiply(R, T, xt.T, xt.L, scratch.data(), mul.parallelizer, mul.tds);
    wrapped_error_words(F, R, N, -(xt.exp + yn.exp), p, pi, mul.function);
}

}  // namespace qmp::detail

namespace qmp::detail {

// The inverse square root: y's transform (modulus of p + 8 words) gives y^2 (at most p + 6
// words: no wrap) by a pointwise square and later y |e|; x y^2 wraps as above.
// [ stored y | y^2, Q (N + 1 words each) | F, p + 3 words | max(product scratch, x y^2) ]
uint64_t invsqrt_step_wrapped_bytes(uint64_t p, uint64_t pi) {
    const fft::NegacyclicProduct np(modulus_min_words(p));
    const uint64_t N = np.modulus_words();
    return np.stored_bytes() + 2 * words_bytes<uint64_t>(N + 1) + words_bytes<uint64_t>(p + 3) +
           std::max({np.scratch_bytes(), root_error_words_wrapped_bytes(p, pi), words_bytes<uint64_t>(N + 2)});
}

void invsqrt_step_wrapped(Float& y_out, const Float& y, const Float& x, uint64_t p, uint64_t pi,
                          const ProductRunner<uint64_t>& mul, AlignedBufferC scratch) {
    const fft::NegacyclicProduct np(modulus_min_words(p));
    const uint64_t N = np.modulus_words(), k = p + 2;
    void* Ty = scratch.extract(np.stored_bytes());
    uint64_t* Y2 = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* Q = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* F = scratch.extract_aligned<uint64_t>(k + 1);
    np.forward(Ty, y.T, y.L, scratch.data(), mul.parallelizer, mul.tds);
    np.square(Y2, Ty, scratch.data(), mul.parallelizer, mul.tds);
    const Float y2 = top_view(word_view(Y2, N + 1, 2 * y.exp), p + 3);
    root_error_words_wrapped(F, top_view(x, p + 2), y2, p, pi, mul, scratch);
    finish_wrapped_step(y_out, y, F, p, pi, np, Ty, Q, 2, mul, scratch);
}

}  // namespace qmp::detail

namespace qmp::detail {

// The inverse square root of a word n: y's transform gives y^2 by a pointwise square and later
// y |e|; n y^2 is a word product.
// [ stored y | y^2, z, Q (N + 1, N + 2, N + 1 words) | F, p + 3 words | product scratch ]
uint64_t invsqrt_word_step_wrapped_bytes(uint64_t p) {
    const fft::NegacyclicProduct np(modulus_min_words(p));
    const uint64_t N = np.modulus_words();
    return np.stored_bytes() + 2 * words_bytes<uint64_t>(N + 1) + words_bytes<uint64_t>(N + 2) +
           words_bytes<uint64_t>(p + 3) + np.scratch_bytes();
}

void invsqrt_word_step_wrapped(Float& y_out, const Float& y, uint64_t n, uint64_t p, uint64_t pi,
                               const ProductRunner<uint64_t>& mul, AlignedBufferC scratch) {
    const fft::NegacyclicProduct np(modulus_min_words(p));
    const uint64_t N = np.modulus_words();
    void* Ty = scratch.extract(np.stored_bytes());
    uint64_t* Y2 = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* Z = scratch.extract_aligned<uint64_t>(N + 2);
    uint64_t* Q = scratch.extract_aligned<uint64_t>(N + 1);
    uint64_t* F = scratch.extract_aligned<uint64_t>(p + 3);
    np.forward(Ty, y.T, y.L, scratch.data(), mul.parallelizer, mul.tds);
    np.square(Y2, Ty, scratch.data(), mul.parallelizer, mul.tds);
    const Float y2 = top_view(word_view(Y2, N + 1, 2 * y.exp), p + 3);
    Z[y2.L] = mul_1(Z, y2.T, y2.L, n);
    finish_step_words(F, Z, y2.L + 1, y2.exp, p, pi, mul.function);
    finish_wrapped_step(y_out, y, F, p, pi, np, Ty, Q, 2, mul, scratch);
}

}  // namespace qmp::detail
