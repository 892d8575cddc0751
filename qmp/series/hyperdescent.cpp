// The Hyperdescent family (see hyperdescent.h).
#include "qmp/series/hyperdescent.h"

#include <algorithm>
#include <cmath>

#include "qmp/exception.h"
#include "qmp/series/range_bounds.h"
#include "qmp/series/series_sizer.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp::BinarySplitting {

namespace {

constexpr const char* kBinomial = "binomial_coefficient_u64()";
constexpr const char* kQAt = "BinarySplitting::HyperdescentSeries::q_at()";

uint64_t magnitude(int64_t c) { return c < 0 ? uint64_t(0) - uint64_t(c) : uint64_t(c); }

}  // namespace

uint64_t binomial_coefficient_u64(uint64_t n, uint64_t k) {
    if (k > n) return 0;
    k = std::min(k, n - k);
    // C(n, i + 1) = C(n, i) (n - i) / (i + 1), exact at every step; 128 bits hold the product.
    unsigned __int128 c = 1;
    for (uint64_t i = 0; i < k; ++i) {
        c = c * (n - i) / (i + 1);
        if (c >> 64) throw LimitExceededException(kBinomial, "Binomial coefficient overflows 64 bits.");
    }
    return uint64_t(c);
}

void binomial_row(uint64_t n, uint64_t* row) {
    row[0] = 1;
    for (uint64_t i = 0; i < n; ++i) {
        const unsigned __int128 c = (unsigned __int128)row[i] * (n - i) / (i + 1);
        if (c >> 64) throw LimitExceededException("binomial_row()", "Binomial coefficient overflows 64 bits.");
        row[i + 1] = uint64_t(c);
    }
}

HyperdescentSeries::HyperdescentSeries(std::vector<int64_t> Q, int sign) : q_(std::move(Q)), sign_(sign) {
    if (q_.empty() || q_.size() > 21)
        throw InvalidParametersException("BinarySplitting::HyperdescentSeries::HyperdescentSeries()",
                                         "Polynomial degree must be between 0 and 20.");
    if (sign != 1 && sign != -1)
        throw InvalidParametersException("BinarySplitting::HyperdescentSeries::HyperdescentSeries()",
                                         "Sign must be 1 or -1.");
    long double sum = 0;
    size_t degree = 0;
    for (size_t i = 0; i < q_.size(); ++i) {
        sum += (long double)magnitude(q_[i]);
        if (q_[i] != 0) degree = i;
    }
    growth_ = {sum <= 1 ? 0.0 : double(std::log2(sum)) * (1 + 1e-15) + 1e-12, double(degree)};
}

uint64_t HyperdescentSeries::q_at(uint64_t k) const {
    if (growth_.log2_coefficient + growth_.degree * std::log2(double(k)) >= 63.5)
        throw LimitExceededException(kQAt, "Hyperdescent term exceeds one word.");
    // Below 2^63.5 in magnitude the value is exact modulo 2^64 and positive by contract.
    uint64_t v = 0;
    for (size_t i = q_.size(); i-- > 0;) v = v * k + uint64_t(q_[i]);
    return v;
}

uint64_t HyperdescentSeries::q_residue(uint64_t k) const {
    const uint64_t x = reduce_m61(k);
    uint64_t v = 0;
    for (size_t i = q_.size(); i-- > 0;) {
        const uint64_t c = reduce_m61(magnitude(q_[i]));
        v = add_m61(mul_m61(v, x), q_[i] < 0 ? sub_m61(0, c) : c);
    }
    return v;
}

uint64_t HyperdescentSeries::terms_for_words(uint64_t words) const {
    // Term k is 1 / prod_{j<=k} Q(j); stop when term N+1 is below 2^(-64 words - 8) and the
    // next ratio 1/Q is at most 1/2.
    const double target = 64.0 * double(words) + 8.0;
    double log2_prod = 0;
    for (uint64_t k = 1; k < (uint64_t(1) << 62); ++k) {
        const double q = double(q_at(k));
        log2_prod += std::log2(q);
        if (log2_prod >= target && q >= 2.0 && double(q_at(k + 1)) >= 2.0) return k - 1;
    }
    throw InvalidParametersException("BinarySplitting::Hyperdescent::SeriesSizer()",
                                     "Series index exceeded. Series summation will overflow a 64-bit integer.");
}

Hyperdescent::Caps Hyperdescent::caps(const Series& s, uint64_t a, uint64_t b) {
    const GrowthBound g = s.growth();
    const double q_bits = double(b - a) * g.log2_coefficient + g.degree * sum_log2_bound(a, b);
    // |P(a, b)| <= (b - a) Q(a + 1, b) <= (b - a) Q(a, b).
    return {words_for_bits(q_bits + std::log2(double(b - a)), 3), words_for_bits(q_bits, 2)};
}

