// Shared pieces of the number-type tests: the seed (fixed default, QMP_TEST_SEED overrides,
// printed in every trace), operands with long runs of zero and one words, an oracle on 32-bit
// halves that shares no code with the library, guard-worded buffers and aligned scratch.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <typeinfo>
#include <vector>

#include "qmp/exception.h"
#include "tests/test_support.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/numbers/aligned_buffer.h"

#define QMP_SEED_TRACE() SCOPED_TRACE(::qmp::test::seed_note())

namespace qmp::test {

using WordTypes = ::testing::Types<uint32_t, uint64_t>;

// n words with a non-zero top word: uniform, or runs of zeros, all-ones and random words.
template <typename W>
std::vector<W> random_operand(std::mt19937_64& rng, uint64_t n) {
    std::vector<W> v(n);
    const bool uniform = rng() % 3 == 0;
    for (uint64_t i = 0; i < n;) {
        const uint64_t run = uniform ? 1 : 1 + rng() % 50, kind = uniform ? 2 : rng() % 3;
        for (uint64_t k = 0; k < run && i < n; ++k, ++i) v[i] = kind == 0 ? W(0) : kind == 1 ? W(~W(0)) : W(rng());
    }
    if (n > 0 && v[n - 1] == 0) v[n - 1] = W(1 + rng() % 7);
    return v;
}

// Magnitudes as little-endian 32-bit halves without zero top halves.
using Mag = std::vector<uint32_t>;

inline Mag trimmed(Mag a) {
    while (!a.empty() && a.back() == 0) a.pop_back();
    return a;
}

// p[0, n) shifted up by shift_halves halves.
template <typename W>
Mag to_mag(const W* p, uint64_t n, uint64_t shift_halves = 0) {
    Mag m(shift_halves, 0);
    for (uint64_t i = 0; i < n; ++i) {
        m.push_back(uint32_t(p[i]));
        if (sizeof(W) == 8) m.push_back(uint32_t(uint64_t(p[i]) >> 32));
    }
    return trimmed(m);
}

inline int mag_cmp(const Mag& a, const Mag& b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    for (size_t i = a.size(); i-- > 0;)
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    return 0;
}

// a + b, or a - b for a >= b.
inline Mag mag_add(const Mag& a, const Mag& b, bool subtract = false) {
    Mag r(std::max(a.size(), b.size()) + 1, 0);
    int64_t c = 0;
    for (size_t i = 0; i < r.size(); ++i) {
        const int64_t x = i < a.size() ? a[i] : 0, y = i < b.size() ? b[i] : 0;
        c += subtract ? x - y : x + y;
        r[i] = uint32_t(c);
        c >>= 32;  // arithmetic shift: -1 carries a borrow
    }
    return trimmed(r);
}

inline Mag mag_mul(const Mag& a, const Mag& b) {
    Mag r(a.size() + b.size(), 0);
    for (size_t i = 0; i < a.size(); ++i) {
        uint64_t c = 0;
        for (size_t j = 0; j < b.size(); ++j) {
            c += uint64_t(a[i]) * b[j] + r[i + j];
            r[i + j] = uint32_t(c);
            c >>= 32;
        }
        r[i + b.size()] = uint32_t(c);
    }
    return trimmed(r);
}

// A word buffer with guard words on both sides; intact() checks that nothing wrote past it.
template <typename W>
struct Guarded {
    static constexpr uint64_t guard = 8;
    static constexpr W pattern = W(0x5A5A5A5A5A5A5A5Aull);
    std::vector<W> words;
    uint64_t n;
    explicit Guarded(uint64_t n_words) : words(n_words + 2 * guard, W(0xC3C3C3C3C3C3C3C3ull)), n(n_words) {
        for (uint64_t i = 0; i < guard; ++i) words[i] = words[guard + n + i] = pattern;
    }
    W* data() { return words.data() + guard; }
    bool intact() const {
        for (uint64_t i = 0; i < guard; ++i)
            if (words[i] != pattern || words[guard + n + i] != pattern) return false;
        return true;
    }
};

// 128-byte aligned scratch of a given size.
struct Scratch {
    std::vector<uint64_t> storage;
    AlignedBufferC buffer;
    explicit Scratch(uint64_t size_bytes) : storage(size_bytes / 8 + 32, 0xDEADBEEFDEADBEEFull) {
        const uintptr_t p = (reinterpret_cast<uintptr_t>(storage.data()) + 127) & ~uintptr_t(127);
        buffer = AlignedBufferC(reinterpret_cast<void*>(p), AlignedBufferC::round_up(size_bytes));
    }
};

inline const AlgorithmTableB& default_table() {
    static AlgorithmRegistry registry;
    static const AlgorithmTableB table = [] {
        register_builtin_algorithms(registry);
        return make_default_table(registry);
    }();
    return table;
}

}  // namespace qmp::test
