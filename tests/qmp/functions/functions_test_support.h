// Shared pieces of the Newton-function tests: an exact oracle for "u is within a relative
// distance of v" on the 32-bit-half magnitudes of numbers_test_support.h (no library
// arithmetic involved), random floats, guarded result buffers and guarded scratch, and the
// precisions worth testing: the schedule's edges and the sizes around every change of
// multiplication algorithm in the default table.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "qmp/functions/newton_schedule.h"
#include "qmp/multiply/bkt_algorithm.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/numbers/big_float.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {

// The exact value mag * 2^(exp_bits).
struct Exact {
    Mag mag;
    int64_t exp_bits = 0;
};

template <typename W>
Exact exact_of(const BigFloat<W>& x) {
    return {to_mag(x.T, x.L), x.exp * int64_t(sizeof(W) * 8)};
}

inline Exact exact_mul(const Exact& a, const Exact& b) { return {mag_mul(a.mag, b.mag), a.exp_bits + b.exp_bits}; }

inline Exact exact_pow(const Exact& a, uint32_t n) {
    Exact r{{1}, 0};
    for (uint32_t i = 0; i < n; ++i) r = exact_mul(r, a);
    return r;
}

inline Mag shift_left(const Mag& m, uint64_t bits) {
    Mag r(bits / 32, 0);
    const unsigned s = unsigned(bits % 32);
    uint32_t carry = 0;
    for (uint32_t w : m) {
        r.push_back(s == 0 ? w : (w << s) | carry);
        carry = s == 0 ? 0 : w >> (32 - s);
    }
    r.push_back(carry);
    return trimmed(r);
}

// |u - v| < factor * 2^(-rel_bits) * v, exactly (v > 0).
inline bool within(const Exact& u, const Exact& v, uint64_t rel_bits, uint32_t factor = 1) {
    const int64_t e = std::min(u.exp_bits, v.exp_bits);
    const Mag U = shift_left(u.mag, uint64_t(u.exp_bits - e)), V = shift_left(v.mag, uint64_t(v.exp_bits - e));
    const Mag D = mag_cmp(U, V) >= 0 ? mag_add(U, V, true) : mag_add(V, U, true);
    return mag_cmp(shift_left(D, rel_bits), mag_mul(V, Mag{factor})) < 0;
}

// u = v exactly.
inline bool equal(const Exact& u, const Exact& v) {
    const int64_t e = std::min(u.exp_bits, v.exp_bits);
    return mag_cmp(shift_left(u.mag, uint64_t(u.exp_bits - e)), shift_left(v.mag, uint64_t(v.exp_bits - e))) == 0;
}

inline const Exact& exact_one() {
    static const Exact one{{1}, 0};
    return one;
}

// A float of n words (top word non-zero, runs of zero and all-ones words) at exponent exp.
template <typename W>
struct TestFloat {
    std::vector<W> words;
    BigFloat<W> x;
    TestFloat(std::mt19937_64& rng, uint64_t n, int64_t exp, bool sign = true) : words(random_operand<W>(rng, n)) {
        x = BigFloat<W>(words.data(), n);
        x.L = n;
        x.exp = exp;
        x.sign = sign;
    }
    explicit TestFloat(std::vector<W> w, int64_t exp = 0, bool sign = true) : words(std::move(w)) {
        x = BigFloat<W>(words.data(), words.size());
        x.L = words.size();
        x.exp = exp;
        x.sign = sign;
    }
};

// A result buffer of p + 3 words with guards, and the float over it.
template <typename W>
struct Result {
    Guarded<W> buffer;
    BigFloat<W> y;
    explicit Result(uint64_t p) : buffer(p + 3), y(buffer.data(), p + 3) {}
};

// Scratch of exactly `bytes` (128-aligned) followed by guard words that must survive the run.
struct GuardedScratch {
    static constexpr uint64_t guard_words = 16, pattern = 0xA5C3A5C3A5C3A5C3ull;
    std::vector<uint64_t> storage;
    AlignedBufferC buffer;
    uint64_t* guard = nullptr;
    explicit GuardedScratch(uint64_t bytes) : storage(bytes / 8 + 16 + guard_words, 0xDEADBEEFDEADBEEFull) {
        const uintptr_t p = (reinterpret_cast<uintptr_t>(storage.data()) + 127) & ~uintptr_t(127);
        buffer = AlignedBufferC(reinterpret_cast<void*>(p), AlignedBufferC::round_up(bytes));
        guard = reinterpret_cast<uint64_t*>(p + AlignedBufferC::round_up(bytes));
        std::fill(guard, guard + guard_words, pattern);
    }
    bool intact() const {
        return std::all_of(guard, guard + guard_words, [](uint64_t w) { return w == pattern; });
    }
};

// Precisions to test: the schedule's edges (0, 1, 2, 9, 10) and, for every change of algorithm
// in the default table (BKT's Karatsuba and Toom-3 cross-overs, and BKT -> FFTv4), the p whose
// largest step products (about (p + 2) x (p/2 + 3) words, and squares of about p/2 + 3 and
// p + 3 words) sit just below and just above it.
inline std::vector<uint64_t> test_precisions() {
    std::vector<uint64_t> ps = {0, 1, 2, 3, 4, 5, 9, 10, 11, 12, 19, 20};
    const KaratsubaThresholds k = default_karatsuba_thresholds();
    std::vector<uint64_t> operand_changes = {k.mul_min_words, k.sqr_min_words, k.toom3_mul_min_words,
                                             k.toom3_sqr_min_words};
    AlgorithmRegistry registry;
    register_builtin_algorithms(registry);
    const auto entries = default_table_entries(registry);
    // The table's switches within reach of the schoolbook references (not the largest products').
    for (size_t i = 0; i + 1 < entries.size(); ++i)
        if (entries[i].threshold_words <= (uint64_t(1) << 16)) operand_changes.push_back(entries[i].threshold_words / 2);
    for (uint64_t c : operand_changes) {
        for (uint64_t p : {c - 3, c + 1, 2 * c - 8, 2 * c - 4}) ps.push_back(p);
    }
    // The 64-bit steps on products modulo B^N + 1 start at 200 words.
    for (uint64_t p : {199, 200, 201, 1001, 2100}) ps.push_back(p);
    std::sort(ps.begin(), ps.end());
    ps.erase(std::unique(ps.begin(), ps.end()), ps.end());
    return ps;
}

// Installs a fault injector for one test and removes it afterwards.
struct InjectorScope {
    explicit InjectorScope(NewtonFaultInjector injector) { set_newton_fault_injector(injector); }
    ~InjectorScope() { set_newton_fault_injector(nullptr); }
};

}  // namespace qmp::test
