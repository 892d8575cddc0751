// Words -> signed digits -> right-angle packed points (see split.h).
//
// The carry chain of balanced digits is sequential, yet the result must not depend on how the
// work is cut into tasks. Each task runs its digit range with carry-in 0; afterwards, in order,
// a range whose true carry-in is 1 is re-run from its start in lockstep with the carry-0 chain
// until the two chains agree on a carry (from there on the written digits are already right).
// With the dither the chains meet after ~1 digit (they differ only when r_t == u_t); plain
// balanced digits can run longer (a run of 2^(b-1)-1 digits), which costs time, not exactness.
//
// Within a group of 64 digits the chain is not serial at all: the carries come from one 64-bit
// addition of generate/propagate masks (run_chunk()). The streamed split (SplitSource) plans
// the carry into every group first, so that any group can then be produced on its own.
//
//   digit t:  u = raw_t + carry_in
//     Unsigned:  d = u (no carries)
//     Balanced:  c = (u >= 2^(b-1)),  d = u - c 2^b       d in [-2^(b-1), 2^(b-1))
//     Dithered:  c = (r_t < u),       d = u - c 2^b       E[d] = 0 for every u in [0, 2^b]
#include "qmp/multiply/fft/split.h"

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <random>
#include <utility>

namespace qmp::fft {
namespace {

constexpr uint64_t kMaxChunks = 64;
constexpr uint64_t kMinChunkDigits = 8192;
constexpr uint64_t kPrefetchGroups = 6;  // groups of 64 digits (8 blocks, 1 KiB) ahead

inline uint64_t raw_digit(const uint64_t* A, uint64_t AL, uint64_t t, int bits, uint64_t mask) {
    const uint64_t bit = t * static_cast<uint64_t>(bits);
    const uint64_t w = bit >> 6;
    const unsigned s = static_cast<unsigned>(bit & 63);
    uint64_t v = w < AL ? A[w] >> s : 0;
    if (s + bits > 64 && w + 1 < AL) v |= A[w + 1] << (64 - s);
    return v & mask;
}

// Index (in doubles) of digit t inside the block array: re of point t, or im of point t - n.
inline uint64_t slot_of(uint64_t t, uint64_t n) {
    if (t < n) return (t >> 3) * 16 + (t & 7);
    t -= n;
    return (t >> 3) * 16 + 8 + (t & 7);
}

struct DigitContext {
    const uint64_t* A;
    uint64_t AL;
    int bits;
    DigitMode mode;
    uint64_t seed;
    double* out;  // the points as doubles
    uint64_t n;
};

template <DigitMode kMode>
inline uint64_t next_carry(uint64_t u, uint32_t threshold, int bits) {
    if constexpr (kMode == DigitMode::Unsigned) return 0;
    if constexpr (kMode == DigitMode::Balanced) return u >= (uint64_t(1) << (bits - 1));
    return threshold < u;
}

// One digit step: returns the carry out and writes the signed digit.
template <DigitMode kMode>
inline uint64_t step(const DigitContext& c, uint64_t t, uint64_t carry, int64_t& digit) {
    const uint64_t mask = (uint64_t(1) << c.bits) - 1;
    const uint64_t u = raw_digit(c.A, c.AL, t, c.bits, mask) + carry;
    const uint32_t r = kMode == DigitMode::Dithered ? dither_threshold(c.seed, t, c.bits) : 0;
    const uint64_t carry_out = next_carry<kMode>(u, r, c.bits);
    digit = static_cast<int64_t>(u) - static_cast<int64_t>(carry_out << c.bits);
    return carry_out;
}

// The 64 raw B-bit fields of words w[0, B]: with B a constant every word index and shift is
// known at compile time (64 fields of B bits are exactly B words).
template <int B, int... K>
inline void extract_group(const uint64_t* w, uint32_t* raw, std::integer_sequence<int, K...>) {
    constexpr uint64_t mask = (uint64_t(1) << B) - 1;
    ((raw[K] = static_cast<uint32_t>((((K * B) % 64 + B > 64) ? (w[(K * B) / 64] >> ((K * B) % 64)) |
                                                                 (w[(K * B) / 64 + 1] << ((64 - (K * B) % 64) % 64))
                                                           : (w[(K * B) / 64] >> ((K * B) % 64))) &
                                      mask)),
     ...);
}

// The carry of digit i is c_i = next_carry(raw_i + cin_i): with carry-in 0 it is g_i, with
// carry-in 1 it is g_i | p_i, and g_i implies the carry-in-1 value. That is exactly the carry
// of a binary addition whose generate bits are g and propagate bits p, so the carry-ins of 64
// digits come from one 64-bit add: x = g | p, y = g, carry into bit i = (x + y + cin)_i ^ x_i ^ y_i.
// The chain is then no longer serial and the whole group runs as 8-lane vectors.
//   Dithered: g = (r < raw), p = (r == raw).      Balanced: g = (raw >= 2^(b-1)), p = (raw == 2^(b-1) - 1).
template <DigitMode kMode, int B>
inline void carry_masks(const uint32_t* raw, const uint32_t* r, uint64_t& g_mask, uint64_t& p_mask) {
    uint64_t g = 0, p = 0;
    for (int v = 0; v < 8; ++v) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(raw + 8 * v));
        __m256i gv, pv;
        if constexpr (kMode == DigitMode::Dithered) {
            const __m256i t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r + 8 * v));
            gv = _mm256_cmpgt_epi32(x, t);  // fields < 2^24: signed compares are exact
            pv = _mm256_cmpeq_epi32(x, t);
        } else {
            gv = _mm256_cmpgt_epi32(x, _mm256_set1_epi32((1 << (B - 1)) - 1));
            pv = _mm256_cmpeq_epi32(x, _mm256_set1_epi32((1 << (B - 1)) - 1));
        }
        g |= uint64_t(uint32_t(_mm256_movemask_ps(_mm256_castsi256_ps(gv)))) << (8 * v);
        p |= uint64_t(uint32_t(_mm256_movemask_ps(_mm256_castsi256_ps(pv)))) << (8 * v);
    }
    g_mask = g;
    p_mask = p;
}

