// Words -> signed digits -> right-angle packed points (see split.h).
//
// The carry chain of balanced digits is sequential, yet the result must not depend on how the
// work is cut into tasks. Each task runs its digit range with carry-in 0; afterwards, in order,
// a range whose true carry-in is 1 is re-run from its start in lockstep with the carry-0 chain
// until the two chains agree on a carry (from there on the written digits are already right).
// With the dither the chains meet after ~1 digit (they differ only when r_t == u_t); plain
// balanced digits can run longer (a run of 2^(b-1)-1 digits), which costs time, not exactness.
//
//   digit t:  u = raw_t + carry_in
//     Unsigned:  d = u (no carries)
//     Balanced:  c = (u >= 2^(b-1)),  d = u - c 2^b       d in [-2^(b-1), 2^(b-1))
//     Dithered:  c = (r_t < u),       d = u - c 2^b       E[d] = 0 for every u in [0, 2^b]
#include "qmp/multiply/fft/split.h"

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qmp::fft {
namespace {

constexpr uint64_t kMaxChunks = 64;
constexpr uint64_t kMinChunkDigits = 8192;

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
inline void extract_group(const uint64_t* w, uint64_t* raw, std::integer_sequence<int, K...>) {
    constexpr uint64_t mask = (uint64_t(1) << B) - 1;
    ((raw[K] = (((K * B) % 64 + B > 64) ? (w[(K * B) / 64] >> ((K * B) % 64)) |
                                              (w[(K * B) / 64 + 1] << ((64 - (K * B) % 64) % 64))
                                        : (w[(K * B) / 64] >> ((K * B) % 64))) &
               mask),
     ...);
}

// Digits [t0, t1) with carry-in 0; returns the carry out. [t0, t1) lies on one side of n. Groups of 64 digits: the thresholds and raw fields are formed first
// (independent, so they vectorise and pipeline), then the short carry chain runs over them.
template <DigitMode kMode, int B>
uint64_t run_chunk(const DigitContext& c, uint64_t t0, uint64_t t1) {
    constexpr uint64_t G = 64;
    constexpr int bits = B;
    constexpr uint64_t mask = (uint64_t(1) << bits) - 1;
    const uint64_t side_offset = t0 < c.n ? 0 : c.n;
    double* side = c.out + (t0 < c.n ? 0 : 8);
    const uint32_t seed = static_cast<uint32_t>(c.seed);
    uint64_t carry = 0;
    uint32_t r[G] = {};
    uint64_t raw[G];
    for (uint64_t t = t0; t < t1; t += G) {
        const uint64_t g = std::min(G, t1 - t);
        if constexpr (kMode == DigitMode::Dithered) {
            for (uint64_t i = 0; i < G; ++i) {
                const uint64_t ti = t + i;
                uint32_t h = static_cast<uint32_t>(ti) * 0x9e3779b1u ^ static_cast<uint32_t>(ti >> 32) * 0x85ebca77u ^ seed;
                h ^= h >> 16;
                h *= 0x85ebca6bu;
                h ^= h >> 13;
                h *= 0xc2b2ae35u;
                h ^= h >> 16;
                r[i] = h >> (32 - bits);
            }
        }
        // The unrolled extraction needs the group to start on a word boundary (t a multiple of
        // 64; always so for transform sizes, where n is a multiple of 64).
        const uint64_t first_word = t * bits / 64;
        if (g == G && (t & 63) == 0 && first_word + B + 1 <= c.AL) {
            extract_group<B>(c.A + first_word, raw, std::make_integer_sequence<int, 64>{});
        } else {
            for (uint64_t i = 0; i < g; ++i) raw[i] = raw_digit(c.A, c.AL, t + i, bits, mask);
        }
        double* out = side + ((t - side_offset) >> 3) * 16;
        if (g == G) {
            // The carry chain alone is serial; digits and conversions then run as vectors.
            int32_t carry_in[G], carry_out[G];
            for (uint64_t i = 0; i < G; ++i) {
                carry_in[i] = static_cast<int32_t>(carry);
                carry = next_carry<kMode>(raw[i] + carry, r[i], bits);
                carry_out[i] = static_cast<int32_t>(carry);
            }
            for (uint64_t block = 0; block < G / 8; ++block) {
                for (uint64_t l = 0; l < 8; ++l) {
                    const uint64_t i = block * 8 + l;
                    const int32_t d = static_cast<int32_t>(raw[i]) + carry_in[i] - (carry_out[i] << bits);
                    out[block * 16 + l] = static_cast<double>(d);
                }
            }
            continue;
        }
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

}  // namespace

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
        for (uint64_t j = from; j < n; ++j) out[(j >> 3) * 16 + im + (j & 7)] = 0.0;
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
