// The term data of a series whose terms carry a P, Q, R triple (the CommonP2B3 family): for a
// term k >= 1 the series supplies the small integers P(k), Q(k) and R(k) such that the range
// values P(a,b)/Q(a,b) = sum over k in [a,b) of [prod_{a<=j<k} R(j)/Q(j)] * P(k)/Q(k).
// A series also states growth bounds log2|X(k)| <= c + d*log2(k) (k >= 1) that size every
// buffer, an independent residue of each term modulo 2^61 - 1 for the redundancy check, its
// split rule and its term-count sizer. Hand-written leaves (one or two terms straight into
// the caller's words) are optional; the generic leaf builds from term().
#pragma once

#include <cstdint>
#include <string>

#include "qmp/numbers/big_int.h"

namespace qmp::BinarySplitting {

// A signed integer of at most kMaxWords 64-bit words, as one term's P, Q or R.
struct TermValue {
    static constexpr uint32_t kMaxWords = 64;
    uint64_t w[kMaxWords];
    uint32_t L = 0;  // normalized: L = 0 is zero, else w[L-1] != 0
    bool negative = false;

    void set_u64(uint64_t x, bool neg = false) {
        w[0] = x;
        L = x != 0;
        negative = neg && x != 0;
    }
};

// log2|X(k)| <= log2_coefficient + degree * log2(k) for every term k >= 1.
struct GrowthBound {
    double log2_coefficient = 0.0;
    double degree = 0.0;
};

struct PQRGrowth {
    GrowthBound P, Q, R;
};

// What the recursion asks of every series, whatever its family: the split rule.
class SplitRule {
public:
    virtual ~SplitRule() = default;
    // The split point m, a < m < b, of a range with b - a >= 2.
    virtual uint64_t split(uint64_t a, uint64_t b) const { return a + (b - a) / 2; }
    // Whether split(a, b) - a depends on b - a only (true for the default halving rule); the
    // planner then reuses one block plan for every block of a length. Override with false
    // when a split rule looks at the position.
    virtual bool split_by_length() const { return true; }
};

class PQRSeries : public SplitRule {
public:

    virtual std::string name() const = 0;
    virtual PQRGrowth growth() const = 0;

    // P(k), Q(k), R(k) for k >= 1; Q(k) is never zero.
    virtual void term(uint64_t k, TermValue& P, TermValue& Q, TermValue& R) const = 0;
    // The same values modulo 2^61 - 1 (in [0, p)), computed without the multi-word words of
    // term(), so that the redundancy check also covers the leaves.
    virtual void term_residues(uint64_t k, uint64_t& P, uint64_t& Q, uint64_t& R) const = 0;

    // A hand-written leaf for b - a in {1, 2}: writes the range values into the BigInts' own
    // buffers (R only when need_R) and returns true, or returns false for the generic leaf.
    virtual bool leaf(uint64_t a, uint64_t b, BigInt<uint64_t>& P, BigInt<uint64_t>& Q, BigInt<uint64_t>& R,
                      bool need_R) const {
        (void)a, (void)b, (void)P, (void)Q, (void)R, (void)need_R;
        return false;
    }

    // The capacity a hand-written leaf of `terms` terms requires of output 0 (P), 1 (Q) or 2 (R).
    virtual uint64_t leaf_min_words(uint64_t terms, unsigned output) const {
        (void)terms, (void)output;
        return 0;
    }

    // The number N of terms k = 1..N whose sum is within 2^(-64 words) of the infinite sum
    // (relative to a sum of order one).
    virtual uint64_t terms_for_words(uint64_t words) const = 0;

    // |P(k)|, |Q(k)|, |R(k)| approximately, for the term-count scan; the default goes through
    // term().
    virtual void approximate(uint64_t k, long double& P, long double& Q, long double& R) const;

    // The expansion factor shown in the status line: the bits of Q(1, N+1) over the bits of
    // the result, for N terms at `words` of precision.
    double expansion_factor(uint64_t terms, uint64_t words) const;
};

}  // namespace qmp::BinarySplitting
