// Toom-3 with A = a2 X^2 + a1 X + a0 (X = 2^(64 n), pieces n, n, s words) and B likewise
// (n, n, t). The five products
//   v0 = A(0) B(0), v1 = A(1) B(1), vm1 = A(-1) B(-1) (signed), v2 = A(2) B(2), vinf = a2 b2
// give the coefficients c0..c4 of C = sum c_i X^i by an interpolation in which every
// intermediate value is non-negative, so magnitudes need no sign bookkeeping after vm1:
//   t3 = (v2 - vm1) / 3        = c1 + c2 + 3 c3 + 5 c4   (exact division)
//   t1 = (v1 - vm1) / 2        = c1 + c3
//   c2 = v1 - t1 - v0 - vinf
//   c3 = (t3 - c2 - 5 vinf - t1) / 2,   c1 = t1 - c3
// Evaluations take n + 1 words (A(2) < 7 X), products 2 n + 2 words.
// Scratch: [ v1 | vm1 | v2 (2n + 2 each) | two evaluations (n + 1 each) | sub-product scratch ]
#include "qmp/multiply/toom3.h"

#include <cassert>

#include "qmp/words/word_array.h"

namespace qmp::detail {

namespace {

// r[0, n) = a[0, n) / 3, exact: multiply by the inverse of 3 modulo 2^64 with a running borrow.
void divexact_by3(uint64_t* r, const uint64_t* a, uint64_t n) {
    constexpr uint64_t inverse = 0xAAAAAAAAAAAAAAABull;  // 3 * inverse = 1 mod 2^64
    uint64_t c = 0;
    for (uint64_t i = 0; i < n; ++i) {
        const uint64_t s = a[i];
        const uint64_t t = s - c;
        const uint64_t borrow = t > s;
        const uint64_t q = t * inverse;
        r[i] = q;
        c = uint64_t(((unsigned __int128)q * 3) >> 64) + borrow;
    }
    assert(c == 0);
}

// E1 = P0 + P1 + P2, Em1 = |P0 - P1 + P2| (returns true when negative), E2 = P0 + 2 P1 + 4 P2;
// P0, P1 have n words, P2 has s words; each result has n + 1 words.
void eval_pm1(uint64_t* E1, uint64_t* Em1, const uint64_t* P, uint64_t n, uint64_t s, bool& neg) {
    const uint64_t* P0 = P;
    const uint64_t* P1 = P + n;
    const uint64_t* P2 = P + 2 * n;
    // Em1 first holds P0 + P2; E1 = (P0 + P2) + P1.
    Em1[n] = add(Em1, P0, n, P2, s);
    E1[n] = Em1[n] + add_n(E1, Em1, P1, n);
    neg = Em1[n] == 0 && cmp(Em1, P1, n) < 0;
    if (neg) {
        sub_n(Em1, P1, Em1, n);
        Em1[n] = 0;
    } else {
        Em1[n] -= sub_n(Em1, Em1, P1, n);
    }
}

void eval_2(uint64_t* E2, const uint64_t* P, uint64_t n, uint64_t s) {
    const uint64_t* P0 = P;
    const uint64_t* P1 = P + n;
    const uint64_t* P2 = P + 2 * n;
    // Horner: ((P2 * 2) + P1) * 2 + P0.
    E2[s] = lshift(E2, P2, s, 1);
    zero_words(E2 + s + 1, n - s);
    E2[n] += add_n(E2, E2, P1, n);  // E2[n] < 3 before, so no overflow
    E2[n] = (E2[n] << 1) | lshift(E2, E2, n, 1);
    E2[n] += add_n(E2, E2, P0, n);
}

// Adds X[0, xn) into C[0, cn) with carry propagation to the end of C.
void add_into(uint64_t* C, uint64_t cn, const uint64_t* X, uint64_t xn) {
    if (xn > cn) {
        assert(normalized_length(X + cn, xn - cn) == 0);
        xn = cn;
    }
    [[maybe_unused]] uint64_t carry = add(C, C, cn, X, xn);
    assert(carry == 0);
}

// From v1, vm1 (magnitude, sign), v2 in place and v0 = C[0, 2n), vinf = C[4n, total): writes
// C. Each value buffer has w = 2n + 2 words.
void interpolate(uint64_t* C, uint64_t total, uint64_t n, uint64_t* v1, uint64_t* vm1, bool vm1_neg,
                 uint64_t* v2, uint64_t vinf_words) {
    const uint64_t w = 2 * n + 2;
    const uint64_t* v0 = C;
    const uint64_t* vinf = C + 4 * n;
    // t3 = (v2 - vm1) / 3 in v2; t1 = (v1 - vm1) / 2 in vm1.
    if (vm1_neg) {
        add_n(v2, v2, vm1, w);
        add_n(vm1, v1, vm1, w);
    } else {
        sub_n(v2, v2, vm1, w);
        sub_n(vm1, v1, vm1, w);
    }
    divexact_by3(v2, v2, w);
    rshift(vm1, vm1, w, 1);
    uint64_t* t3 = v2;
    uint64_t* t1 = vm1;
    // c2 = v1 - t1 - v0 - vinf, in v1.
    sub_n(v1, v1, t1, w);
    sub(v1, v1, w, v0, 2 * n);
    sub(v1, v1, w, vinf, vinf_words);
    uint64_t* c2 = v1;
    // c3 = (t3 - c2 - 5 vinf - t1) / 2, in t3.
    sub_n(t3, t3, c2, w);
    sub(t3, t3, w, vinf, vinf_words);
    [[maybe_unused]] uint64_t top = submul_1(t3, vinf, vinf_words, uint64_t(4));
    sub_1(t3 + vinf_words, t3 + vinf_words, w - vinf_words, top);
    sub_n(t3, t3, t1, w);
    rshift(t3, t3, w, 1);
    uint64_t* c3 = t3;
    // c1 = t1 - c3, in t1.
    sub_n(t1, t1, c3, w);
    uint64_t* c1 = t1;
    // C = v0 + c1 X + c2 X^2 + c3 X^3 + vinf X^4; v0 and vinf are in place, the gap is zero.
    zero_words(C + 2 * n, 2 * n);
    add_into(C + n, total - n, c1, w);
    add_into(C + 2 * n, total - 2 * n, c2, w);
    add_into(C + 3 * n, total - 3 * n, c3, w);
}

}  // namespace

uint64_t toom3_piece_words(uint64_t AL) { return (AL + 2) / 3; }

bool takes_toom3_step(uint64_t AL, uint64_t BL) { return BL > 2 * toom3_piece_words(AL); }

uint64_t toom3_step_words(uint64_t AL) {
    const uint64_t n = toom3_piece_words(AL);
    return 3 * (2 * n + 2) + 2 * (n + 1);
}

void toom3_mul(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
               uint64_t* scratch, const KaratsubaThresholds& th) {
    const uint64_t n = toom3_piece_words(AL), s = AL - 2 * n, t = BL - 2 * n;
    const uint64_t w = 2 * n + 2;
    uint64_t* v1 = scratch;
    uint64_t* vm1 = v1 + w;
    uint64_t* v2 = vm1 + w;
    uint64_t* ea = v2 + w;
    uint64_t* eb = ea + (n + 1);
    uint64_t* rest = eb + (n + 1);
    // The evaluations at 1 and -1 share the two evaluation buffers with the products' inputs:
    // A(1), B(1) go to v2's space until v2 is formed.
    bool neg_a, neg_b;
    eval_pm1(v2, ea, A, n, s, neg_a);
    eval_pm1(v2 + n + 1, eb, B, n, t, neg_b);
    bkt_mul(vm1, ea, n + 1, eb, n + 1, rest, th);
    bkt_mul(v1, v2, n + 1, v2 + n + 1, n + 1, rest, th);
    eval_2(ea, A, n, s);
    eval_2(eb, B, n, t);
    bkt_mul(v2, ea, n + 1, eb, n + 1, rest, th);
    bkt_mul(C, A, n, B, n, rest, th);
    bkt_mul(C + 4 * n, A + 2 * n, s, B + 2 * n, t, rest, th);
    interpolate(C, AL + BL, n, v1, vm1, neg_a != neg_b, v2, s + t);
}

void toom3_sqr(uint64_t* C, const uint64_t* A, uint64_t AL, uint64_t* scratch,
               const KaratsubaThresholds& th) {
    const uint64_t n = toom3_piece_words(AL), s = AL - 2 * n;
    const uint64_t w = 2 * n + 2;
    uint64_t* v1 = scratch;
    uint64_t* vm1 = v1 + w;
    uint64_t* v2 = vm1 + w;
    uint64_t* ea = v2 + w;
    uint64_t* rest = ea + 2 * (n + 1);
    bool neg;
    eval_pm1(v2, ea, A, n, s, neg);
    bkt_sqr(vm1, ea, n + 1, rest, th);
    bkt_sqr(v1, v2, n + 1, rest, th);
    eval_2(ea, A, n, s);
    bkt_sqr(v2, ea, n + 1, rest, th);
    bkt_sqr(C, A, n, rest, th);
    bkt_sqr(C + 4 * n, A + 2 * n, s, rest, th);
    interpolate(C, 2 * AL, n, v1, vm1, false, v2, 2 * s);
}

}  // namespace qmp::detail
