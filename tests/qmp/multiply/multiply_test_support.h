// Shared helpers of the multiplication tests: the seed (fixed default, QMP_TEST_SEED overrides,
// printed with every failure through the trace), operand generators with long runs of ones and
// zeros, guarded buffers, an independent schoolbook oracle on 32-bit halves, the Karatsuba
// product (an independent code path for the transforms' tests) and residues modulo three primes
// for products too long for either.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qmp/multiply/karatsuba.h"
#include "tests/test_support.h"

namespace qmp::test {


struct Rng {
    uint64_t state;
    explicit Rng(uint64_t seed) : state(seed) {}
    uint64_t next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint64_t below(uint64_t n) { return next() % n; }
};

enum class Pattern { Random, Runs, AllOnes };

// n words of the pattern. Runs: alternating runs of set and clear bits of random lengths
// (up to a few words), which drives carries and borrows through long chains.
inline std::vector<uint64_t> make_operand(Rng& rng, uint64_t n, Pattern pattern) {
    std::vector<uint64_t> a(n, 0);
    if (pattern == Pattern::AllOnes) {
        for (auto& w : a) w = ~0ull;
    } else if (pattern == Pattern::Random) {
        for (auto& w : a) w = rng.next();
    } else {
        uint64_t bit = 0, total = 64 * n;
        bool ones = rng.next() & 1;
        while (bit < total) {
            uint64_t run = 1 + rng.below(rng.below(4) == 0 ? 256 : 40);
            for (uint64_t i = bit; i < bit + run && i < total; ++i)
                if (ones) a[i / 64] |= 1ull << (i % 64);
            bit += run;
            ones = !ones;
        }
    }
    if (n > 0 && a[n - 1] == 0) a[n - 1] = 1ull << 63;  // keep the stated length
    return a;
}

// Product by schoolbook on 32-bit halves: shares no code with the library.
inline std::vector<uint64_t> oracle_mul(const std::vector<uint64_t>& A, const std::vector<uint64_t>& B) {
    std::vector<uint32_t> a, b;
    for (uint64_t w : A) { a.push_back(uint32_t(w)); a.push_back(uint32_t(w >> 32)); }
    for (uint64_t w : B) { b.push_back(uint32_t(w)); b.push_back(uint32_t(w >> 32)); }
    std::vector<uint32_t> c(a.size() + b.size(), 0);
    for (size_t i = 0; i < a.size(); ++i) {
        uint64_t carry = 0;
        for (size_t j = 0; j < b.size(); ++j) {
            uint64_t t = uint64_t(a[i]) * b[j] + c[i + j] + carry;
            c[i + j] = uint32_t(t);
            carry = t >> 32;
        }
        c[i + b.size()] = uint32_t(carry);
    }
    std::vector<uint64_t> C(A.size() + B.size());
    for (size_t i = 0; i < C.size(); ++i) C[i] = uint64_t(c[2 * i]) | uint64_t(c[2 * i + 1]) << 32;
    return C;
}

// A buffer of n words with guard words on both sides, all filled with garbage first.
class Guarded {
public:
    static constexpr uint64_t guard_words = 8;
    static constexpr uint64_t garbage = 0xA5C3F00DDEADBEEFull;

    explicit Guarded(uint64_t n) : n_(n), words_(n + 2 * guard_words + 16, garbage) {}
    // Aligned to 128 bytes inside the vector so algorithms see a well-aligned scratch.
    uint64_t* data() {
        uintptr_t p = reinterpret_cast<uintptr_t>(words_.data() + guard_words);
        p = (p + 127) & ~uintptr_t(127);
        return reinterpret_cast<uint64_t*>(p);
    }
    uint64_t size() const { return n_; }
    // True when every word outside [data, data + n) is still garbage.
    bool guards_intact() {
        uint64_t* d = data();
        for (uint64_t* p = words_.data(); p < d; ++p) if (*p != garbage) return false;
        for (uint64_t* p = d + n_; p < words_.data() + words_.size(); ++p) if (*p != garbage) return false;
        return true;
    }
    std::vector<uint64_t> contents() { return std::vector<uint64_t>(data(), data() + n_); }

private:
    uint64_t n_;
    std::vector<uint64_t> words_;
};

// A * B by Karatsuba on words (either operand may be the longer).
inline std::vector<uint64_t> karatsuba_product(const std::vector<uint64_t>& A, const std::vector<uint64_t>& B) {
    const auto& X = A.size() >= B.size() ? A : B;
    const auto& Y = A.size() >= B.size() ? B : A;
    std::vector<uint64_t> C(X.size() + Y.size()), scratch(bkt_itch_bound(X.size() + Y.size()));
    bkt_mul(C.data(), X.data(), X.size(), Y.data(), Y.size(), scratch.data(), KaratsubaThresholds{});
    return C;
}

// a modulo a prime below 2^63.
inline uint64_t mod_prime(const std::vector<uint64_t>& a, uint64_t p) {
    unsigned __int128 r = 0;
    for (uint64_t i = a.size(); i-- > 0;) r = ((r << 64) | a[i]) % p;
    return static_cast<uint64_t>(r);
}

// C = A * B checked modulo three primes.
inline bool residues_match(const std::vector<uint64_t>& A, const std::vector<uint64_t>& B, const std::vector<uint64_t>& C) {
    for (uint64_t p : {0x1fffffffffffffffull, 0x3fffffffffffffe5ull, 0xfffffffbull}) {
        const unsigned __int128 ab = static_cast<unsigned __int128>(mod_prime(A, p)) * mod_prime(B, p) % p;
        if (static_cast<uint64_t>(ab) != mod_prime(C, p)) return false;
    }
    return true;
}

}  // namespace qmp::test
