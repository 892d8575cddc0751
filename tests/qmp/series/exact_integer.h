// A slow exact signed integer for the tests: the oracle against which binary-splitting outputs
// are compared word for word (schoolbook products and sums, base 2^32).
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "qmp/numbers/big_int.h"

namespace qmp::test {

// A slow exact signed integer (base 2^32), the oracle of the recursion.
struct Exact {
    std::vector<uint32_t> m;  // little-endian magnitude, no leading zeros
    bool negative = false;
    static Exact of(int64_t v) {
        Exact e;
        uint64_t u = v < 0 ? uint64_t(0) - uint64_t(v) : uint64_t(v);
        while (u) e.m.push_back(uint32_t(u)), u >>= 32;
        e.negative = v < 0 && !e.m.empty();
        return e;
    }
    Exact operator*(const Exact& o) const {
        Exact r;
        if (m.empty() || o.m.empty()) return r;
        r.m.assign(m.size() + o.m.size(), 0);
        for (size_t i = 0; i < m.size(); ++i) {
            uint64_t c = 0;
            for (size_t j = 0; j < o.m.size(); ++j) {
                c += uint64_t(m[i]) * o.m[j] + r.m[i + j];
                r.m[i + j] = uint32_t(c);
                c >>= 32;
            }
            r.m[i + o.m.size()] = uint32_t(c);
        }
        while (!r.m.empty() && r.m.back() == 0) r.m.pop_back();
        r.negative = negative != o.negative;
        return r;
    }
    static int cmp_mag(const Exact& a, const Exact& b) {
        if (a.m.size() != b.m.size()) return a.m.size() < b.m.size() ? -1 : 1;
        for (size_t i = a.m.size(); i-- > 0;)
            if (a.m[i] != b.m[i]) return a.m[i] < b.m[i] ? -1 : 1;
        return 0;
    }
    Exact operator+(const Exact& o) const {
        if (negative == o.negative) {
            Exact r;
            r.negative = negative;
            uint64_t c = 0;
            for (size_t i = 0; i < std::max(m.size(), o.m.size()); ++i) {
                c += (i < m.size() ? m[i] : 0ull) + (i < o.m.size() ? o.m[i] : 0ull);
                r.m.push_back(uint32_t(c));
                c >>= 32;
            }
            if (c) r.m.push_back(uint32_t(c));
            return r;
        }
        const bool swap = cmp_mag(*this, o) < 0;
        const Exact& big = swap ? o : *this;
        const Exact& small = swap ? *this : o;
        Exact r;
        r.negative = big.negative;
        int64_t borrow = 0;
        for (size_t i = 0; i < big.m.size(); ++i) {
            int64_t d = int64_t(big.m[i]) - (i < small.m.size() ? small.m[i] : 0) - borrow;
            borrow = d < 0;
            r.m.push_back(uint32_t(d + (borrow << 32)));
        }
        while (!r.m.empty() && r.m.back() == 0) r.m.pop_back();
        if (r.m.empty()) r.negative = false;
        return r;
    }
    static Exact from(const BigInt<uint64_t>& x) {
        Exact e;
        for (uint64_t i = 0; i < x.L; ++i) e.m.push_back(uint32_t(x.T[i])), e.m.push_back(uint32_t(x.T[i] >> 32));
        while (!e.m.empty() && e.m.back() == 0) e.m.pop_back();
        e.negative = !x.sign && !e.m.empty();
        return e;
    }
    bool operator==(const Exact& o) const { return m == o.m && negative == o.negative; }
    static Exact pow2(uint64_t bits) {
        Exact e;
        e.m.assign(bits / 32 + 1, 0);
        e.m.back() = uint32_t(1) << (bits % 32);
        return e;
    }
    bool equals(const BigInt<uint64_t>& x) const {
        std::vector<uint32_t> w;
        for (uint64_t i = 0; i < x.L; ++i) w.push_back(uint32_t(x.T[i])), w.push_back(uint32_t(x.T[i] >> 32));
        while (!w.empty() && w.back() == 0) w.pop_back();
        return w == m && (m.empty() || negative == !x.sign);
    }
};


}  // namespace qmp::test