// Lane j of the result is all ones when bit j of the 8-bit `bits` is set.
inline __m256i expand_mask8(uint64_t bits) {
    const __m256i lane_bit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
    const __m256i b = _mm256_set1_epi32(static_cast<int>(bits & 0xff));
    return _mm256_cmpeq_epi32(_mm256_and_si256(b, lane_bit), lane_bit);
}

// Digits [t0, t1) with carry-in 0; returns the carry out. [t0, t1) lies on one side of n.
// Groups of 64 digits: raw fields and thresholds are formed first (independent, so they
// vectorise and pipeline), the carries of the group come from one addition of bit masks, and
// digits are converted and stored as vectors.
template <DigitMode kMode, int B>
uint64_t run_chunk(const DigitContext& c, uint64_t t0, uint64_t t1) {
    constexpr uint64_t G = 64;
    constexpr int bits = B;
    constexpr uint64_t mask = (uint64_t(1) << bits) - 1;
    const uint64_t side_offset = t0 < c.n ? 0 : c.n;
    double* side = c.out + (t0 < c.n ? 0 : 8);
    const uint32_t seed = static_cast<uint32_t>(c.seed);
    uint64_t carry = 0;
    alignas(32) uint32_t r[G] = {};
    alignas(32) uint32_t raw[G];
    for (uint64_t t = t0; t < t1; t += G) {
        const uint64_t g = std::min(G, t1 - t);
        if constexpr (kMode == DigitMode::Dithered) {
            for (uint64_t i = 0; i < G; ++i) {
                r[i] = dither_threshold(seed, t + i, bits);
            }
        }
        // The unrolled extraction needs the group to start on a word boundary (t a multiple of
        // 64; always so for transform sizes, where n is a multiple of 64). 64 fields of B bits
        // are exactly words [first_word, first_word + B).
        const uint64_t first_word = t * bits / 64;
        double* out = side + ((t - side_offset) >> 3) * 16;
        if (g == G && (t & 63) == 0 && first_word + B <= c.AL) {
            // The group's lines (one side of 8 blocks) are every other line of the points: a
            // stride the prefetchers follow late. Ask for ownership a few groups ahead.
            for (int v = 0; v < 8; ++v) __builtin_prefetch(out + kPrefetchGroups * 128 + 16 * v, 1);
            extract_group<B>(c.A + first_word, raw, std::make_integer_sequence<int, 64>{});
            __m256i cin_lanes[8], cout_lanes[8];
            if constexpr (kMode == DigitMode::Unsigned) {
                for (int v = 0; v < 8; ++v) cin_lanes[v] = cout_lanes[v] = _mm256_setzero_si256();
            } else {
                uint64_t gm, pm;
                carry_masks<kMode, B>(raw, r, gm, pm);
                const uint64_t x = gm | pm;
                const unsigned __int128 sum = static_cast<unsigned __int128>(x) + gm + carry;
                const uint64_t cin = static_cast<uint64_t>(sum) ^ x ^ gm;
                const uint64_t carry_top = static_cast<uint64_t>(sum >> 64);
                const uint64_t cout = (cin >> 1) | (carry_top << 63);
                for (int v = 0; v < 8; ++v) {
                    cin_lanes[v] = expand_mask8(cin >> (8 * v));
                    cout_lanes[v] = expand_mask8(cout >> (8 * v));
                }
                carry = carry_top;
            }
            const __m256i base = _mm256_set1_epi32(1 << bits);
            for (int v = 0; v < 8; ++v) {
                // d = raw + cin - cout 2^b (the lanes hold -1 for a set carry).
                const __m256i x = _mm256_load_si256(reinterpret_cast<const __m256i*>(raw + 8 * v));
                const __m256i d = _mm256_sub_epi32(_mm256_sub_epi32(x, cin_lanes[v]),
                                                   _mm256_and_si256(cout_lanes[v], base));
                _mm256_store_pd(out + 16 * v, _mm256_cvtepi32_pd(_mm256_castsi256_si128(d)));
                _mm256_store_pd(out + 16 * v + 4, _mm256_cvtepi32_pd(_mm256_extracti128_si256(d, 1)));
            }
            continue;
        }
        for (uint64_t i = 0; i < g; ++i) raw[i] = static_cast<uint32_t>(raw_digit(c.A, c.AL, t + i, bits, mask));
        for (uint64_t i = 0; i < g; ++i) {
            const uint64_t u = raw[i] + carry;
            carry = next_carry<kMode>(u, r[i], bits);
            const int64_t d = static_cast<int64_t>(u) - static_cast<int64_t>(carry << bits);
            out[(i >> 3) * 16 + (i & 7)] = static_cast<double>(d);
        }
    }
    return carry;
}

