// Test helpers for formulas: a harness that compiles, sizes and runs a formula text through the
// built-in nodes with captured status and warning lines, and an exact oracle. ExactValue is
// +-num/den * 2^(64 exp) with naturals of any size (schoolbook arithmetic written here, not
// taken from the code under test), so that a result can be compared with an exact rational, a
// power, or a prefix of reference digits.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "config/config_object.h"
#include "formulas/language/formula_program.h"
#include "formulas/nodes/node_factories.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/exception.h"

namespace qmp::test {

// ---- Naturals: little-endian 64-bit words, no leading zero words.
using Nat = std::vector<uint64_t>;

inline void trim(Nat& a) {
    while (!a.empty() && a.back() == 0) a.pop_back();
}
inline Nat nat(uint64_t x) { return x == 0 ? Nat{} : Nat{x}; }
inline int cmp(const Nat& a, const Nat& b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    for (size_t i = a.size(); i-- > 0;)
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    return 0;
}
inline Nat mul(const Nat& a, const Nat& b) {
    Nat r(a.size() + b.size(), 0);
    for (size_t i = 0; i < a.size(); i++) {
        unsigned __int128 carry = 0;
        for (size_t j = 0; j < b.size(); j++) {
            carry += (unsigned __int128)a[i] * b[j] + r[i + j];
            r[i + j] = uint64_t(carry);
            carry >>= 64;
        }
        r[i + b.size()] = uint64_t(carry);
    }
    trim(r);
    return r;
}
inline Nat add(const Nat& a, const Nat& b) {
    Nat r(std::max(a.size(), b.size()) + 1, 0);
    unsigned __int128 c = 0;
    for (size_t i = 0; i + 1 < r.size(); i++) {
        c += (unsigned __int128)(i < a.size() ? a[i] : 0) + (i < b.size() ? b[i] : 0);
        r[i] = uint64_t(c);
        c >>= 64;
    }
    r.back() = uint64_t(c);
    trim(r);
    return r;
}
// |a - b|
inline Nat diff(const Nat& x, const Nat& y) {
    const Nat& a = cmp(x, y) >= 0 ? x : y;
    const Nat& b = cmp(x, y) >= 0 ? y : x;
    Nat r(a.size(), 0);
    uint64_t borrow = 0;
    for (size_t i = 0; i < a.size(); i++) {
        const uint64_t bi = i < b.size() ? b[i] : 0;
        const unsigned __int128 s = (unsigned __int128)a[i] - bi - borrow;
        r[i] = uint64_t(s);
        borrow = (s >> 64) != 0 ? 1 : 0;
    }
    trim(r);
    return r;
}
inline Nat shl_bits(const Nat& a, uint64_t bits) {
    if (a.empty()) return a;
    Nat r(bits / 64, 0);
    r.insert(r.end(), a.begin(), a.end());
    r.push_back(0);
    if (bits % 64) {
        const unsigned s = bits % 64;
        for (size_t i = r.size(); i-- > bits / 64;) r[i] = (r[i] << s) | (i > bits / 64 ? r[i - 1] >> (64 - s) : 0);
    }
    trim(r);
    return r;
}
inline Nat pow(Nat a, uint64_t e) {
    Nat r = nat(1);
    for (; e; e >>= 1, a = mul(a, a))
        if (e & 1) r = mul(r, a);
    return r;
}
inline Nat from_decimal(const std::string& digits) {
    Nat r;
    for (char c : digits) r = add(mul(r, nat(10)), nat(uint64_t(c - '0')));
    return r;
}

struct ExactValue {
    Nat num = nat(0);
    Nat den = nat(1);
    int64_t exp_words = 0;
    bool negative = false;
};
inline ExactValue exact(int64_t n, int64_t d = 1) {
    const bool neg = (n < 0) != (d < 0);
    return {nat(n < 0 ? uint64_t(0) - uint64_t(n) : uint64_t(n)), nat(d < 0 ? uint64_t(0) - uint64_t(d) : uint64_t(d)), 0,
            neg && n != 0};
}
inline ExactValue exact(const FormulaFloat& x) {
    Nat m(x.T, x.T + x.L);
    trim(m);
    return {m, nat(1), x.exp, !x.sign && x.L != 0};
}
inline ExactValue exact_pow(const ExactValue& x, uint64_t e) {
    return {pow(x.num, e), pow(x.den, e), x.exp_words * int64_t(e), x.negative && (e & 1)};
}
inline ExactValue exact_mul(const ExactValue& a, const ExactValue& b) {
    return {mul(a.num, b.num), mul(a.den, b.den), a.exp_words + b.exp_words, a.negative != b.negative};
}
// A decimal reference "I.FFFF...", truncated to `fraction_digits` digits, as an exact value.
inline ExactValue decimal_reference(const std::string& file, uint64_t fraction_digits) {
    std::ifstream in("/work/shared/reference/" + file);
    std::string text(fraction_digits + 32, '\0');
    in.read(text.data(), std::streamsize(text.size()));
    text.resize(size_t(in.gcount()));
    const size_t dot = text.find('.');
    const std::string digits = text.substr(0, dot) + text.substr(dot + 1, fraction_digits);
    return {from_decimal(digits), pow(nat(10), fraction_digits), 0, false};
}

// True when a and b have the same sign and |a - b| <= 2^-bits |b|.
inline bool agree(const ExactValue& a, const ExactValue& b, uint64_t bits) {
    const int64_t e = std::min(a.exp_words, b.exp_words);
    const Nat A = shl_bits(mul(a.num, b.den), uint64_t(a.exp_words - e) * 64);
    const Nat B = shl_bits(mul(b.num, a.den), uint64_t(b.exp_words - e) * 64);
    if (B.empty()) return A.empty();
    if (a.negative != b.negative) return false;
    return cmp(shl_bits(diff(A, B), bits), B) <= 0;
}

// Compiles, sizes and runs formula texts; status lines, warnings and product hooks are captured.
struct FormulaHarness {
    AlgorithmRegistry registry;
    AlgorithmTableB table;
    FormulaContext context;
    std::vector<std::string> status, warnings;
    std::vector<uint64_t> memory;  // kept after a run: the result lives in it
    uint64_t required_bytes = 0;

    FormulaHarness() : table((register_builtin_algorithms(registry), make_default_table(registry))) {
        context.table = &table;
        context.status = [this](std::string_view s) { status.emplace_back(s); };
    }
    FormulaProgram compile(const std::string& text) {
        return FormulaProgram(parse_cfg(text), builtin_node_registry(),
                              [this](std::string_view s) { warnings.emplace_back(s); });
    }
    // Runs with exactly the planned memory, filled with garbage first.
    FormulaFloat run(const std::string& text, uint64_t p) {
        FormulaProgram program = compile(text);
        required_bytes = program.plan(p, context);
        memory.assign(required_bytes / 8 + 16, 0xA5A5A5A5DEADBEEFull);
        auto* aligned = reinterpret_cast<uint64_t*>((reinterpret_cast<uintptr_t>(memory.data()) + 127) & ~uintptr_t(127));
        return program.evaluate(AlignedBufferC(aligned, required_bytes), context);
    }
};

}  // namespace qmp::test
