// The AVX-512 IFMA term kernel: 2^e mod m in 52-bit Montgomery arithmetic (R = 2^52), 8 lanes
// per zmm and several zmm in flight, for odd m < 2^50. Compiled for AVX-512 F/DQ/VL/IFMA by
// the target pragma below; used only where CPUID reports IFMA.
//
// x stands for 2^q: x = 2^(q+52) mod m, kept lazily in (0, 2m) after a square. The square is
// (x*x - s*m) / 2^52 + m with s = x*x*m^-1 mod 2^52: the low halves of x*x and s*m are equal,
// so the high halves' difference is exact (no carry to track), and it lies in (-m, m) while
// x*x < 2^52 m, i.e. x < 2m for m < 2^50, or x < 4m for m < 2^48. So below 2^48 a doubling
// needs no reduction (x < 4m is fine for the next square); above, 2x is brought under 2m.
// Squaring maps q to 2q, doubling to q + 1; walking the bits of e + 104 ends at
// x = 2^(e+156) mod m. Three Montgomery reduction steps then give the fraction bits 105..156,
// 53..104 and 1..52 of frac(2^e / m) as their quotients (derivation in
// term_kernel_portable.cpp). The start value 2^(v+52) mod m for the top bits v of the
// exponent is made in doubles.
#include "formulas/bbp/term_kernels.h"

#include "qmp/cpu_features.h"

#include <immintrin.h>

#include <algorithm>

#pragma GCC push_options
#pragma GCC target("avx512f,avx512dq,avx512vl,avx512ifma")
// GCC 12's AVX-512 headers pass an undefined pass-through operand to the masked builtins
// behind the unmasked intrinsics, which -W(maybe-)uninitialized reports at every use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"