using RunFunction = uint64_t (*)(const DigitContext&, uint64_t, uint64_t);
constexpr int kMaxBits = 24;

template <DigitMode kMode, int... B>
constexpr std::array<RunFunction, sizeof...(B)> run_functions(std::integer_sequence<int, B...>) {
    return {&run_chunk<kMode, B + 1>...};
}
// Indexed by [mode][bits - 1].
constexpr std::array<std::array<RunFunction, kMaxBits>, 3> kRunFunctions = {
    run_functions<DigitMode::Dithered>(std::make_integer_sequence<int, kMaxBits>{}),
    run_functions<DigitMode::Balanced>(std::make_integer_sequence<int, kMaxBits>{}),
    run_functions<DigitMode::Unsigned>(std::make_integer_sequence<int, kMaxBits>{})};

// Re-runs [t0, t1) with carry-in 1 beside the carry-0 chain until they agree; returns the true
// carry out of the range.
template <DigitMode kMode>
uint64_t fix_chunk(const DigitContext& c, uint64_t t0, uint64_t t1, uint64_t old_carry_out) {
    uint64_t carry_new = 1, carry_old = 0;
    for (uint64_t t = t0; t < t1; ++t) {
        int64_t d_new, d_old;
        carry_new = step<kMode>(c, t, carry_new, d_new);
        carry_old = step<kMode>(c, t, carry_old, d_old);
        c.out[slot_of(t, c.n)] = static_cast<double>(d_new);
        if (carry_new == carry_old) return old_carry_out;
    }
    return carry_new;
}

