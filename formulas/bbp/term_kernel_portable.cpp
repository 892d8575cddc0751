// The portable term kernel: 2^e mod m in 64-bit Montgomery arithmetic (R = 2^64), for odd
// m < 2^63, and the reference that the vector kernels are tested against.
//
// Fraction bits without division. For odd m and 0 <= a < m let t = -a * m^-1 mod 2^64. Then
// a + t*m = c * 2^64 for an integer c < m with c = a * 2^-64 (mod m), and
//   t = c * 2^64 / m - a / m,  so  t = floor(frac(c / m) * 2^64)
// since 0 <= a/m < 1. That is one Montgomery reduction step: its quotient t is the next 64
// fraction bits of c/m, and its result c is the residue that step came from. Starting from
// a = 2^(e+128) mod m, two steps give the bits 65..128 and then 1..64 of frac(2^e / m).
#include "formulas/bbp/term_kernels.h"

namespace qv::bbp {
namespace {

// -m^-1 mod 2^64 for odd m (Newton: each step doubles the correct low bits, 3 -> 96).
uint64_t negative_inverse(uint64_t m) {
    uint64_t x = m;  // m*m = 1 mod 8: 3 bits
    for (int i = 0; i < 5; ++i) x *= 2 - m * x;
    return 0 - x;
}

struct Montgomery64 {
    uint64_t m;
    uint64_t ninv;  // -m^-1 mod 2^64

    // x*y / 2^64 mod m for x, y < m < 2^63: the sum below stays under 2^127 + 2^126.
    uint64_t mul(uint64_t x, uint64_t y) const {
        const uint128 t = uint128(x) * y;
        const uint64_t q = uint64_t(t) * ninv;
        const uint64_t r = uint64_t((t + uint128(q) * m) >> 64);
        return r >= m ? r - m : r;
    }
    // One reduction step of a < m: returns the quotient (64 fraction bits), a becomes c.
    uint64_t fraction_step(uint64_t& a) const {
        const uint64_t t = a * ninv;
        a = uint64_t((uint128(a) + uint128(t) * m) >> 64);
        return t;
    }
};

// floor(frac(2^e / m) * 2^128) for odd m < 2^63.
uint128 fraction_of_power(uint64_t e, uint64_t m) {
    if (m == 1) return 0;
    const Montgomery64 mont{m, negative_inverse(m)};
    // x holds 2^q * R mod m (Montgomery form of 2^q); start with q = 0: x = R mod m.
    // Squaring doubles q, doubling adds one; walk the bits of e + 128 from the top.
    const uint64_t target = e + 128;
    uint64_t x = (0 - m) % m;
    for (int b = 63 - __builtin_clzll(target); b >= 0; --b) {
        x = mont.mul(x, x);
        if ((target >> b) & 1) {
            x += x;
            if (x >= m) x -= m;
        }
    }
    // x = 2^(e+128) * R mod m; one plain reduction gives a = 2^(e+128) mod m.
    uint64_t a = x;
    mont.fraction_step(a);
    const uint64_t low = mont.fraction_step(a);   // bits 65..128
    const uint64_t high = mont.fraction_step(a);  // bits 1..64
    return (uint128(high) << 64) | low;
}

uint128 portable_sum(const TermProgression& run) {
    uint128 sum = 0;
    for (uint64_t i = 0; i < run.count; ++i) {
        const uint128 f =
            fraction_of_power(run.exponent_first - i * run.exponent_step, run.modulus_first + i * run.modulus_step);
        sum = run.negative(i) ? sum - f : sum + f;
    }
    return sum;
}

}  // namespace

const TermKernel& portable_term_kernel() {
    static const TermKernel kernel{"portable", uint64_t(1) << 63, portable_sum};
    return kernel;
}

}  // namespace qv::bbp
