// Points -> words (see release.h).
//
// The coefficients are cut into ranges of whole multiples of 64 coefficients, so each range
// starts on a word boundary (64 q coefficients of b bits = q b words). A task rounds its range
// and accumulates sum c_j 2^(j b) in a signed 128-bit window, emitting a word whenever the next
// coefficient's shift reaches 64; what is left when its words end is a signed carry (below
// 2^(b + 60)), which is then added into the next range's words in order. |c_j| < 2^62 and
// shifts < 64 keep the window below 2^126 + 2^125. Everything above CL words must cancel to
// zero: the top range keeps it in the window and reports an overrun if it does not.
#include "qmp/multiply/fft/release.h"

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace qmp::fft {
namespace {

constexpr uint64_t kMaxChunks = 64;
constexpr uint64_t kMinChunkCoefficients = 8192;
constexpr double kCastLimit = 4611686018427387904.0;  // 2^62
constexpr uint64_t kPrefetchGroups = 6;  // groups of 64 coefficients (8 blocks, 1 KiB) ahead

struct ChunkResult {
    double max_distance;
    __int128 carry;  // value left above the chunk's last word, in units of that word
    bool overrun;
    uint64_t overrun_index;
};

// Rounds 8 coefficients (one side of one block): c = round(x), the largest |x - c| into
// `max_distance`, and `bad` when any |x| is NaN, infinite or >= 2^62 (those lanes give c = 0).
// An integral double r with |r| < 2^51 converts to int64 without a scalar conversion: r + 1.5 2^52
// is exact and holds 2^51 + r in its low mantissa bits, so subtracting the bit pattern of
// 1.5 2^52 leaves r. Typical products stay far below 2^51 (random 1M-word operands: ~2^45);
// a vector with a larger lane takes the scalar conversion.
inline void round_group(const double* src, int64_t* c, __m256d& max_distance, __m256d& bad) {
    const __m256d sign = _mm256_set1_pd(-0.0), limit = _mm256_set1_pd(kCastLimit);
    const __m256d magic = _mm256_set1_pd(6755399441055744.0), magic_limit = _mm256_set1_pd(2251799813685248.0);
    for (int h = 0; h < 2; ++h) {
        const __m256d x = _mm256_loadu_pd(src + 4 * h);
        const __m256d r = _mm256_round_pd(x, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        const __m256d distance = _mm256_andnot_pd(sign, _mm256_sub_pd(x, r));
        // Not (|x| < 2^62), true for NaN as well.
        const __m256d out_of_range = _mm256_cmp_pd(_mm256_andnot_pd(sign, x), limit, _CMP_NLT_UQ);
        max_distance = _mm256_max_pd(max_distance, distance);
        bad = _mm256_or_pd(bad, out_of_range);
        const __m256d kept = _mm256_andnot_pd(out_of_range, r);
        if (_mm256_movemask_pd(_mm256_cmp_pd(_mm256_andnot_pd(sign, kept), magic_limit, _CMP_GE_OQ)) == 0) {
            const __m256i bits = _mm256_sub_epi64(_mm256_castpd_si256(_mm256_add_pd(kept, magic)),
                                                  _mm256_castpd_si256(magic));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(c + 4 * h), bits);
        } else {
            double rounded[4];
            _mm256_storeu_pd(rounded, kept);
            for (int k = 0; k < 4; ++k) c[4 * h + k] = static_cast<int64_t>(rounded[k]);
        }
    }
}

// 64 rounded coefficients of B bits starting on a word boundary are exactly B words. With B a
// constant every shift and every word emission is known at compile time: the loop unrolls into
// a chain of 128-bit shift-adds with a store after every 64/B coefficients. `acc` carries the
// value above the last word written, in units of the next word.
template <int B, int... K>
inline void release_group(const int64_t* c, __int128& acc, uint64_t* out, std::integer_sequence<int, K...>) {
    (((K > 0 && (K * B) / 64 != ((K > 0 ? K - 1 : 0) * B) / 64)
          ? (void)(out[(K * B) / 64 - 1] = static_cast<uint64_t>(acc), acc >>= 64)
          : (void)0,
      acc += static_cast<__int128>(c[K]) << ((K * B) % 64)),
     ...);
    for (int w = (63 * B) / 64; w < B; ++w) {
        out[w] = static_cast<uint64_t>(acc);
        acc >>= 64;
    }
}

// Rounds coefficients [j0, j1) (j0 a multiple of 64) and writes words [j0 b / 64, word_end).
// The top chunk has word_end = CL and may hold coefficients whose bits lie above it; whole
// groups of 64 whose words lie below word_end take the unrolled path, the rest the general one.
template <int B>
ChunkResult release_chunk(const double* p, const PointLayout& layout, uint64_t n, uint64_t j0, uint64_t j1,
                          uint64_t* C, uint64_t word_end) {
    constexpr int bits = B;
    ChunkResult r{0.0, 0, false, 0};
    __m256d max_distance = _mm256_setzero_pd(), bad = _mm256_setzero_pd();
    uint64_t word = j0 * bits / 64;
    __int128 acc = 0;
    uint64_t j = j0;
    // Whole groups: 64 coefficients on one side (always so for transform sizes, where n is a
    // multiple of 64), B words.
    for (; j + 64 <= j1 && word + B <= word_end && (j < n) == (j + 63 < n); j += 64, word += B) {
        const uint64_t i = j < n ? j : j - n;
        // 8 blocks from a multiple of 8 never cross a padding block of the work layout.
        const double* src = p + layout.block(i >> 3) * 16 + (j < n ? 0 : 8);
        // One side of 8 blocks per group is one cache line in every other line: a stride the
        // hardware prefetchers follow late, and the carry chain leaves the core too little
        // out-of-order room to hide DRAM latency on large products. Fetch a few groups ahead.
        for (int g = 0; g < 8; ++g) __builtin_prefetch(src + kPrefetchGroups * 128 + 16 * g, 0);
        alignas(32) int64_t c[64];
        for (int g = 0; g < 8; ++g) round_group(src + 16 * g, c + 8 * g, max_distance, bad);
        release_group<B>(c, acc, C + word, std::make_integer_sequence<int, 64>{});
    }
    uint64_t shift = 0;  // bit position of coefficient j relative to `word`
    for (; j < j1; j += 8) {
        // n is a multiple of 8, so a group of 8 lies on one side.
        const uint64_t i = j < n ? j : j - n;
        const double* src = p + layout.block(i >> 3) * 16 + (j < n ? 0 : 8);
        int64_t c[8];
        round_group(src, c, max_distance, bad);
        // Past j1 the lanes belong to the caller's zero check, not to this sum.
        const uint64_t g = std::min<uint64_t>(8, j1 - j);
        for (uint64_t k = 0; k < g; ++k, shift += bits) {
            while (shift >= 64 && word < word_end) {
                C[word++] = static_cast<uint64_t>(acc);
                acc >>= 64;
                shift -= 64;
            }
            if (shift >= 64) {
                // Beyond the output and too far up for the window: must be zero.
                if (c[k] != 0 && !r.overrun) {
                    r.overrun = true;
                    r.overrun_index = word + shift / 64;
                }
                continue;
            }
            acc += static_cast<__int128>(c[k]) << shift;
        }
    }
    while (word < word_end) {
        C[word++] = static_cast<uint64_t>(acc);
        acc >>= 64;
    }
    r.carry = acc;
    double lanes[4];
    _mm256_storeu_pd(lanes, max_distance);
    r.max_distance = std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
    if (_mm256_movemask_pd(bad) != 0) r.max_distance = std::numeric_limits<double>::infinity();
    return r;
}

// Coefficients [t0, t1) above the product must round to zero; reports their distances.
ChunkResult tail_check(const double* p, const PointLayout& layout, uint64_t n, int bits, uint64_t t0, uint64_t t1) {
    ChunkResult r{0.0, 0, false, 0};
    __m256d max_distance = _mm256_setzero_pd(), bad = _mm256_setzero_pd();
    for (uint64_t j = t0 & ~uint64_t(7); j < t1; j += 8) {
        const uint64_t i = j < n ? j : j - n;
        int64_t c[8];
        round_group(p + layout.block(i >> 3) * 16 + (j < n ? 0 : 8), c, max_distance, bad);
        for (uint64_t k = 0; k < 8; ++k) {
            if (j + k >= t0 && j + k < t1 && c[k] != 0 && !r.overrun) {
                r.overrun = true;
                r.overrun_index = (j + k) * bits / 64;
            }
        }
    }
    double lanes[4];
    _mm256_storeu_pd(lanes, max_distance);
    r.max_distance = std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
    if (_mm256_movemask_pd(bad) != 0) r.max_distance = std::numeric_limits<double>::infinity();
    return r;
}

using ChunkFunction = ChunkResult (*)(const double*, const PointLayout&, uint64_t, uint64_t, uint64_t, uint64_t*,
                                      uint64_t);

template <int... B>
constexpr std::array<ChunkFunction, sizeof...(B)> chunk_functions(std::integer_sequence<int, B...>) {
    return {&release_chunk<B + 1>...};
}
// Indexed by bits - 1, bits = 1 .. kMaxBits.
constexpr int kMaxBits = 24;
constexpr auto kChunkFunctions = chunk_functions(std::make_integer_sequence<int, kMaxBits>{});

}  // namespace

__int128 add_signed_carry(uint64_t* C, uint64_t begin, uint64_t end, __int128 carry) {
    for (uint64_t i = begin; i < end && carry != 0; ++i) {
        carry += C[i];
        C[i] = static_cast<uint64_t>(carry);
        carry >>= 64;
    }
    return carry;
}

ReleaseStatus release_points(const Block* points, uint64_t n_complex, int bits,
                             uint64_t coefficient_count, uint64_t* C, uint64_t CL,
                             Parallelizer* parallelizer, uint64_t tds, const PointLayout& layout) {
    const uint64_t n = n_complex;
    const double* p = &points[0].re[0];
    const uint64_t J = std::min(coefficient_count, 2 * n);

    // Ranges below `lower` (a multiple of 64 whose words all lie inside C) are cut evenly;
    // the top range takes the rest up to J, and every word up to CL.
    uint64_t lower = std::min(J, CL * 64 / bits) & ~uint64_t(63);
    uint64_t chunk = std::max<uint64_t>(kMinChunkCoefficients, (lower + 2 * tds - 1) / std::max<uint64_t>(1, 2 * tds));
    chunk = std::max<uint64_t>(chunk, (lower + kMaxChunks - 2) / (kMaxChunks - 1));
    chunk = (chunk + 63) & ~uint64_t(63);
    uint64_t begin[kMaxChunks + 1];
    uint64_t chunks = 0;
    for (uint64_t j = 0; j < lower; j += chunk) begin[chunks++] = j;
    if (chunks == 0) begin[chunks++] = 0;
    begin[chunks] = J;  // the last range ends at J

    if (bits < 1 || bits > kMaxBits)
        throw InvalidParametersException("FFTv4::store()", "Bits per point is out of range.");
    const ChunkFunction release_one = kChunkFunctions[bits - 1];
    // Tail ranges (above J, must be zero): a few tasks of whole 8-point groups.
    const uint64_t tail_tasks = J < 2 * n ? std::min<uint64_t>(std::max<uint64_t>(1, tds), kMaxChunks) : 0;
    const uint64_t tail_step = ((2 * n - J) / std::max<uint64_t>(1, tail_tasks) + 8) & ~uint64_t(7);
    ChunkResult results[2 * kMaxChunks];
    auto word_begin = [&](uint64_t i) { return begin[i] * bits / 64; };
    auto task = [&](uint64_t i) {
        if (i >= chunks) {
            const uint64_t t0 = J + (i - chunks) * tail_step;
            results[i] = tail_check(p, layout, n, bits, std::min(t0, 2 * n), std::min(t0 + tail_step, 2 * n));
            return;
        }
        const bool top = i + 1 == chunks;
        const uint64_t word_end = top ? CL : word_begin(i + 1);
        results[i] = release_one(p, layout, n, begin[i], top ? J : begin[i + 1], C, word_end);
    };
    const uint64_t task_count = chunks + tail_tasks;
    if (parallelizer != nullptr && tds > 1 && task_count > 1) {
        parallelizer->run(task_count, task);
    } else {
        for (uint64_t i = 0; i < task_count; ++i) task(i);
    }

    ReleaseStatus status;
    for (uint64_t i = chunks; i < task_count; ++i) {
        const ChunkResult& r = results[i];
        if (!(r.max_distance <= status.max_distance)) status.max_distance = r.max_distance;
        if (r.overrun && !status.overrun) {
            status.overrun = true;
            status.overrun_index = r.overrun_index;
        }
    }

    __int128 carry = 0;
    for (uint64_t i = 0; i < chunks; ++i) {
        const ChunkResult& r = results[i];
        if (!(r.max_distance <= status.max_distance)) status.max_distance = r.max_distance;
        if (r.overrun && !status.overrun) {
            status.overrun = true;
            status.overrun_index = r.overrun_index;
        }
        const bool top = i + 1 == chunks;
        const uint64_t end = top ? CL : word_begin(i + 1);
        // The carry coming from below enters at this range's first word.
        carry = add_signed_carry(C, word_begin(i), end, carry) + r.carry;
    }
    if (carry != 0 && !status.overrun) {
        status.overrun = true;
        status.overrun_index = CL;
    }
    return status;
}

}  // namespace qmp::fft
