// The CommonP2B3 family: leaf, merge and shadow residues (see common_p2b3.h).
#include "qmp/series/common_p2b3.h"

#include <algorithm>
#include <cmath>

#include "qmp/exception.h"
#include "qmp/numbers/word_products.h"
#include "qmp/series/modular_check.h"
#include "qmp/series/range_bounds.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp::BinarySplitting {

namespace {

void store_term(Int& x, const TermValue& v, const char* function) {
    if (v.L > x.capacity) throw BufferTooSmallException(function, x.capacity, v.L);
    x.T = x.base;
    copy_words(x.T, v.w, v.L);
    x.L = v.L;
    x.sign = !v.negative;
}

// x = u * v for two term values (x disjoint from both).
void store_product(Int& x, const TermValue& u, const TermValue& v, const char* function) {
    x.T = x.base;
    if (u.L == 0 || v.L == 0) {
        x.L = 0;
        x.sign = true;
        return;
    }
    const uint64_t n = u.L + v.L;
    if (n > x.capacity) throw BufferTooSmallException(function, x.capacity, n);
    if (u.L >= v.L) {
        mul_words_basecase<uint64_t>(x.T, u.w, u.L, v.w, v.L);
    } else {
        mul_words_basecase<uint64_t>(x.T, v.w, v.L, u.w, u.L);
    }
    x.L = n - (x.T[n - 1] == 0);
    x.sign = u.negative == v.negative;
}

}  // namespace

CommonP2B3::Caps CommonP2B3::caps(const Series& s, uint64_t a, uint64_t b) {
    const PQRGrowth g = s.growth();
    const GrowthBound m = max_growth(g.Q, g.R);
    // One integral of log2 serves all three bounds.
    const double n = double(b - a), logs = sum_log2_bound(a, b);
    auto bits = [&](const GrowthBound& x) { return n * x.log2_coefficient + x.degree * logs; };
    const double p_bits = std::log2(n) + bits(m) + g.P.log2_coefficient +
                          g.P.degree * std::log2(double(b - 1 > 0 ? b - 1 : 1));
    Caps caps{words_for_bits(p_bits, 3), words_for_bits(bits(g.Q), 2), words_for_bits(bits(g.R), 2)};
    if (b - a <= kLeafTerms)
        for (unsigned i = 0; i < kOutputs; ++i) caps[i] = std::max(caps[i], s.leaf_min_words(b - a, i));
    return caps;
}

void CommonP2B3::leaf(const Series& s, uint64_t a, uint64_t b, Int* out, uint64_t* shadow, unsigned mask) {
    static const char* const kFunction = "BinarySplitting::CommonP2B3::leaf()";
    const bool need_R = mask & (1u << kR);
    if (b - a == 1) {
        s.term_residues(a, shadow[kP], shadow[kQ], shadow[kR]);
    } else {
        uint64_t p[2], q[2], r[2];
        s.term_residues(a, p[0], q[0], r[0]);
        s.term_residues(a + 1, p[1], q[1], r[1]);
        shadow[kQ] = mul_m61(q[0], q[1]);
        shadow[kR] = mul_m61(r[0], r[1]);
        shadow[kP] = add_m61(mul_m61(p[0], q[1]), mul_m61(r[0], p[1]));
    }
    if (s.leaf(a, b, out[kP], out[kQ], out[kR], need_R)) return;
    if (b - a == 1) {
        TermValue P, Q, R;
        s.term(a, P, Q, R);
        store_term(out[kP], P, kFunction);
        store_term(out[kQ], Q, kFunction);
        if (need_R) store_term(out[kR], R, kFunction);
        return;
    }
    TermValue P1, Q1, R1, P2, Q2, R2;
    s.term(a, P1, Q1, R1);
    s.term(a + 1, P2, Q2, R2);
    store_product(out[kQ], Q1, Q2, kFunction);
    if (need_R) store_product(out[kR], R1, R2, kFunction);
    store_product(out[kP], P1, Q2, kFunction);
    uint64_t words[2 * TermValue::kMaxWords + 1];
    Int t(words, 2 * TermValue::kMaxWords + 1);
    store_product(t, R1, P2, kFunction);
    add_signed_in_place(out[kP], t);
}

void CommonP2B3::merge(const MergeSite<Series>& site, const Int* L, const Int* R, Int* out, unsigned mask,
                       const Caps& capL, const Caps& capR, WorkArena arena, const MulEnv& env) {
    // Q2 serves Q1 Q2 and P1 Q2; R1 serves R1 P2 and (when R is needed) R1 R2.
    const bool need_R = mask & (1u << kR);
    const uint64_t t_cap = capL[kR] + capR[kP];
    Int t = int_over(arena.take_words(t_cap), t_cap);
    auto with_q2 = [&](WorkArena a, const MulEnv& e) {
        const uint64_t partners[2] = {capL[kQ], capL[kP]};
        SharedOperand q2(R[kQ], capR[kQ], partners, 2, a, e);
        q2.mul(out[kQ], L[kQ], capL[kQ], a, e);
        q2.mul(out[kP], L[kP], capL[kP], a, e);
    };
    auto with_r1 = [&](WorkArena a, const MulEnv& e) {
        const uint64_t partners[2] = {capR[kP], capR[kR]};
        SharedOperand r1(L[kR], capL[kR], partners, need_R ? 2 : 1, a, e);
        r1.mul(t, R[kP], capR[kP], a, e);
        if (need_R) r1.mul(out[kR], R[kR], capR[kR], a, e);
    };
    // With two tasks and products too small for the transform's own threads, the two groups
    // run side by side, each in its own part of the arena.
    const bool side_by_side = env.tds >= 2 && (env.parallelizer != nullptr || arena.is_counting()) &&
                              std::max(capL[kP], capR[kP]) <= kSideBySideMaxWords;
    if (side_by_side) {
        const MulEnv one = env.with_tds(1);
        WorkArena count_r1 = WorkArena::counting();
        with_r1(count_r1, one);
        if (arena.is_counting()) {
            WorkArena count_q2 = WorkArena::counting();
            with_q2(count_q2, one);
            arena.note_transient(count_q2.peak() + count_r1.peak());
            return;
        }
        WorkArena rest = arena;
        WorkArena part = rest.split_off(count_r1.peak());
        env.parallelizer->run(2, [&](uint64_t i) {
            if (i == 0) with_q2(rest, one);
            else with_r1(part, one);
        });
    } else {
        with_q2(arena, env);
        with_r1(arena, env);
    }
    if (arena.is_counting()) return;
    if (site.right_scale != 0 && out[kP].L != 0) out[kP] <<= site.right_scale;
    add_signed_in_place(out[kP], t);
}

void CommonP2B3::merge_shadow(const MergeSite<Series>& site, const uint64_t* L, const uint64_t* R, uint64_t* out,
                              unsigned mask) {
    out[kQ] = mul_m61(L[kQ], R[kQ]);
    out[kR] = (mask & (1u << kR)) ? mul_m61(L[kR], R[kR]) : 0;
    out[kP] = add_m61(mul_pow2_m61(mul_m61(L[kP], R[kQ]), site.right_scale % 61), mul_m61(L[kR], R[kP]));
}

void CommonP2B3::finish(const Series&, uint64_t, BSRNode<CommonP2B3>& top, SeriesFraction& out, WorkArena&, const MulEnv&) {
    out.num = top.x[kP];
    out.den = top.x[kQ];
    out.den_shift_bits = top.scale;
}

}  // namespace qmp::BinarySplitting