uint64_t run_chunk_any(const DigitContext& c, uint64_t t0, uint64_t t1) {
    return kRunFunctions[static_cast<int>(c.mode)][c.bits - 1](c, t0, t1);
}

uint64_t fix_chunk_any(const DigitContext& c, uint64_t t0, uint64_t t1, uint64_t old_carry_out) {
    switch (c.mode) {
        case DigitMode::Unsigned: return fix_chunk<DigitMode::Unsigned>(c, t0, t1, old_carry_out);
        case DigitMode::Balanced: return fix_chunk<DigitMode::Balanced>(c, t0, t1, old_carry_out);
        case DigitMode::Dithered: break;
    }
    return fix_chunk<DigitMode::Dithered>(c, t0, t1, old_carry_out);
}

// ---- Streamed split: every 64-digit group on its own, from a plan of group carry-ins.

struct GroupFields {
    alignas(32) uint32_t raw[64];
    alignas(32) uint32_t r[64];
    uint64_t g, p;   // carry generate / propagate masks, zero above the operand's digits
    uint64_t valid;  // lanes below the digit count
};

// Group q holds digits [64 q, 64 q + 64). Lanes at or above `digits` read as raw 0 and neither
// generate nor propagate, so the carry into lane `digits` stays there as the top digit.
template <DigitMode kMode, int B>
void load_group(const DigitContext& c, uint64_t digits, uint64_t q, GroupFields& f) {
    constexpr uint64_t mask = (uint64_t(1) << B) - 1;
    const uint64_t t = 64 * q;
    const uint64_t valid_count = digits > t ? std::min<uint64_t>(64, digits - t) : 0;
    f.valid = valid_count == 64 ? ~uint64_t(0) : (uint64_t(1) << valid_count) - 1;
    const uint64_t first_word = t * B / 64;
    if (valid_count == 64 && first_word + B <= c.AL) {
        extract_group<B>(c.A + first_word, f.raw, std::make_integer_sequence<int, 64>{});
    } else {
        for (uint64_t i = 0; i < 64; ++i)
            f.raw[i] = i < valid_count ? static_cast<uint32_t>(raw_digit(c.A, c.AL, t + i, B, mask)) : 0;
    }
    if constexpr (kMode == DigitMode::Unsigned) {
        f.g = f.p = 0;
        return;
    } else {
        if constexpr (kMode == DigitMode::Dithered) {
            const uint32_t seed = static_cast<uint32_t>(c.seed);
            for (uint64_t i = 0; i < 64; ++i) {
                f.r[i] = dither_threshold(seed, t + i, B);
            }
        }
        carry_masks<kMode, B>(f.raw, f.r, f.g, f.p);
        f.g &= f.valid;
        f.p &= f.valid;
    }
}

inline uint64_t group_carry_out(const GroupFields& f, uint64_t cin) {
    const uint64_t x = f.g | f.p;
    return static_cast<uint64_t>((static_cast<unsigned __int128>(x) + f.g + cin) >> 64);
}