namespace qv::bbp {
namespace {

constexpr int kVectors = 8;
constexpr int kBlockTerms = 8 * kVectors;
constexpr int kWindowBits = 5;
constexpr uint64_t kNarrowModulusLimit = uint64_t(1) << 48;
// Lanes accumulate 52-bit limbs in 64 bits: at most 2^11 terms per lane between flushes, and
// every block adds kVectors terms to each lane.
constexpr uint64_t kBlocksPerFlush = 2048 / kVectors;
constexpr uint64_t kExtraBits = 104;  // the powering target is e + 104
constexpr uint64_t kMask52 = (uint64_t(1) << 52) - 1;

struct Lanes {
    __m512i m, minv, e;  // modulus, m^-1 mod 2^52, e + 104
    __mmask8 negative;
};

// (x*x - s*m) / 2^52 + m, in (0, 2m).
inline __m512i mont_square(__m512i x, __m512i m, __m512i minv) {
    const __m512i zero = _mm512_setzero_si512();
    const __m512i lo = _mm512_madd52lo_epu64(zero, x, x);
    const __m512i hi_plus_m = _mm512_madd52hi_epu64(m, x, x);
    const __m512i s = _mm512_madd52lo_epu64(zero, lo, minv);
    return _mm512_sub_epi64(hi_plus_m, _mm512_madd52hi_epu64(zero, s, m));
}

// One reduction step of 0 <= c < m: returns the quotient t = -c m^-1 mod 2^52, and c becomes
// (c + t m) / 2^52 = c / 2^52 mod m. c + t*m's low half is 0 or 2^52: the carry is 1 exactly
// when c is not zero.
inline __m512i fraction_step(__m512i& c, __m512i m, __m512i ninv) {
    const __m512i zero = _mm512_setzero_si512();
    const __m512i t = _mm512_madd52lo_epu64(zero, c, ninv);
    const __m512i next = _mm512_madd52hi_epu64(zero, t, m);
    c = _mm512_mask_add_epi64(next, _mm512_test_epi64_mask(c, c), next, _mm512_set1_epi64(1));
    return t;
}

// (y * 2^k) mod m in doubles for 0 <= y < m < 2^50, y * 2^k / m < 2^51: exact after one
// correction either way.
inline __m512d scale_mod(__m512d y, __m512d scale, __m512d m, __m512d inv) {
    const __m512d h = _mm512_mul_pd(y, scale);
    const __m512d q = _mm512_roundscale_pd(_mm512_mul_pd(h, inv), _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
    __m512d r = _mm512_fnmadd_pd(q, m, h);
    r = _mm512_mask_add_pd(r, _mm512_cmp_pd_mask(r, _mm512_setzero_pd(), _CMP_LT_OQ), r, m);
    return _mm512_mask_sub_pd(r, _mm512_cmp_pd_mask(r, m, _CMP_GE_OQ), r, m);
}

// 2^(v + 52) mod m for v < 2^kWindowBits, as 2^50 mod m, then times 2^(v + 2).
inline __m512i start_value(__m512i v, __m512i m_int) {
    const __m512d m = _mm512_cvtepu64_pd(m_int);
    const __m512d inv = _mm512_div_pd(_mm512_set1_pd(1.0), m);
    const __m512d y = scale_mod(_mm512_set1_pd(1.0), _mm512_set1_pd(0x1p50), m, inv);
    const __m512i exponent_field = _mm512_slli_epi64(_mm512_add_epi64(v, _mm512_set1_epi64(1023 + 2)), 52);
    return _mm512_cvtpd_epu64(scale_mod(y, _mm512_castsi512_pd(exponent_field), m, inv));
}

// m^-1 mod 2^52 (Newton from 3 correct bits: 6, 12, 24, 48, 96).
inline __m512i inverse52(__m512i m) {
    const __m512i two = _mm512_set1_epi64(2);
    __m512i x = m;
    for (int i = 0; i < 5; ++i) x = _mm512_mullo_epi64(x, _mm512_sub_epi64(two, _mm512_mullo_epi64(m, x)));
    return _mm512_and_si512(x, _mm512_set1_epi64(int64_t(kMask52)));
}

// Lane offsets of a block, made once per run: block terms are first + 8v + l.
struct RunLayout {
    __m512i modulus_offset[kVectors];   // (8v + l) * dm
    __m512i exponent_offset[kVectors];  // (8v + l) * de
    __mmask8 negative[kVectors];        // the sign pattern (blocks start at even terms)

    explicit RunLayout(const TermProgression& run) {
        for (int v = 0; v < kVectors; ++v) {
            alignas(64) uint64_t m[8], e[8];
            negative[v] = 0;
            for (int l = 0; l < 8; ++l) {
                const uint64_t i = uint64_t(8 * v + l);
                m[l] = i * run.modulus_step;
                e[l] = i * run.exponent_step;
                if (run.negative(i)) negative[v] = __mmask8(negative[v] | (1u << l));
            }
            modulus_offset[v] = _mm512_load_si512(m);
            exponent_offset[v] = _mm512_load_si512(e);
        }
    }
};

struct Block {
    Lanes lanes[kVectors];
    __m512i x[kVectors];
    int shift;
    bool wide;
};

// Prepared one block ahead so that the division and start-up latency overlap the powering
// of the block before.
void prepare_block(const TermProgression& run, const RunLayout& layout, uint64_t first, Block& block) {
    const uint64_t valid_count = std::min<uint64_t>(run.count - first, kBlockTerms);
    const uint64_t top = run.exponent_first - first * run.exponent_step + kExtraBits;
    const uint64_t last_modulus = run.modulus_first + (first + valid_count - 1) * run.modulus_step;
    const int bits = 64 - __builtin_clzll(top);
    block.shift = bits > kWindowBits ? bits - kWindowBits : 0;
    block.wide = last_modulus >= kNarrowModulusLimit;
    const __m512i m_first = _mm512_set1_epi64(int64_t(run.modulus_first + first * run.modulus_step));
    const __m512i e_first = _mm512_set1_epi64(int64_t(top));
    const __m512i lane = _mm512_set_epi64(7, 6, 5, 4, 3, 2, 1, 0);
    for (int v = 0; v < kVectors; ++v) {
        Lanes& lanes = block.lanes[v];
        // Padding lanes: m = 1 and e = 0 contribute nothing.
        const __mmask8 valid =
            _mm512_cmplt_epu64_mask(_mm512_add_epi64(lane, _mm512_set1_epi64(8 * v)), _mm512_set1_epi64(int64_t(valid_count)));
        lanes.m = _mm512_mask_blend_epi64(valid, _mm512_set1_epi64(1), _mm512_add_epi64(m_first, layout.modulus_offset[v]));
        lanes.e = _mm512_mask_blend_epi64(valid, _mm512_set1_epi64(int64_t(kExtraBits)),
                                          _mm512_sub_epi64(e_first, layout.exponent_offset[v]));
        lanes.minv = inverse52(lanes.m);
        lanes.negative = layout.negative[v] & valid;
        block.x[v] = start_value(_mm512_srli_epi64(lanes.e, unsigned(block.shift)), lanes.m);
    }
}

template <bool kWide>
void power_loop(Block& block) {
    for (int b = block.shift - 1; b >= 0; --b) {
        const __m512i bit = _mm512_set1_epi64(int64_t(1) << b);
#pragma GCC unroll 8
        for (int v = 0; v < kVectors; ++v) {
            const Lanes& lanes = block.lanes[v];
            __m512i y = mont_square(block.x[v], lanes.m, lanes.minv);
            y = _mm512_mask_add_epi64(y, _mm512_test_epi64_mask(lanes.e, bit), y, y);
            if (kWide) y = _mm512_min_epu64(y, _mm512_sub_epi64(y, _mm512_add_epi64(lanes.m, lanes.m)));
            block.x[v] = y;
        }
    }
}

struct Accumulators {
    __m512i limb[2][3];  // [positive, negative][bits 1..52, 53..104, 105..128]
    void clear() {
        for (auto& side : limb)
            for (auto& v : side) v = _mm512_setzero_si512();
    }
};

uint128 combine(const __m512i limb[3]) {
    uint128 total[3] = {0, 0, 0};
    for (int j = 0; j < 3; ++j) {
        alignas(64) uint64_t lane[8];
        _mm512_store_si512(lane, limb[j]);
        for (uint64_t v : lane) total[j] += v;
    }
    // t1 2^76 + t2 2^24 + floor(t3 / 2^28): units of 2^-128.
    return (total[0] << 76) + (total[1] << 24) + total[2];
}

void finish_block(Block& block, Accumulators& acc) {
    if (block.wide) power_loop<true>(block);
    else power_loop<false>(block);
    // The block's limbs are summed in registers first: the vectors' fraction steps are then
    // independent of each other.
    __m512i block_sum[2][3];
    for (auto& side : block_sum)
        for (auto& v : side) v = _mm512_setzero_si512();
#pragma GCC unroll 8
    for (int v = 0; v < kVectors; ++v) {
        const Lanes& lanes = block.lanes[v];
        const __m512i m = lanes.m;
        // x < 4m: two conditional subtractions give 2^(e+156) mod m.
        __m512i c = _mm512_min_epu64(block.x[v], _mm512_sub_epi64(block.x[v], _mm512_add_epi64(m, m)));
        c = _mm512_min_epu64(c, _mm512_sub_epi64(c, m));
        const __m512i ninv = _mm512_and_si512(_mm512_sub_epi64(_mm512_setzero_si512(), lanes.minv),
                                              _mm512_set1_epi64(int64_t(kMask52)));
        // Each term is truncated at 2^-128 on its own (bits 105..128 of the last limb), as the
        // portable kernel does.
        const __m512i t2 = _mm512_srli_epi64(fraction_step(c, m, ninv), 28);
        const __m512i t1 = fraction_step(c, m, ninv);
        const __m512i t0 = fraction_step(c, m, ninv);
        const __m512i t[3] = {t0, t1, t2};
        const __mmask8 positive = __mmask8(~lanes.negative);
#pragma GCC unroll 3
        for (int j = 0; j < 3; ++j) {
            block_sum[0][j] = _mm512_mask_add_epi64(block_sum[0][j], positive, block_sum[0][j], t[j]);
            block_sum[1][j] = _mm512_mask_add_epi64(block_sum[1][j], lanes.negative, block_sum[1][j], t[j]);
        }
    }
    for (int side = 0; side < 2; ++side)
        for (int j = 0; j < 3; ++j) acc.limb[side][j] = _mm512_add_epi64(acc.limb[side][j], block_sum[side][j]);
}

uint128 ifma_sum(const TermProgression& run) {
    if (run.count == 0) return 0;
    const RunLayout layout(run);
    uint128 sum = 0;
    Accumulators acc;
    acc.clear();
    uint64_t blocks_since_flush = 0;
    Block blocks[2];
    int current = 0;
    prepare_block(run, layout, 0, blocks[0]);
    for (uint64_t first = 0; first < run.count; first += kBlockTerms) {
        if (first + kBlockTerms < run.count) prepare_block(run, layout, first + kBlockTerms, blocks[current ^ 1]);
        finish_block(blocks[current], acc);
        current ^= 1;
        if (++blocks_since_flush == kBlocksPerFlush) {
            sum += combine(acc.limb[0]) - combine(acc.limb[1]);
            acc.clear();
            blocks_since_flush = 0;
        }
    }
    return sum + combine(acc.limb[0]) - combine(acc.limb[1]);
}

}  // namespace

const TermKernel* avx512_ifma_term_kernel() {
    static const TermKernel kernel{"avx512-ifma", uint64_t(1) << 50, ifma_sum};
    return qmp::has_avx512_ifma() ? &kernel : nullptr;
}

}  // namespace qv::bbp

#pragma GCC diagnostic pop
#pragma GCC pop_options
