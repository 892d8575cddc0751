// The truncated top merge of CommonP2B3 (see truncated_top.h).
#include "qmp/series/truncated_top.h"

#include <algorithm>
#include <atomic>

#include "qmp/series/modular_check.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp::BinarySplitting {

namespace {

using C = CommonP2B3;

// A value with its word exponent: x * 2^(64 exponent).
struct Scaled {
    Int x;
    uint64_t exponent = 0;
};

// x without its lowest `drop` words: a view over the same words (nothing moves) that keeps the
// room above them.
Int drop_words(const Int& x, uint64_t drop) {
    drop = std::min(drop, x.L);
    const uint64_t room = x.capacity - uint64_t(x.T - x.base);
    Int v(x.T + drop, room - drop);
    v.L = x.L - drop;
    v.sign = v.L == 0 ? true : x.sign;
    return v;
}

// The top `keep` words of x and the words cut.
Scaled top_words(const Int& x, uint64_t keep) {
    const uint64_t drop = x.L > keep ? x.L - keep : 0;
    return Scaled{drop_words(x, drop), drop};
}

// x's lowest n words (a view).
Int low_words(const Int& x, uint64_t n) {
    Int v(x.T, n);
    v.L = normalized_length(x.T, std::min(n, x.L));
    v.sign = v.L == 0 ? true : x.sign;
    return v;
}

// The check of a value against the residue it must have (after the test hook, which may
// corrupt the value).
void check_residue(uint64_t a, uint64_t b, Int& value, uint64_t expected) {
    if (BSRFaultInjector inject = bsr_fault_injector()) inject("top", a, b, &value, 1);
    const uint64_t actual = residue_of(value);
    if (actual != expected) throw BSRCheckFailure(a, b, sub_m61(actual, expected), 0);
}

void check_product(uint64_t a, uint64_t b, Int& product, const Int& A, const Int& B) {
    check_residue(a, b, product, mul_m61(residue_of(A), residue_of(B)));
}

std::atomic<uint64_t> g_split_min_words{kTopSplitMinWords};

// Words cut from the bottom of each operand of a split product whose operands have `al` and
// `bl` words and whose result keeps keep + 2 words.
uint64_t split_words(uint64_t al, uint64_t bl, uint64_t keep) {
    if (al + bl <= keep + 2) return 0;
    return std::min({(al + bl - keep - 2) / 2, al, bl});
}

// dst = the top of A B at word exponent e(A) + e(B) + h: with A = A1 W^h + A0 and B = B1 W^h + B0,
// dst = A1 B1 W^h + A1 B0 + A0 B1 (A0 B0 < W^(2h), below the words kept, is never formed). Three
// products half as long as A B: the scratch of the sum is that of a product half its length.
// Every product and the sum are checked by residues.
void split_product(uint64_t a, uint64_t b, Scaled& dst, const Scaled& A, const Scaled& B, uint64_t a_cap,
                   uint64_t b_cap, uint64_t keep, WorkArena& arena, const MulEnv& env) {
    const bool counting = arena.is_counting();
    const uint64_t h = counting ? split_words(a_cap, b_cap, keep) : split_words(A.x.L, B.x.L, keep);
    WorkArena frame = arena;
    const uint64_t m_cap = std::max(a_cap, b_cap);
    Int middle = int_over(frame.take_words(m_cap), m_cap);
    Int high = counting ? Int() : Int(dst.x.base + h, dst.x.capacity - h);
    Int A1, A0, B1, B0;
    if (!counting) A1 = drop_words(A.x, h), A0 = low_words(A.x, h), B1 = drop_words(B.x, h), B0 = low_words(B.x, h);
    mul_signed(high, A1, B1, frame, env, a_cap - h, b_cap - h);
    if (!counting) {
        check_product(a, b, high, A1, B1);
        dst.x.T = dst.x.base;
        std::fill(dst.x.T, dst.x.T + h, uint64_t(0));
        dst.x.L = high.L == 0 ? 0 : h + high.L;
        dst.x.sign = high.sign;
    }
    uint64_t expected = counting ? 0 : mul_pow2_m61(residue_of(high), (64 * (h % 61)) % 61);
    for (int part = 0; part < 2; ++part) {
        const Int& x = part == 0 ? A1 : A0;
        const Int& y = part == 0 ? B0 : B1;
        mul_signed(middle, x, y, frame, env, part == 0 ? a_cap - h : h, part == 0 ? h : b_cap - h);
        if (counting) continue;
        check_product(a, b, middle, x, y);
        expected = add_m61(expected, residue_of(middle));
        add_signed_in_place(dst.x, middle);
    }
    if (counting) return;
    check_residue(a, b, dst.x, expected);
    dst.exponent = A.exponent + B.exponent + h;
}

}  // namespace

void set_top_split_min_words(uint64_t words) { g_split_min_words.store(words); }

bool truncated_top_applies(const CommonP2B3::Caps& capL, const CommonP2B3::Caps& capR, uint64_t keep) {
    return std::max({capL[C::kP], capL[C::kQ], capR[C::kP], capR[C::kQ]}) > keep;
}

