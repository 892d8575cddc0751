// The truncated top merge of CommonP2B3 (see truncated_top.h).
#include "qmp/series/truncated_top.h"

#include <algorithm>

#include "qmp/series/modular_check.h"
#include "qmp/words/mod_m61.h"

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

// A product against its operands' residues (after the test hook, which may corrupt it).
void check_product(uint64_t a, uint64_t b, Int& product, const Int& A, const Int& B) {
    if (BSRFaultInjector inject = bsr_fault_injector()) inject("top", a, b, &product, 1);
    const uint64_t expected = mul_m61(residue_of(A), residue_of(B)), actual = residue_of(product);
    if (actual != expected) throw BSRCheckFailure(a, b, sub_m61(actual, expected), 0);
}

}  // namespace

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
    const uint64_t x_cap = cP1 + cQ2 + 2 + room + 3, q_cap = cQ1 + cQ2;
    Scaled X{int_over(arena.take_words(x_cap), x_cap), 0};
    Scaled Q{int_over(arena.take_words(q_cap), q_cap), 0};
    {
        // Q2 is an operand of both products: transformed once where the multiplication allows.
        WorkArena frame = arena;
        const uint64_t partners[2] = {cP1, cQ1};
        SharedOperand q2(Q2.x, cQ2, partners, 2, frame, env);
        q2.mul(X.x, P1.x, cP1, frame, env);
        q2.mul(Q.x, Q1.x, cQ1, frame, env);
    }
    {
        // t lives in a frame of its own: it is dead once added into X.
        WorkArena frame = arena;
        const uint64_t t_cap = cR1 + cP2;
        Scaled t{int_over(frame.take_words(t_cap), t_cap), 0};
        mul_signed(t.x, R1.x, P2.x, frame, env, cR1, cP2);
        if (counting) {
            // The caller sizes its last steps from these capacities.
            out = SeriesFraction{};
            out.num.capacity = out.den.capacity = keep + 1;
            return;
        }
        check_product(a, b, X.x, P1.x, Q2.x);
        check_product(a, b, Q.x, Q1.x, Q2.x);
        check_product(a, b, t.x, R1.x, P2.x);
        X.exponent = P1.exponent + Q2.exponent + R.scale / 64;
        if (X.x.L != 0) X.x <<= R.scale % 64;
        t.exponent = R1.exponent + P2.exponent;
        // Align to the larger exponent: the other term loses the words below it.
        if (t.exponent <= X.exponent) {
            t.x = drop_words(t.x, X.exponent - t.exponent);
        } else {
            X.x = drop_words(X.x, t.exponent - X.exponent);
            X.exponent = t.exponent;
        }
        const uint64_t expected = add_m61(residue_of(X.x), residue_of(t.x));
        add_signed_in_place(X.x, t.x);
        if (BSRFaultInjector inject = bsr_fault_injector()) inject("top", a, b, &X.x, 1);
        const uint64_t actual = residue_of(X.x);
        if (actual != expected) throw BSRCheckFailure(a, b, sub_m61(actual, expected), 0);
    }
    Q.exponent = Q1.exponent + Q2.exponent;
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