// Writes the group's 64 digits as 8 lines of 8 doubles, `line_stride` doubles apart.
template <int B>
void emit_group(const GroupFields& f, uint64_t cin, double* line0, uint64_t line_stride) {
    const uint64_t x = f.g | f.p;
    const unsigned __int128 sum = static_cast<unsigned __int128>(x) + f.g + cin;
    const uint64_t carry_in = static_cast<uint64_t>(sum) ^ x ^ f.g;
    const uint64_t carry_out = ((carry_in >> 1) | (static_cast<uint64_t>(sum >> 64) << 63)) & f.valid;
    const __m256i base = _mm256_set1_epi32(1 << B);
    for (int v = 0; v < 8; ++v) {
        const __m256i raw = _mm256_load_si256(reinterpret_cast<const __m256i*>(f.raw + 8 * v));
        const __m256i d = _mm256_sub_epi32(_mm256_sub_epi32(raw, expand_mask8(carry_in >> (8 * v))),
                                           _mm256_and_si256(expand_mask8(carry_out >> (8 * v)), base));
        double* line = line0 + v * line_stride;
        _mm256_store_pd(line, _mm256_cvtepi32_pd(_mm256_castsi256_si128(d)));
        _mm256_store_pd(line + 4, _mm256_cvtepi32_pd(_mm256_extracti128_si256(d, 1)));
    }
}

struct SourceOps {
    // Groups [q0, q1) from carry-in 0: records each group's carry-in, returns the carry out.
    uint64_t (*plan)(const DigitContext& c, uint64_t digits, uint64_t q0, uint64_t q1, uint8_t* cin);
    // The same range when its true carry-in is 1: re-records carry-ins until the chain meets the
    // recorded one; returns the range's true carry out.
    uint64_t (*fix)(const DigitContext& c, uint64_t digits, uint64_t q0, uint64_t q1, uint8_t* cin,
                    uint64_t recorded_out);
    // Group q into 8 lines `line_stride` doubles apart.
    void (*emit)(const DigitContext& c, uint64_t digits, uint64_t q, uint64_t cin, double* line0,
                 uint64_t line_stride);
};

template <DigitMode kMode, int B>
struct SourceImpl {
    static uint64_t plan(const DigitContext& c, uint64_t digits, uint64_t q0, uint64_t q1, uint8_t* cin) {
        GroupFields f;
        uint64_t carry = 0;
        for (uint64_t q = q0; q < q1; ++q) {
            load_group<kMode, B>(c, digits, q, f);
            cin[q] = static_cast<uint8_t>(carry);
            carry = group_carry_out(f, carry);
        }
        return carry;
    }
    static uint64_t fix(const DigitContext& c, uint64_t digits, uint64_t q0, uint64_t q1, uint8_t* cin,
                        uint64_t recorded_out) {
        GroupFields f;
        uint64_t carry = 1;
        for (uint64_t q = q0; q < q1; ++q) {
            if (cin[q] == carry) return recorded_out;
            cin[q] = static_cast<uint8_t>(carry);
            load_group<kMode, B>(c, digits, q, f);
            carry = group_carry_out(f, carry);
        }
        return carry;
    }
    static void emit(const DigitContext& c, uint64_t digits, uint64_t q, uint64_t cin, double* line0,
                     uint64_t line_stride) {
        GroupFields f;
        load_group<kMode, B>(c, digits, q, f);
        emit_group<B>(f, cin, line0, line_stride);
    }
};

template <DigitMode kMode, int... B>
constexpr std::array<SourceOps, sizeof...(B)> source_ops(std::integer_sequence<int, B...>) {
    return {SourceOps{&SourceImpl<kMode, B + 1>::plan, &SourceImpl<kMode, B + 1>::fix,
                      &SourceImpl<kMode, B + 1>::emit}...};
}
constexpr std::array<std::array<SourceOps, kMaxBits>, 3> kSourceOps = {
    source_ops<DigitMode::Dithered>(std::make_integer_sequence<int, kMaxBits>{}),
    source_ops<DigitMode::Balanced>(std::make_integer_sequence<int, kMaxBits>{}),
    source_ops<DigitMode::Unsigned>(std::make_integer_sequence<int, kMaxBits>{})};

