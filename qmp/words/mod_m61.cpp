// The array residue modulo p = 2^61 - 1. Words [rem, n), rem = n mod 4, are split over four
// Horner chains by index modulo 4; chain j sums a[rem + 4m + j] * 2^(256 m), and stepping one
// group down multiplies by 2^256 = 2^12 (mod p), a rotation. The chains are then joined with
// weights 8^j and the rem bottom words added by plain Horner. Intermediate residues are kept in
// [0, 2^61] (not fully reduced) so that each step is shift, mask, or, add and one fold.
#include "qmp/words/mod_m61.h"

#include <cstring>

namespace qmp {
namespace {

// x * 2^k mod p for x in [0, 2^61], 0 < k < 61; result in [0, p].
template <unsigned k>
inline uint64_t rotate(uint64_t x) {
    return ((x << k) & m61_prime) | (x >> (61 - k));
}

// Folds s < 2^62 to [0, 2^61].
inline uint64_t fold(uint64_t s) { return (s & m61_prime) + (s >> 61); }

// A word folded to [0, p + 7].
inline uint64_t word_residue(uint64_t x) { return (x & m61_prime) + (x >> 61); }

inline uint64_t load64(const void* p) {
    uint64_t x;
    std::memcpy(&x, p, 8);
    return x;
}

// Residue of the n 64-bit words at `bytes` (any alignment).
uint64_t residue_bytes(const unsigned char* bytes, uint64_t n) {
    const uint64_t rem = n % 4;
    uint64_t h0 = 0, h1 = 0, h2 = 0, h3 = 0;
    for (uint64_t i = n; i > rem; i -= 4) {
        const unsigned char* g = bytes + 8 * (i - 4);
        h0 = fold(rotate<12>(h0) + word_residue(load64(g)));
        h1 = fold(rotate<12>(h1) + word_residue(load64(g + 8)));
        h2 = fold(rotate<12>(h2) + word_residue(load64(g + 16)));
        h3 = fold(rotate<12>(h3) + word_residue(load64(g + 24)));
    }
    uint64_t h = fold(rotate<3>(h3) + h2);
    h = fold(rotate<3>(h) + h1);
    h = fold(rotate<3>(h) + h0);
    for (uint64_t i = rem; i > 0; --i) h = fold(rotate<3>(h) + word_residue(load64(bytes + 8 * (i - 1))));
    return h >= m61_prime ? h - m61_prime : h;
}

}  // namespace

uint64_t mod_m61(const uint64_t* a, uint64_t n) {
    return residue_bytes(reinterpret_cast<const unsigned char*>(a), n);
}

uint64_t mod_m61(const uint32_t* a, uint64_t n) {
    // Little-endian: two 32-bit words are the bytes of one 64-bit word.
    const uint64_t n64 = n / 2;
    const uint64_t low = residue_bytes(reinterpret_cast<const unsigned char*>(a), n64);
    if (n % 2 == 0) return low;
    const uint64_t top = mul_pow2_m61(a[n - 1], 64 * n64);
    return add_m61(low, top);
}

}  // namespace qmp
