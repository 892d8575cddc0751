// The AVX2 term kernel: 2^e mod m in double precision with FMA, 4 lanes per ymm and eight
// ymm in flight (32 terms per block), for odd m < 2^50.
//
// Residues are kept signed. A square x*x = h + l exactly (h = fl(x*x), l by FMA);
// q = round(h * fl(1/m)) is within 0.5 + (x*x/m) * 3 * 2^-53 of x*x/m, at most 0.875 while
// x*x/m < 2^50, so r = (h - q*m) + l has |r| <= 0.875 m, and h - q*m is an integer below 2^53
// that the FMA gets exactly. Doubling gives |2x| <= 1.75 m. For m >= 2^48 ("wide") that is
// brought back to |x| <= m by subtracting m with the sign of 2x; below 2^48 ("narrow") it is
// left as it is, since |x| <= 2m keeps x*x/m <= 4m < 2^50. The residue is normalised to
// [0, m) once at the end. The fraction bits come 50 at a time: t = floor(c * 2^50 / m) with
// its remainder, exact after one correction either way; three steps give 150 bits, of which
// each term keeps 128. Every kernel truncates alike, so their sums are equal bit for bit.
#include "formulas/bbp/term_kernels.h"

#include <immintrin.h>

#include <algorithm>

namespace qv::bbp {
namespace {

constexpr int kVectors = 8;                // ymm per block
constexpr int kBlockTerms = 4 * kVectors;  // terms per block
constexpr int kWindowBits = 5;             // top exponent bits taken as a direct power of two
constexpr uint64_t kNarrowModulusLimit = uint64_t(1) << 48;

struct Lanes {
    __m256d m, inv;  // modulus and fl(1/m) as doubles
    __m256i e;       // exponent
    __m256d sign;    // -0.0 where the term is subtracted, else +0.0
};

inline __m256d reduce_signed(__m256d h, __m256d l, __m256d m, __m256d inv) {
    const __m256d q = _mm256_round_pd(_mm256_mul_pd(h, inv), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    return _mm256_add_pd(_mm256_fnmadd_pd(q, m, h), l);
}

inline __m256d square_mod(__m256d x, __m256d m, __m256d inv) {
    const __m256d h = _mm256_mul_pd(x, x);
    const __m256d l = _mm256_fmsub_pd(x, x, h);
    return reduce_signed(h, l, m, inv);
}

// 2x brought back to |x| <= m by subtracting m with the sign of 2x.
inline __m256d reduce_double(__m256d x2, __m256d m) {
    return _mm256_sub_pd(x2, _mm256_or_pd(m, _mm256_and_pd(x2, _mm256_set1_pd(-0.0))));
}

// floor(c * scale / m) for 0 <= c < m and scale <= 2^48, as an integer in a double; c becomes
// the remainder. q = round(c * scale * fl(1/m)) is within 0.5 + 2^-50 of the exact quotient,
// so the remainder lies in (-m, m) and one correction gives the floor.
inline __m256d fraction_step(__m256d& c, __m256d scale, __m256d m, __m256d inv) {
    const __m256d h = _mm256_mul_pd(c, scale);
    __m256d q = _mm256_round_pd(_mm256_mul_pd(h, inv), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    __m256d r = _mm256_fnmadd_pd(q, m, h);
    const __m256d low = _mm256_cmp_pd(r, _mm256_setzero_pd(), _CMP_LT_OQ);
    c = _mm256_add_pd(r, _mm256_and_pd(low, m));
    return _mm256_sub_pd(q, _mm256_and_pd(low, _mm256_set1_pd(1.0)));
}

// A signed integer below 2^51 in magnitude held in a double, as an int64.
inline __m256i to_integer(__m256d x) {
    const __m256d magic = _mm256_set1_pd(0x1.8p52);
    return _mm256_sub_epi64(_mm256_castpd_si256(_mm256_add_pd(x, magic)), _mm256_castpd_si256(magic));
}

// The fraction of each term comes as limbs of 48, 48 and 32 bits (bits 1..48, 49..96,
// 97..128). A block's signed limbs are summed in doubles (8 terms below 2^48: exact, below
// 2^51), then added to 64-bit lanes: 2048 blocks stay below 2^62.
constexpr int kLimbBits[3] = {48, 48, 32};
constexpr uint64_t kBlocksPerFlush = 2048;

struct Accumulators {
    __m256i limb[3];
    void clear() {
        for (auto& v : limb) v = _mm256_setzero_si256();
    }
};

// Sum of the limbs over all lanes in units of 2^-128, mod 2^128.
uint128 combine(const __m256i limb[3]) {
    __int128 total[3] = {0, 0, 0};
    for (int j = 0; j < 3; ++j) {
        alignas(32) int64_t lane[4];
        _mm256_store_si256(reinterpret_cast<__m256i*>(lane), limb[j]);
        for (int64_t v : lane) total[j] += v;
    }
    return (uint128(total[0]) << 80) + (uint128(total[1]) << 32) + uint128(total[2]);
}

// Lane offsets of a block, made once per run: block terms are first + 4v + l.
struct RunLayout {
    __m256d modulus_offset[kVectors];  // (4v + l) * dm
    __m256i exponent_offset[kVectors];  // (4v + l) * de
    __m256i negative[kVectors];        // the sign pattern (blocks start at even terms)

    explicit RunLayout(const TermProgression& run) {
        for (int v = 0; v < kVectors; ++v) {
            alignas(32) double m[4];
            alignas(32) int64_t e[4], negative[4];
            for (int l = 0; l < 4; ++l) {
                const uint64_t i = uint64_t(4 * v + l);
                m[l] = double(i * run.modulus_step);
                e[l] = int64_t(i * run.exponent_step);
                negative[l] = run.negative(i) ? -1 : 0;
            }
            modulus_offset[v] = _mm256_load_pd(m);
            exponent_offset[v] = _mm256_load_si256(reinterpret_cast<const __m256i*>(e));
            this->negative[v] = _mm256_load_si256(reinterpret_cast<const __m256i*>(negative));
        }
    }
};

// Squares and doublings for the exponent bits below `shift`. The exponent bit in use sits in
// the sign bit of `pending`, which blendv reads directly. Narrow blocks (all m < 2^48) skip
// the reduction after a doubling: squaring |x| <= 2m still leaves |r| < 0.88 m there, since
// q is then within 0.5 + 4m * 3 * 2^-53 < 0.88 of x*x/m.
template <bool kWide>
void power_loop(const Lanes lanes[kVectors], int shift, __m256d x[kVectors]) {
    if (shift == 0) return;
    __m256i pending[kVectors];
    for (int v = 0; v < kVectors; ++v) pending[v] = _mm256_slli_epi64(lanes[v].e, 64 - shift);
    for (int b = shift - 1; b >= 0; --b) {
#pragma GCC unroll 8
        for (int v = 0; v < kVectors; ++v) {
            const __m256d y = square_mod(x[v], lanes[v].m, lanes[v].inv);
            __m256d y2 = _mm256_add_pd(y, y);
            if (kWide) y2 = reduce_double(y2, lanes[v].m);
            x[v] = _mm256_blendv_pd(y, y2, _mm256_castsi256_pd(pending[v]));
            pending[v] = _mm256_add_epi64(pending[v], pending[v]);
        }
    }
}

// A block ready for powering: its lanes, the start value for the top exponent bits, and how
// many bits are left. Preparing the next block before powering the current one lets the
// processor overlap the division and start-up latency with the powering.
struct Block {
    Lanes lanes[kVectors];
    __m256d x[kVectors];
    int shift;
    bool wide;
};

void prepare_block(const TermProgression& run, const RunLayout& layout, uint64_t first, Block& block) {
    const uint64_t valid_count = std::min<uint64_t>(run.count - first, kBlockTerms);
    const uint64_t top = run.exponent_first - first * run.exponent_step;
    const uint64_t last_modulus = run.modulus_first + (first + valid_count - 1) * run.modulus_step;
    const int bits = top == 0 ? 0 : 64 - __builtin_clzll(top);
    block.shift = bits > kWindowBits ? bits - kWindowBits : 0;
    block.wide = last_modulus >= kNarrowModulusLimit;
    const __m256d m_first = _mm256_set1_pd(double(run.modulus_first + first * run.modulus_step));
    const __m256i e_first = _mm256_set1_epi64x(int64_t(top));
    for (int v = 0; v < kVectors; ++v) {
        Lanes& lanes = block.lanes[v];
        lanes.m = _mm256_add_pd(m_first, layout.modulus_offset[v]);  // exact: below 2^53
        lanes.e = _mm256_sub_epi64(e_first, layout.exponent_offset[v]);
        __m256i negative = layout.negative[v];
        if (valid_count < kBlockTerms) {
            // Padding lanes: m = 1 and e = 0 contribute nothing.
            const __m256i lane = _mm256_setr_epi64x(4 * v, 4 * v + 1, 4 * v + 2, 4 * v + 3);
            const __m256i invalid = _mm256_cmpgt_epi64(lane, _mm256_set1_epi64x(int64_t(valid_count) - 1));
            lanes.m = _mm256_blendv_pd(lanes.m, _mm256_set1_pd(1.0), _mm256_castsi256_pd(invalid));
            lanes.e = _mm256_andnot_si256(invalid, lanes.e);
            negative = _mm256_andnot_si256(invalid, negative);
        }
        lanes.sign = _mm256_and_pd(_mm256_castsi256_pd(negative), _mm256_set1_pd(-0.0));
        lanes.inv = _mm256_div_pd(_mm256_set1_pd(1.0), lanes.m);
        // 2^(e >> shift) < 2^32 built from its exponent field, then reduced into |x| <= m.
        const __m256i top_bits = _mm256_srli_epi64(lanes.e, block.shift);
        const __m256d p =
            _mm256_castsi256_pd(_mm256_slli_epi64(_mm256_add_epi64(top_bits, _mm256_set1_epi64x(1023)), 52));
        block.x[v] = reduce_signed(p, _mm256_setzero_pd(), lanes.m, lanes.inv);
    }
}

void finish_block(Block& block, Accumulators& acc) {
    if (block.wide) power_loop<true>(block.lanes, block.shift, block.x);
    else power_loop<false>(block.lanes, block.shift, block.x);
    __m256d block_sum[3] = {_mm256_setzero_pd(), _mm256_setzero_pd(), _mm256_setzero_pd()};
    for (int v = 0; v < kVectors; ++v) {
        const __m256d m = block.lanes[v].m;
        const __m256d x = block.x[v];
        // |x| <= 2m (a final doubling is not reduced in narrow blocks): c = x - floor(x/m) m is
        // exact and within one m of [0, m).
        const __m256d q = _mm256_floor_pd(_mm256_mul_pd(x, block.lanes[v].inv));
        __m256d c = _mm256_fnmadd_pd(q, m, x);
        c = _mm256_add_pd(c, _mm256_and_pd(_mm256_cmp_pd(c, _mm256_setzero_pd(), _CMP_LT_OQ), m));
        c = _mm256_sub_pd(c, _mm256_and_pd(_mm256_cmp_pd(c, m, _CMP_GE_OQ), m));
        // Each term is truncated at 2^-128 on its own (the last limb stops at bit 128), as the
        // portable kernel does.
        for (int j = 0; j < 3; ++j) {
            const __m256d scale = _mm256_set1_pd(double(uint64_t(1) << kLimbBits[j]));
            const __m256d t = fraction_step(c, scale, m, block.lanes[v].inv);
            block_sum[j] = _mm256_add_pd(block_sum[j], _mm256_xor_pd(t, block.lanes[v].sign));
        }
    }
    for (int j = 0; j < 3; ++j) acc.limb[j] = _mm256_add_epi64(acc.limb[j], to_integer(block_sum[j]));
}

uint128 avx2_sum(const TermProgression& run) {
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
            sum += combine(acc.limb);
            acc.clear();
            blocks_since_flush = 0;
        }
    }
    return sum + combine(acc.limb);
}

}  // namespace

const TermKernel& avx2_term_kernel() {
    static const TermKernel kernel{"avx2-fma", uint64_t(1) << 50, avx2_sum};
    return kernel;
}

}  // namespace qv::bbp