constexpr uint64_t kMinChunkGroups = 128;

}  // namespace

uint64_t fresh_dither_seed() {
    static const uint64_t base = [] {
        std::random_device device;
        return (uint64_t(device()) << 32) ^ device();
    }();
    static std::atomic<uint64_t> counter{0};
    // splitmix64 of base + counter: distinct inputs give distinct, well-mixed outputs.
    uint64_t z = base + (counter.fetch_add(1) + 1) * 0x9e3779b97f4a7c15ull;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    z ^= z >> 31;
    // The digit kernels use the low 32 bits: keep them away from the default seed's.
    if (uint32_t(z) == uint32_t(kDitherSeed)) z ^= 1;
    return z;
}

void split_words(const uint64_t* A, uint64_t AL, int bits, DigitMode mode, Block* points,
                 uint64_t n_complex, Parallelizer* parallelizer, uint64_t tds, uint64_t seed) {
    static const char* kFunction = "FFTv4::split_words()";
    if (bits < 1 || bits > 24) throw InvalidParametersException(kFunction, "Bits per point is out of range.");
    const uint64_t n = n_complex;
    const uint64_t digits = split_digit_count(AL, bits);
    if (n % 8 != 0 || digits + 1 > 2 * n)
        throw InvalidParametersException(kFunction, "Operand does not fit the transform.");

    DigitContext context{A, AL, bits, mode, seed, &points[0].re[0], n};

    // Digit ranges: about 2 per task, at least kMinChunkDigits each, cut at n as well.
    uint64_t chunk = std::max<uint64_t>(kMinChunkDigits, (digits + 2 * tds - 1) / std::max<uint64_t>(1, 2 * tds));
    chunk = std::max<uint64_t>(chunk, (digits + kMaxChunks - 2) / (kMaxChunks - 1));
    chunk = (chunk + 63) & ~uint64_t(63);  // groups of 64 digits start on whole blocks
    uint64_t begin[kMaxChunks + 2], end[kMaxChunks + 2], carry[kMaxChunks + 2];
    uint64_t chunks = 0;
    for (uint64_t t = 0; t < digits;) {
        uint64_t e = std::min(digits, t + chunk);
        if (t < n && e > n) e = n;
        begin[chunks] = t;
        end[chunks] = e;
        ++chunks;
        t = e;
    }
    // Zero ranges (point indices on each side) for the digits above the operand.
    const uint64_t re_zero_from = std::min(digits, n);
    const uint64_t im_zero_from = digits > n ? digits - n : 0;

    double* out = context.out;
    auto task = [&](uint64_t i) {
        if (i < chunks) {
            carry[i] = run_chunk_any(context, begin[i], end[i]);
            return;
        }
        // Zero the unused digit slots, one side per task.
        const uint64_t from = i == chunks ? re_zero_from : im_zero_from;
        const uint64_t im = i == chunks ? 0 : 8;
        uint64_t j = from;
        for (; j < n && (j & 7) != 0; ++j) out[(j >> 3) * 16 + im + (j & 7)] = 0.0;
        const __m256d zero = _mm256_setzero_pd();
        for (; j < n; j += 8) {
            double* line = out + (j >> 3) * 16 + im;
            _mm256_store_pd(line, zero);
            _mm256_store_pd(line + 4, zero);
        }
    };
    const uint64_t task_count = chunks + 2;
    if (parallelizer != nullptr && tds > 1) {
        parallelizer->run(task_count, task);
    } else {
        for (uint64_t i = 0; i < task_count; ++i) task(i);
    }

    // Resolve the carries between ranges in order.
    uint64_t carry_in = 0;
    for (uint64_t i = 0; i < chunks; ++i) {
        carry_in = carry_in ? fix_chunk_any(context, begin[i], end[i], carry[i]) : carry[i];
    }
    // The carry out of the top digit becomes one more (plain) digit.
    out[slot_of(digits, n)] = static_cast<double>(carry_in);
}

}  // namespace qmp::fft

