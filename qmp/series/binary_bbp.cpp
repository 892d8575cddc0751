// The BinaryBBP family: leaf, merge with the shift, shadow residues (see binary_bbp.h).
#include "qmp/series/binary_bbp.h"

#include <algorithm>
#include <cmath>

#include "qmp/exception.h"
#include "qmp/series/range_bounds.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp::BinarySplitting {

BinaryBBP::Caps BinaryBBP::caps(const Series& s, uint64_t a, uint64_t b) {
    const PQRGrowth g = s.growth();
    const double n = double(b - a), logs = sum_log2_bound(a, b);
    const double q_bits = n * g.Q.log2_coefficient + g.Q.degree * logs;
    // Term k of P: prod_{j<k} Q(j) * P(k) * prod_{j>k} Q(j) * 2^(e (b - 1 - k)) <= prod Q * P(k) * 2^(e n).
    const double p_bits = std::log2(n) + q_bits + g.P.log2_coefficient +
                          g.P.degree * std::log2(double(std::max<uint64_t>(b - 1, 1))) +
                          double(s.shift_bits()) * n;
    return {words_for_bits(p_bits, 3), words_for_bits(q_bits, 2)};
}

void BinaryBBP::leaf(const Series& s, uint64_t a, uint64_t b, Int* out, uint64_t* shadow, unsigned) {
    static const char* const kFunction = "BinarySplitting::BinaryBBP::leaf()";
    (void)b;
    uint64_t r_residue;
    s.term_residues(a, shadow[kP], shadow[kQ], r_residue);
    TermValue P, Q, R;
    s.term(a, P, Q, R);
    for (unsigned i : {kP, kQ}) {
        const TermValue& v = i == kP ? P : Q;
        Int& x = out[i];
        if (v.L > x.capacity) throw BufferTooSmallException(kFunction, x.capacity, v.L);
        x.T = x.base;
        copy_words(x.T, v.w, v.L);
        x.L = v.L;
        x.sign = !v.negative;
    }
}

void BinaryBBP::merge(const MergeSite<Series>& site, const Int* L, const Int* R, Int* out, unsigned,
                      const Caps& capL, const Caps& capR, WorkArena arena, const MulEnv& env) {
    mul_signed(out[kQ], L[kQ], R[kQ], arena, env, capL[kQ], capR[kQ]);
    mul_signed(out[kP], L[kP], R[kQ], arena, env, capL[kP], capR[kQ]);
    const uint64_t t_cap = capL[kQ] + capR[kP];
    Int t = int_over(arena.take_words(t_cap), t_cap);
    mul_signed(t, L[kQ], R[kP], arena, env, capL[kQ], capR[kP]);
    if (arena.is_counting()) return;
    if (out[kP].L != 0) out[kP] <<= site.series.shift_bits() * (site.b - site.m);
    add_signed_in_place(out[kP], t);
}

void BinaryBBP::merge_shadow(const MergeSite<Series>& site, const uint64_t* L, const uint64_t* R, uint64_t* out,
                             unsigned) {
    out[kQ] = mul_m61(L[kQ], R[kQ]);
    const uint64_t shift = (site.series.shift_bits() % 61) * ((site.b - site.m) % 61) % 61;
    out[kP] = add_m61(mul_pow2_m61(mul_m61(L[kP], R[kQ]), shift), mul_m61(L[kQ], R[kP]));
}

void BinaryBBP::finish(const Series& s, uint64_t terms, BSRNode<BinaryBBP>& top, SeriesFraction& out, WorkArena&,
                       const MulEnv&) {
    out.num = top.x[kP];
    out.den = top.x[kQ];
    out.den_shift_bits = s.shift_bits() * terms;
}

}  // namespace qmp::BinarySplitting