void Hyperdescent::leaf(const Series& s, uint64_t a, uint64_t b, Int* out, uint64_t* shadow, unsigned) {
    static const char* const kFunction = "BinarySplitting::Hyperdescent::leaf()";
    const uint64_t n = b - a;
    // Q(a), ..., Q(b - 1) by forward differences: D[i] = Delta^i Q(a) from the binomial row.
    const size_t d = s.q().size() - 1;
    uint64_t values[kLeafTerms];
    if (n <= d + 1) {
        for (uint64_t i = 0; i < n; ++i) values[i] = s.q_at(a + i);
    } else {
        s.q_at(b - 1);  // the largest value: refuses a range whose terms leave one word
        uint64_t base[24], diff[24], row[24];
        for (size_t j = 0; j <= d; ++j) base[j] = s.q_at(a + j);
        for (size_t i = 0; i <= d; ++i) {
            binomial_row(i, row);
            uint64_t acc = 0;  // exact modulo 2^64, and the values fit a word
            for (size_t j = 0; j <= i; ++j) acc += ((i - j) % 2 ? uint64_t(0) - row[j] : row[j]) * base[j];
            diff[i] = acc;
        }
        for (uint64_t t = 0; t < n; ++t) {
            values[t] = diff[0];
            for (size_t i = 0; i < d; ++i) diff[i] += diff[i + 1];
        }
    }
    // From the right: P <- s (Qacc + P), Qacc <- Qacc * Q(k).
    Int& P = out[kP];
    Int& Q = out[kQ];
    P.T = P.base, Q.T = Q.base;
    uint64_t* p = P.T;
    uint64_t* q = Q.T;
    uint64_t pl = 0, ql = 1;
    q[0] = 1;
    bool p_negative = false;
    uint64_t p_residue = 0, q_residue = 1;
    const uint64_t s_residue = s.sign() < 0 ? m61_prime - 1 : 1;
    for (uint64_t t = n; t-- > 0;) {
        // P = s * (Qacc + P); P and Qacc are non-negative magnitudes apart from P's sign.
        if (!p_negative || pl == 0) {
            const uint64_t m = std::max(pl, ql);
            if (m + 1 > P.capacity) throw BufferTooSmallException(kFunction, P.capacity, m + 1);
            p[m] = ql >= pl ? add(p, q, ql, p, pl) : add(p, p, pl, q, ql);
            pl = normalized_length(p, m + 1);
            p_negative = false;
        } else {
            // Qacc - |P|, either way round.
            if (ql > pl || (ql == pl && cmp(q, p, ql) >= 0)) {
                sub(p, q, ql, p, pl);
                pl = normalized_length(p, ql);
                p_negative = false;
            } else {
                sub(p, p, pl, q, ql);
                pl = normalized_length(p, pl);
                p_negative = true;
            }
        }
        if (s.sign() < 0 && pl != 0) p_negative = !p_negative;
        p_residue = mul_m61(s_residue, add_m61(q_residue, p_residue));
        if (ql + 1 > Q.capacity) throw BufferTooSmallException(kFunction, Q.capacity, ql + 1);
        const uint64_t carry = mul_1(q, q, ql, values[t]);
        if (carry) q[ql++] = carry;
        q_residue = mul_m61(q_residue, s.q_residue(a + t));
    }
    P.L = pl;
    P.sign = !p_negative || pl == 0;
    Q.L = ql;
    Q.sign = true;
    shadow[kP] = p_residue;
    shadow[kQ] = q_residue;
}

void Hyperdescent::merge(const MergeSite<Series>& site, const Int* L, const Int* R, Int* out, unsigned,
                         const Caps& capL, const Caps& capR, WorkArena arena, const MulEnv& env) {
    mul_signed(out[kQ], L[kQ], R[kQ], arena, env, capL[kQ], capR[kQ]);
    mul_signed(out[kP], L[kP], R[kQ], arena, env, capL[kP], capR[kQ]);
    if (arena.is_counting()) return;
    Int P2 = R[kP];
    if (site.series.sign() < 0 && (site.m - site.a) % 2 == 1 && P2.L != 0) P2.sign = !P2.sign;
    add_signed_in_place(out[kP], P2);
}

void Hyperdescent::merge_shadow(const MergeSite<Series>& site, const uint64_t* L, const uint64_t* R, uint64_t* out,
                                unsigned) {
    out[kQ] = mul_m61(L[kQ], R[kQ]);
    const bool flip = site.series.sign() < 0 && (site.m - site.a) % 2 == 1;
    out[kP] = add_m61(mul_m61(L[kP], R[kQ]), flip ? sub_m61(0, R[kP]) : R[kP]);
}

void Hyperdescent::finish(const Series&, uint64_t, BSRNode<Hyperdescent>& top, SeriesFraction& out, WorkArena&, const MulEnv&) {
    out.num = top.x[kP];
    out.den = top.x[kQ];
    out.den_shift_bits = 0;
}

}  // namespace qmp::BinarySplitting
