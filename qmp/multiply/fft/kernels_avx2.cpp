// The AVX2 + FMA kernels (the x86-64-v3 baseline): 4-lane vectors, a block is two vectors of re
// and two of im. In-block levels: half 4 pairs the two vectors; halves 2 and 1 regroup the block
// with vperm2f128 / vunpck so that each level is a vertical butterfly (see inblock_forward).
#include "qmp/multiply/fft/kernel_set.h"

#include <immintrin.h>

#include <cstdint>

namespace qmp::fft {
namespace {

struct Avx2Traits {
    using V = __m256d;
    static constexpr int W = 4;
    static V ld(const double* p) { return _mm256_load_pd(p); }
    static void st(double* p, V v) { _mm256_store_pd(p, v); }
    static V bc(double x) { return _mm256_set1_pd(x); }
    static V add(V a, V b) { return _mm256_add_pd(a, b); }
    static V sub(V a, V b) { return _mm256_sub_pd(a, b); }
    static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
    static V fmadd(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
    static V fmsub(V a, V b, V c) { return _mm256_fmsub_pd(a, b, c); }

    // t = s*y; the lanes of y are the upper halves of the pairs.
    static inline void twiddle(V& tr, V& ti, V yr, V yi, V sr, V si) {
        tr = _mm256_fmsub_pd(yr, sr, _mm256_mul_pd(yi, si));
        ti = _mm256_fmadd_pd(yr, si, _mm256_mul_pd(yi, sr));
    }
    static inline void twiddle_conj(V& tr, V& ti, V yr, V yi, V sr, V si) {
        tr = _mm256_fmadd_pd(yr, sr, _mm256_mul_pd(yi, si));
        ti = _mm256_fmsub_pd(yi, sr, _mm256_mul_pd(yr, si));
    }
    // Twiddles of the half-1 level for lanes (a, a, b, b) from two consecutive record slots.
    static inline V pair_lanes(const double* p) {
        return _mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), 0x50);
    }

    // The two vectors of a block hold points 0-3 and 4-7. Half 4 pairs them directly. For
    // halves 2 and 1 the block is regrouped so that every pair sits in two registers at the same
    // lane, and each level is one vertical butterfly with a lane vector of twiddles:
    //   half 2:  A = [p0 p1 p4 p5], B = [p2 p3 p6 p7]      (vperm2f128), twiddles slots 1 1 2 2
    //   half 1:  C = [p0 p2 p4 p6], D = [p1 p3 p5 p7]      (vunpck),     twiddles slots 3 4 5 6
    // and back with the same two shuffles. 16 shuffles per block, one complex multiply per level.
    static inline void regroup_in(V x0, V x1, V& a, V& b) {
        a = _mm256_permute2f128_pd(x0, x1, 0x20);
        b = _mm256_permute2f128_pd(x0, x1, 0x31);
    }
    static inline void butterfly(V& ar, V& ai, V& br, V& bi, V sr, V si) {
        V tr, ti;
        twiddle(tr, ti, br, bi, sr, si);
        br = sub(ar, tr);
        bi = sub(ai, ti);
        ar = add(ar, tr);
        ai = add(ai, ti);
    }
    static inline void ibutterfly(V& ar, V& ai, V& br, V& bi, V sr, V si) {
        V dr, di;
        twiddle_conj(dr, di, sub(ar, br), sub(ai, bi), sr, si);
        ar = add(ar, br);
        ai = add(ai, bi);
        br = dr;
        bi = di;
    }

    // The three in-block levels with their twiddles already in lane order: (s4) broadcast,
    // (s2) slots 1 1 2 2, (s1) slots 3 4 5 6.
    struct LevelTwiddles {
        V s4r, s4i, s2r, s2i, s1r, s1i;
    };
    static inline LevelTwiddles twiddles_from_memory(const Block& rec) {
        return {bc(rec.re[0]),           bc(rec.im[0]),           pair_lanes(rec.re + 1),
                pair_lanes(rec.im + 1),  _mm256_loadu_pd(rec.re + 3), _mm256_loadu_pd(rec.im + 3)};
    }
    // Same lanes from a record held in registers (lo = slots 0-3, hi = slots 4-7). The factored
    // records are computed per block; spilling them to the stack and reading them back with
    // broadcasts and a load that straddles two stores defeats store forwarding, which cost more
    // than the in-block butterflies themselves. Two shuffles per vector instead.
    static inline void level_lanes(V lo, V hi, V& s4, V& s2, V& s1) {
        s4 = _mm256_permute4x64_pd(lo, 0x00);
        s2 = _mm256_permute4x64_pd(lo, 0xA5);
        s1 = _mm256_shuffle_pd(_mm256_permute2f128_pd(lo, hi, 0x21), hi, 0x5);
    }
    static inline LevelTwiddles twiddles_from_registers(V re_lo, V re_hi, V im_lo, V im_hi) {
        LevelTwiddles t;
        level_lanes(re_lo, re_hi, t.s4r, t.s2r, t.s1r);
        level_lanes(im_lo, im_hi, t.s4i, t.s2i, t.s1i);
        return t;
    }
    // sigma * rho for one block, in registers.
    static inline LevelTwiddles factored_twiddles(const Block& sigma, const Block& rho) {
        V r0 = ld(sigma.re), i0 = ld(sigma.im), r1 = ld(sigma.re + 4), i1 = ld(sigma.im + 4);
        V tr, ti;
        twiddle(tr, ti, r0, i0, ld(rho.re), ld(rho.im));
        r0 = tr;
        i0 = ti;
        twiddle(tr, ti, r1, i1, ld(rho.re + 4), ld(rho.im + 4));
        return twiddles_from_registers(r0, tr, i0, ti);
    }