void truncated_top_merge(uint64_t a, uint64_t b, const BSRNode<CommonP2B3>& L, const BSRNode<CommonP2B3>& R,
                         const CommonP2B3::Caps& capL, const CommonP2B3::Caps& capR,
                         const CommonP2B3::Caps& capTop, uint64_t keep,
                         SeriesFraction& out, WorkArena& arena, const MulEnv& env) {
    const bool counting = arena.is_counting();
    const uint64_t cP1 = std::min(capL[C::kP], keep), cQ1 = std::min(capL[C::kQ], keep);
    const uint64_t cR1 = std::min(capL[C::kR], keep), cP2 = std::min(capR[C::kP], keep);
    const uint64_t cQ2 = std::min(capR[C::kQ], keep);
    Scaled P1, Q1, R1, P2, Q2;
    if (!counting) {
        P1 = top_words(L.x[C::kP], keep);
        Q1 = top_words(L.x[C::kQ], keep);
        R1 = top_words(L.x[C::kR], keep);
        P2 = top_words(R.x[C::kP], keep);
        Q2 = top_words(R.x[C::kQ], keep);
    }
    // X = P1 Q2 2^(scale2 mod 64) at word exponent e(P1) + e(Q2) + scale2 / 64; one word for the
    // shift and one for the carry of P = X + t. When S is far above 1 (P longer than Q 2^scale)
    // the exponents cannot carry it all and P moves up at the end by about log2(S) bits: the room
    // for that is what P's capacity exceeds Q's by (Q's capacities are within a few words of its
    // length), and a P that outgrows it stops with BufferTooSmallException, never a wrong value.
    const uint64_t room = capTop[C::kP] > capTop[C::kQ] ? capTop[C::kP] - capTop[C::kQ] : 0;
    const bool split = cP1 + cQ2 >= g_split_min_words.load();
    // A split product has h fewer words (and one for the carry of its sum).
    auto product_cap = [&](uint64_t x, uint64_t y) { return split ? x + y - split_words(x, y, keep) + 1 : x + y; };
    const uint64_t x_cap = product_cap(cP1, cQ2) + 2 + room + 3, q_cap = product_cap(cQ1, cQ2);
    Scaled X{int_over(arena.take_words(x_cap), x_cap), 0};
    Scaled Q{int_over(arena.take_words(q_cap), q_cap), 0};
    // t = R1 P2 lives in a frame of its own: it is dead once added into X.
    WorkArena frame = arena;
    const uint64_t t_cap = product_cap(cR1, cP2);
    Scaled t{int_over(frame.take_words(t_cap), t_cap), 0};
    if (split) {
        // Large: each product as its top part from three products half as long.
        split_product(a, b, X, P1, Q2, cP1, cQ2, keep, arena, env);
        split_product(a, b, Q, Q1, Q2, cQ1, cQ2, keep, arena, env);
        split_product(a, b, t, R1, P2, cR1, cP2, keep, frame, env);
    } else {
        {
            // Q2 is an operand of both products: transformed once where the multiplication allows.
            WorkArena q2_frame = arena;
            const uint64_t partners[2] = {cP1, cQ1};
            SharedOperand q2(Q2.x, cQ2, partners, 2, q2_frame, env);
            q2.mul(X.x, P1.x, cP1, q2_frame, env);
            q2.mul(Q.x, Q1.x, cQ1, q2_frame, env);
        }
        mul_signed(t.x, R1.x, P2.x, frame, env, cR1, cP2);
        if (!counting) {
            check_product(a, b, X.x, P1.x, Q2.x);
            check_product(a, b, Q.x, Q1.x, Q2.x);
            check_product(a, b, t.x, R1.x, P2.x);
            X.exponent = P1.exponent + Q2.exponent;
            Q.exponent = Q1.exponent + Q2.exponent;
            t.exponent = R1.exponent + P2.exponent;
        }
    }
    if (counting) {
        // The caller sizes its last steps from these capacities.
        out = SeriesFraction{};
        out.num.capacity = out.den.capacity = keep + 1;
        return;
    }
    // P = X 2^scale2 + t: X takes scale2 mod 64 as a shift and the rest in its exponent, then both
    // go to the larger exponent (the other term loses only words below that one's last).
    X.exponent += R.scale / 64;
    if (X.x.L != 0) X.x <<= R.scale % 64;
    if (t.exponent <= X.exponent) {
        t.x = drop_words(t.x, X.exponent - t.exponent);
    } else {
        X.x = drop_words(X.x, t.exponent - X.exponent);
        X.exponent = t.exponent;
    }
    const uint64_t expected = add_m61(residue_of(X.x), residue_of(t.x));
    add_signed_in_place(X.x, t.x);
    check_residue(a, b, X.x, expected);
    // At most keep + 1 words each; the exponents go into the denominator's shift:
    // S = P 2^(64 eP) / (Q 2^(64 eQ) 2^scale) = P / (Q 2^(scale + 64 (eQ - eP))).
    for (Scaled* v : {&X, &Q}) {
        const uint64_t drop = v->x.L > keep + 1 ? v->x.L - keep - 1 : 0;
        v->x = drop_words(v->x, drop);
        v->exponent += drop;
    }
    int64_t shift = int64_t(L.scale + R.scale) + 64 * (int64_t(Q.exponent) - int64_t(X.exponent));
    if (shift < 0) {
        // S > 1 by more than the exponents carry: P moves up instead (room is left above it).
        if (X.x.L != 0) X.x <<= uint64_t(-shift);
        shift = 0;
    }
    // The caller sizes its last steps from the capacities, as counted above.
    out.num = X.x;
    out.num.capacity = std::max(X.x.L, keep + 1);
    out.den = Q.x;
    out.den.capacity = keep + 1;
    out.den_shift_bits = uint64_t(shift);
}

}  // namespace qmp::BinarySplitting