namespace qmp::fft {

uint64_t SplitSource::scratch_bytes(uint64_t n_complex) { return (n_complex / 32 + 127) / 128 * 128; }

SplitSource::SplitSource(const uint64_t* A, uint64_t AL, int bits, DigitMode mode, uint64_t n_complex,
                         uint8_t* carry_scratch, Parallelizer* parallelizer, uint64_t tds, uint64_t seed)
    : A_(A), AL_(AL), bits_(bits), mode_(mode), n_(n_complex), seed_(seed), carry_in_(carry_scratch) {
    static const char* kFunction = "FFTv4::split_words()";
    if (bits < 1 || bits > kMaxBits) throw InvalidParametersException(kFunction, "Bits per point is out of range.");
    digits_ = split_digit_count(AL, bits);
    if (n_ % 64 != 0 || digits_ + 1 > 2 * n_)
        throw InvalidParametersException(kFunction, "Operand does not fit the transform.");
    const SourceOps& ops = kSourceOps[static_cast<int>(mode)][bits - 1];
    const DigitContext c{A, AL, bits, mode, seed, nullptr, n_};
    // Groups up to the one holding the top (carry) digit; the ones above are all zero.
    planned_groups_ = digits_ / 64 + 1;
    uint64_t chunk = std::max<uint64_t>(kMinChunkGroups, (planned_groups_ + 2 * tds - 1) / std::max<uint64_t>(1, 2 * tds));
    chunk = std::max<uint64_t>(chunk, (planned_groups_ + kMaxChunks - 1) / kMaxChunks);
    const uint64_t chunks = (planned_groups_ + chunk - 1) / chunk;
    uint64_t carry[kMaxChunks];
    auto task = [&](uint64_t i) {
        carry[i] = ops.plan(c, digits_, i * chunk, std::min(planned_groups_, (i + 1) * chunk), carry_in_);
    };
    if (parallelizer != nullptr && tds > 1 && chunks > 1) {
        parallelizer->run(chunks, task);
    } else {
        for (uint64_t i = 0; i < chunks; ++i) task(i);
    }
    uint64_t carry_in = 0;
    for (uint64_t i = 0; i < chunks; ++i) {
        const uint64_t q1 = std::min(planned_groups_, (i + 1) * chunk);
        carry_in = carry_in ? ops.fix(c, digits_, i * chunk, q1, carry_in_, carry[i]) : carry[i];
    }
}

void SplitSource::fill(uint64_t first_block, uint64_t count, Block* out) const {
    const SourceOps& ops = kSourceOps[static_cast<int>(mode_)][bits_ - 1];
    const DigitContext c{A_, AL_, bits_, mode_, seed_, nullptr, n_};
    // Point index 8 b of either side is digit 8 b (real part) or n + 8 b (imaginary part).
    for (int side = 0; side < 2; ++side) {
        const uint64_t q0 = (8 * first_block + (side ? n_ : 0)) / 64;
        for (uint64_t g = 0; g < count / 8; ++g) {
            const uint64_t q = q0 + g;
            double* line0 = out[8 * g].re + (side ? 8 : 0);
            if (q < planned_groups_) {
                ops.emit(c, digits_, q, carry_in_[q], line0, 16);
            } else {
                const __m256d zero = _mm256_setzero_pd();
                for (int l = 0; l < 8; ++l) {
                    _mm256_store_pd(line0 + 16 * l, zero);
                    _mm256_store_pd(line0 + 16 * l + 4, zero);
                }
            }
        }
    }
}

}  // namespace qmp::fft