    __attribute__((always_inline)) static inline void inblock_forward(Block& x, const LevelTwiddles& t) {
        V r0 = ld(x.re), r1 = ld(x.re + 4), i0 = ld(x.im), i1 = ld(x.im + 4);
        butterfly(r0, i0, r1, i1, t.s4r, t.s4i);
        V ar, br, ai, bi;
        regroup_in(r0, r1, ar, br);
        regroup_in(i0, i1, ai, bi);
        butterfly(ar, ai, br, bi, t.s2r, t.s2i);
        V cr = _mm256_unpacklo_pd(ar, br), dr = _mm256_unpackhi_pd(ar, br);
        V ci = _mm256_unpacklo_pd(ai, bi), di = _mm256_unpackhi_pd(ai, bi);
        butterfly(cr, ci, dr, di, t.s1r, t.s1i);
        const V er = _mm256_unpacklo_pd(cr, dr), fr = _mm256_unpackhi_pd(cr, dr);
        const V ei = _mm256_unpacklo_pd(ci, di), fi = _mm256_unpackhi_pd(ci, di);
        st(x.re, _mm256_permute2f128_pd(er, fr, 0x20));
        st(x.re + 4, _mm256_permute2f128_pd(er, fr, 0x31));
        st(x.im, _mm256_permute2f128_pd(ei, fi, 0x20));
        st(x.im + 4, _mm256_permute2f128_pd(ei, fi, 0x31));
    }

    __attribute__((always_inline)) static inline void inblock_inverse(Block& x, const LevelTwiddles& t) {
        const V r0 = ld(x.re), r1 = ld(x.re + 4), i0 = ld(x.im), i1 = ld(x.im + 4);
        V er, fr, ei, fi;
        regroup_in(r0, r1, er, fr);
        regroup_in(i0, i1, ei, fi);
        V cr = _mm256_unpacklo_pd(er, fr), dr = _mm256_unpackhi_pd(er, fr);
        V ci = _mm256_unpacklo_pd(ei, fi), di = _mm256_unpackhi_pd(ei, fi);
        ibutterfly(cr, ci, dr, di, t.s1r, t.s1i);
        V ar = _mm256_unpacklo_pd(cr, dr), br = _mm256_unpackhi_pd(cr, dr);
        V ai = _mm256_unpacklo_pd(ci, di), bi = _mm256_unpackhi_pd(ci, di);
        ibutterfly(ar, ai, br, bi, t.s2r, t.s2i);
        V x0r = _mm256_permute2f128_pd(ar, br, 0x20), x1r = _mm256_permute2f128_pd(ar, br, 0x31);
        V x0i = _mm256_permute2f128_pd(ai, bi, 0x20), x1i = _mm256_permute2f128_pd(ai, bi, 0x31);
        ibutterfly(x0r, x0i, x1r, x1i, t.s4r, t.s4i);
        st(x.re, x0r);
        st(x.re + 4, x1r);
        st(x.im, x0i);
        st(x.im + 4, x1i);
    }

    __attribute__((always_inline)) static inline void inblock_forward(Block& x, const Block& rec) {
        inblock_forward(x, twiddles_from_memory(rec));
    }
    __attribute__((always_inline)) static inline void inblock_inverse(Block& x, const Block& rec) {
        inblock_inverse(x, twiddles_from_memory(rec));
    }
    __attribute__((always_inline)) static inline void inblock_forward_factored(Block& x, const Block& sigma,
                                                                              const Block& rho) {
        inblock_forward(x, factored_twiddles(sigma, rho));
    }
    __attribute__((always_inline)) static inline void inblock_inverse_factored(Block& x, const Block& sigma,
                                                                              const Block& rho) {
        inblock_inverse(x, factored_twiddles(sigma, rho));
    }
};

#include "qmp/multiply/fft/kernel_templates.h"

}  // namespace

const KernelSet& avx2_kernels() {
    static const KernelSet set = Kernels<Avx2Traits>::make("avx2");
    return set;
}

}  // namespace qmp::fft
