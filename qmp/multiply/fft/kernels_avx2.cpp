// The AVX2 + FMA kernels (the x86-64-v3 baseline): 4-lane vectors, a block is two vectors of re
// and two of im. In-block levels: half 4 pairs the two vectors; halves 2 and 1 pair lanes inside
// a vector (vperm2f128 / vunpck) with the sign of the lower/upper butterfly output in a mask.
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

    __attribute__((always_inline)) static inline void inblock_forward(Block& x, const Block& rec) {
        V r0 = ld(x.re), r1 = ld(x.re + 4), i0 = ld(x.im), i1 = ld(x.im + 4);
        V tr, ti;
        twiddle(tr, ti, r1, i1, bc(rec.re[0]), bc(rec.im[0]));
        r1 = sub(r0, tr);
        i1 = sub(i0, ti);
        r0 = add(r0, tr);
        i0 = add(i0, ti);

        const V sign2 = _mm256_set_pd(-0.0, -0.0, 0.0, 0.0);
        const V sign1 = _mm256_set_pd(-0.0, 0.0, -0.0, 0.0);
        auto half2 = [&](V& r, V& i, int slot) {
            const V ur = _mm256_permute2f128_pd(r, r, 0x00), ui = _mm256_permute2f128_pd(i, i, 0x00);
            const V vr = _mm256_permute2f128_pd(r, r, 0x11), vi = _mm256_permute2f128_pd(i, i, 0x11);
            V a, b;
            twiddle(a, b, vr, vi, bc(rec.re[slot]), bc(rec.im[slot]));
            r = add(ur, _mm256_xor_pd(a, sign2));
            i = add(ui, _mm256_xor_pd(b, sign2));
        };
        half2(r0, i0, 1);
        half2(r1, i1, 2);
        auto half1 = [&](V& r, V& i, int slot) {
            const V ur = _mm256_unpacklo_pd(r, r), ui = _mm256_unpacklo_pd(i, i);
            const V vr = _mm256_unpackhi_pd(r, r), vi = _mm256_unpackhi_pd(i, i);
            V a, b;
            twiddle(a, b, vr, vi, pair_lanes(rec.re + slot), pair_lanes(rec.im + slot));
            r = add(ur, _mm256_xor_pd(a, sign1));
            i = add(ui, _mm256_xor_pd(b, sign1));
        };
        half1(r0, i0, 3);
        half1(r1, i1, 5);
        st(x.re, r0);
        st(x.re + 4, r1);
        st(x.im, i0);
        st(x.im + 4, i1);
    }

    __attribute__((always_inline)) static inline void inblock_inverse(Block& x, const Block& rec) {
        V r0 = ld(x.re), r1 = ld(x.re + 4), i0 = ld(x.im), i1 = ld(x.im + 4);
        auto half1 = [&](V& r, V& i, int slot) {
            const V ur = _mm256_unpacklo_pd(r, r), ui = _mm256_unpacklo_pd(i, i);
            const V vr = _mm256_unpackhi_pd(r, r), vi = _mm256_unpackhi_pd(i, i);
            V dr, di;
            twiddle_conj(dr, di, sub(ur, vr), sub(ui, vi), pair_lanes(rec.re + slot),
                         pair_lanes(rec.im + slot));
            r = _mm256_blend_pd(add(ur, vr), dr, 0b1010);
            i = _mm256_blend_pd(add(ui, vi), di, 0b1010);
        };
        half1(r0, i0, 3);
        half1(r1, i1, 5);
        auto half2 = [&](V& r, V& i, int slot) {
            const V ur = _mm256_permute2f128_pd(r, r, 0x00), ui = _mm256_permute2f128_pd(i, i, 0x00);
            const V vr = _mm256_permute2f128_pd(r, r, 0x11), vi = _mm256_permute2f128_pd(i, i, 0x11);
            V dr, di;
            twiddle_conj(dr, di, sub(ur, vr), sub(ui, vi), bc(rec.re[slot]), bc(rec.im[slot]));
            r = _mm256_blend_pd(add(ur, vr), dr, 0b1100);
            i = _mm256_blend_pd(add(ui, vi), di, 0b1100);
        };
        half2(r0, i0, 1);
        half2(r1, i1, 2);
        V dr, di;
        twiddle_conj(dr, di, sub(r0, r1), sub(i0, i1), bc(rec.re[0]), bc(rec.im[0]));
        st(x.re, add(r0, r1));
        st(x.im, add(i0, i1));
        st(x.re + 4, dr);
        st(x.im + 4, di);
    }
};

#include "qmp/multiply/fft/kernel_templates.h"

}  // namespace

const KernelSet& avx2_kernels() {
    static const KernelSet set = Kernels<Avx2Traits>::make("avx2");
    return set;
}

}  // namespace qmp::fft
