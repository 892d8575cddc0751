// The AVX-512 kernels: a block is exactly one zmm of re and one of im, so all three in-block
// levels are lane permutations (vpermpd) of one register pair, and the radix-4 passes keep a
// whole 4-block butterfly plus twiddles in registers (32 zmm, no spills). Compiled for
// AVX-512 F/DQ/BW/VL by the target pragma below; selected only when CPUID allows.
#include "qmp/multiply/fft/kernel_set.h"

#include <immintrin.h>

#include <cstdint>

#pragma GCC push_options
#pragma GCC target("avx512f,avx512dq,avx512bw,avx512vl")

namespace qmp::fft {
namespace {

struct Avx512Traits {
    using V = __m512d;
    static constexpr int W = 8;
    static V ld(const double* p) { return _mm512_load_pd(p); }
    static void st(double* p, V v) { _mm512_store_pd(p, v); }
    static V bc(double x) { return _mm512_set1_pd(x); }
    static V add(V a, V b) { return _mm512_add_pd(a, b); }
    static V sub(V a, V b) { return _mm512_sub_pd(a, b); }
    static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
    static V fmadd(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
    static V fmsub(V a, V b, V c) { return _mm512_fmsub_pd(a, b, c); }

    // Lane tables of the in-block level of half h: lower partner l & ~h, upper partner l | h,
    // record slot of the group twiddle, and which lanes take the lower butterfly output.
    struct Level {
        alignas(64) int64_t lower[8];
        alignas(64) int64_t upper[8];
        alignas(64) int64_t slot[8];
        __mmask8 upper_lanes;
        alignas(64) uint64_t sign[8];
    };
    static constexpr uint64_t kNeg = 0x8000000000000000ull;
    static constexpr Level kHalf4{{0, 1, 2, 3, 0, 1, 2, 3}, {4, 5, 6, 7, 4, 5, 6, 7},
                                  {0, 0, 0, 0, 0, 0, 0, 0}, 0xF0,
                                  {0, 0, 0, 0, kNeg, kNeg, kNeg, kNeg}};
    static constexpr Level kHalf2{{0, 1, 0, 1, 4, 5, 4, 5}, {2, 3, 2, 3, 6, 7, 6, 7},
                                  {1, 1, 1, 1, 2, 2, 2, 2}, 0xCC,
                                  {0, 0, kNeg, kNeg, 0, 0, kNeg, kNeg}};
    static constexpr Level kHalf1{{0, 0, 2, 2, 4, 4, 6, 6}, {1, 1, 3, 3, 5, 5, 7, 7},
                                  {3, 3, 4, 4, 5, 5, 6, 6}, 0xAA,
                                  {0, kNeg, 0, kNeg, 0, kNeg, 0, kNeg}};

    static inline __m512i idx(const int64_t* p) { return _mm512_load_si512(p); }
    // vpermpd with a full zeroing mask: the unmasked intrinsic's undefined source trips
    // -Wmaybe-uninitialized in GCC 12; the instruction is the same.
    static inline V perm(__m512i index, V x) { return _mm512_maskz_permutexvar_pd(0xFF, index, x); }

    static inline void level_forward(V& r, V& i, V rec_r, V rec_i, const Level& L) {
        const __m512i lo = idx(L.lower), hi = idx(L.upper), sl = idx(L.slot);
        const V ur = perm(lo, r), ui = perm(lo, i);
        const V vr = perm(hi, r), vi = perm(hi, i);
        const V sr = perm(sl, rec_r), si = perm(sl, rec_i);
        const V tr = _mm512_fmsub_pd(vr, sr, _mm512_mul_pd(vi, si));
        const V ti = _mm512_fmadd_pd(vr, si, _mm512_mul_pd(vi, sr));
        const V sign = _mm512_castsi512_pd(_mm512_load_si512(L.sign));
        r = _mm512_add_pd(ur, _mm512_xor_pd(tr, sign));
        i = _mm512_add_pd(ui, _mm512_xor_pd(ti, sign));
    }
    static inline void level_inverse(V& r, V& i, V rec_r, V rec_i, const Level& L) {
        const __m512i lo = idx(L.lower), hi = idx(L.upper), sl = idx(L.slot);
        const V ur = perm(lo, r), ui = perm(lo, i);
        const V vr = perm(hi, r), vi = perm(hi, i);
        const V sr = perm(sl, rec_r), si = perm(sl, rec_i);
        const V dr = _mm512_sub_pd(ur, vr), di = _mm512_sub_pd(ui, vi);
        const V tr = _mm512_fmadd_pd(dr, sr, _mm512_mul_pd(di, si));
        const V ti = _mm512_fmsub_pd(di, sr, _mm512_mul_pd(dr, si));
        r = _mm512_mask_blend_pd(L.upper_lanes, _mm512_add_pd(ur, vr), tr);
        i = _mm512_mask_blend_pd(L.upper_lanes, _mm512_add_pd(ui, vi), ti);
    }

    __attribute__((always_inline)) static inline void inblock_forward(Block& x, const Block& rec) {
        V r = ld(x.re), i = ld(x.im);
        const V rr = ld(rec.re), ri = ld(rec.im);
        level_forward(r, i, rr, ri, kHalf4);
        level_forward(r, i, rr, ri, kHalf2);
        level_forward(r, i, rr, ri, kHalf1);
        st(x.re, r);
        st(x.im, i);
    }
    __attribute__((always_inline)) static inline void inblock_inverse(Block& x, const Block& rec) {
        V r = ld(x.re), i = ld(x.im);
        const V rr = ld(rec.re), ri = ld(rec.im);
        level_inverse(r, i, rr, ri, kHalf1);
        level_inverse(r, i, rr, ri, kHalf2);
        level_inverse(r, i, rr, ri, kHalf4);
        st(x.re, r);
        st(x.im, i);
    }
};

#include "qmp/multiply/fft/kernel_templates.h"

}  // namespace
}  // namespace qmp::fft

#pragma GCC pop_options

namespace qmp::fft {

// Built outside the target region: only active_kernels() calls this, and only when CPUID
// reports AVX-512, so no AVX-512 instruction runs on other machines.
const KernelSet& avx512_kernels() {
    using K = Kernels<Avx512Traits>;
    static const KernelSet set{"avx512",
                               &K::reduce_forward,
                               &K::reduce_inverse,
                               &K::dif_vertical,
                               &K::dit_vertical,
                               &K::dif_inblock,
                               &K::dit_inblock,
                               &K::dif_inblock_factored,
                               &K::dit_inblock_factored,
                               &K::multiply,
                               &K::square};
    return set;
}

}  // namespace qmp::fft
