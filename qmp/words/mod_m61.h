// Residues modulo the Mersenne prime p = 2^61 - 1, the program's common fingerprint of large
// integers and digit sequences. mod_m61() gives the value of a little-endian word array as an
// integer, modulo p, in [0, p). Since 2^61 = 1 (mod p), multiplying by a power of two is a
// 61-bit rotation, and 2^64 = 8 (mod p); the array routine runs four interleaved Horner chains
// so that the latency of one chain is hidden. The small helpers take inputs in [0, p] and
// return results in [0, p) unless stated.
#pragma once

#include <cstdint>

namespace qmp {

inline constexpr uint64_t m61_prime = (uint64_t(1) << 61) - 1;

// x mod p for any 64-bit x.
inline uint64_t reduce_m61(uint64_t x) {
    x = (x & m61_prime) + (x >> 61);  // <= p + 7
    return x >= m61_prime ? x - m61_prime : x;
}

inline uint64_t add_m61(uint64_t a, uint64_t b) { return reduce_m61(a + b); }

inline uint64_t sub_m61(uint64_t a, uint64_t b) { return reduce_m61(a + m61_prime - b); }

inline uint64_t mul_m61(uint64_t a, uint64_t b) {
    const unsigned __int128 p = (unsigned __int128)a * b;  // < 2^122
    const uint64_t lo = uint64_t(p) & m61_prime, hi = uint64_t(p >> 61);
    return reduce_m61(lo + hi);
}

// x * 2^k mod p for x in [0, p], any k.
inline uint64_t mul_pow2_m61(uint64_t x, uint64_t k) {
    k %= 61;
    if (k == 0) return reduce_m61(x);
    return reduce_m61(((x << k) & m61_prime) | (x >> (61 - k)));
}

// Value of a[0, n) (word i has weight 2^(64 i)) modulo p. n = 0 gives 0.
uint64_t mod_m61(const uint64_t* a, uint64_t n);
// Value of a[0, n) (word i has weight 2^(32 i)) modulo p.
uint64_t mod_m61(const uint32_t* a, uint64_t n);

}  // namespace qmp
