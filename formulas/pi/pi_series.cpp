// The Chudnovsky and Ramanujan leaves and series objects (see pi_series.h). Term values are
// formed from 128-bit products of the small linear factors; the residues for the redundancy
// check are formed from the same factors modulo 2^61 - 1 with no word in common.
#include "formulas/pi/pi_series.h"

#include <cmath>
#include <string>

#include "qmp/exception.h"
#include "qmp/numbers/word_products.h"
#include "qmp/series/series_sizer.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qv {

namespace {

using u128 = unsigned __int128;
using qmp::BinarySplitting::GrowthBound;
using qmp::BinarySplitting::PQRGrowth;
using qmp::BinarySplitting::PQRSeries;
using qmp::BinarySplitting::TermValue;

void require(const Int& x, uint64_t words, const char* function) {
    if (x.capacity < words) throw qmp::BufferTooSmallException(function, x.capacity, words);
}

// x = the 3-word value a (128-bit) * b, normalized, with the given sign.
void set_u128_times_u64(Int& x, u128 a, uint64_t b, bool negative) {
    const u128 lo = u128(uint64_t(a)) * b;
    const u128 hi = u128(uint64_t(a >> 64)) * b + (lo >> 64);
    x.T = x.base;
    x.T[0] = uint64_t(lo);
    x.T[1] = uint64_t(hi);
    x.T[2] = uint64_t(hi >> 64);
    x.L = qmp::normalized_length(x.T, 3);
    x.sign = !negative || x.L == 0;
}

// x = a * b for magnitudes of up to a few words (x disjoint from both).
void set_product(Int& x, const uint64_t* a, uint64_t an, bool a_negative, const uint64_t* b, uint64_t bn,
                 bool b_negative) {
    x.T = x.base;
    if (an >= bn) qmp::mul_words_basecase<uint64_t>(x.T, a, an, b, bn);
    else qmp::mul_words_basecase<uint64_t>(x.T, b, bn, a, an);
    x.L = qmp::normalized_length(x.T, an + bn);
    x.sign = (a_negative == b_negative) || x.L == 0;
}

// x = u + v, signed, for values of at most 9 words (x may not alias).
void set_signed_sum(Int& x, const uint64_t* u, uint64_t un, bool u_neg, const uint64_t* v, uint64_t vn, bool v_neg) {
    x.T = x.base;
    if (un < vn || (un == vn && qmp::cmp(u, v, un) < 0)) {
        std::swap(u, v);
        std::swap(un, vn);
        std::swap(u_neg, v_neg);
    }
    uint64_t n = un;
    if (u_neg == v_neg) {
        x.T[un] = qmp::add(x.T, u, un, v, vn);
        n = un + 1;
    } else {
        qmp::sub(x.T, u, un, v, vn);
    }
    x.L = qmp::normalized_length(x.T, n);
    x.sign = !u_neg || x.L == 0;
}

// The two-word value of a linear factor c1 k + c0.
void linear_words(uint64_t k, uint64_t c1, uint64_t c0, uint64_t* w, uint64_t& n) {
    const u128 v = u128(c1) * k + c0;
    w[0] = uint64_t(v);
    w[1] = uint64_t(v >> 64);
    n = w[1] != 0 ? 2 : 1;
}

// k^3 * c as four words.
void cube_times(uint64_t k, uint64_t c, Int& Q) {
    const u128 k2 = u128(k) * k;
    uint64_t k3[3];
    const u128 lo = u128(uint64_t(k2)) * k;
    const u128 hi = u128(uint64_t(k2 >> 64)) * k + (lo >> 64);
    k3[0] = uint64_t(lo);
    k3[1] = uint64_t(hi);
    k3[2] = uint64_t(hi >> 64);
    Q.T = Q.base;
    Q.T[3] = qmp::mul_1(Q.T, k3, 3, c);
    Q.L = qmp::normalized_length(Q.T, 4);
    Q.sign = true;
}

uint64_t m61(uint64_t x) { return qmp::reduce_m61(x); }

// ---- Chudnovsky.
constexpr uint64_t kChudQ = 10939058860032000ull;
constexpr uint64_t kChudA = 545140134ull, kChudB = 13591409ull;

u128 chud_r_low(uint64_t k) { return u128(2 * k - 1) * (6 * k - 5); }

void chud_linear(uint64_t k, uint64_t* w, uint64_t& n) {
    // One word below the switch index, two from it on.
    if (k < kChudnovskyWideLinearTerm) {
        w[0] = kChudA * k + kChudB;
        n = 1;
    } else {
        linear_words(k, kChudA, kChudB, w, n);
        n = 2;
    }
}

// ---- Ramanujan.
constexpr uint64_t kRamQ = 3073907232ull;
constexpr uint64_t kRamA = 26390ull, kRamB = 1103ull;

u128 ram_r_low(uint64_t k) {
    if (k <= kRamanujanNarrowMaxTerm) return u128((2 * k - 1) * (4 * k - 3));  // below 2^63
    return u128(2 * k - 1) * (4 * k - 3);
}

}  // namespace

void Pi_Chudnovsky_BSR_End_R1(uint64_t k, Int& R) {
    require(R, 3, "Pi_Chudnovsky_BSR_End_R1()");
    set_u128_times_u64(R, chud_r_low(k), 6 * k - 1, true);
}

void Pi_Chudnovsky_BSR_End_P1(uint64_t k, const Int& R, Int& P) {
    require(P, 5, "Pi_Chudnovsky_BSR_End_P1()");
    uint64_t lin[2], n;
    chud_linear(k, lin, n);
    set_product(P, R.T, R.L, !R.sign, lin, n, false);
}

void Pi_Chudnovsky_BSR_End_Q1(uint64_t k, Int& Q) {
    require(Q, 4, "Pi_Chudnovsky_BSR_End_Q1()");
    cube_times(k, kChudQ, Q);
}

void Pi_Chudnovsky_BSR_End_PR2(uint64_t k, Int& P, Int* R) {
    require(P, 9, "Pi_Chudnovsky_BSR_End_PR2()");
    if (R) require(*R, 6, "Pi_Chudnovsky_BSR_End_PR2()");
    uint64_t r0w[3], r1w[3], p0w[5], p1w[5], q1w[4];
    Int r0(r0w, 3), r1(r1w, 3), p0(p0w, 5), p1(p1w, 5), q1(q1w, 4);
    Pi_Chudnovsky_BSR_End_R1(k, r0);
    Pi_Chudnovsky_BSR_End_R1(k + 1, r1);
    Pi_Chudnovsky_BSR_End_P1(k, r0, p0);
    Pi_Chudnovsky_BSR_End_P1(k + 1, r1, p1);
    Pi_Chudnovsky_BSR_End_Q1(k + 1, q1);
    if (R) set_product(*R, r0.T, r0.L, !r0.sign, r1.T, r1.L, !r1.sign);
    uint64_t xw[9], yw[8];
    Int x(xw, 9), y(yw, 8);
    set_product(x, p0.T, p0.L, !p0.sign, q1.T, q1.L, false);
    set_product(y, r0.T, r0.L, !r0.sign, p1.T, p1.L, !p1.sign);
    set_signed_sum(P, x.T, x.L, !x.sign, y.T, y.L, !y.sign);
}

void Pi_Chudnovsky_BSR_End_Q2(uint64_t k, Int& Q) {
    require(Q, 8, "Pi_Chudnovsky_BSR_End_Q2()");
    uint64_t aw[4], bw[4];
    Int a(aw, 4), b(bw, 4);
    cube_times(k, kChudQ, a);
    cube_times(k + 1, kChudQ, b);
    set_product(Q, a.T, a.L, false, b.T, b.L, false);
}

void Pi_Ramanujan_BSR_End_R1(uint64_t k, Int& R) {
    require(R, 3, "Pi_Ramanujan_BSR_End_R1()");
    set_u128_times_u64(R, ram_r_low(k), 4 * k - 1, false);
}

void Pi_Ramanujan_BSR_End_P1(uint64_t k, const Int& R, Int& P) {
    require(P, 5, "Pi_Ramanujan_BSR_End_P1()");
    uint64_t lin[2], n;
    linear_words(k, kRamA, kRamB, lin, n);
    set_product(P, R.T, R.L, !R.sign, lin, n, false);
}

void Pi_Ramanujan_BSR_End_Q1(uint64_t k, Int& Q) {
    require(Q, 4, "Pi_Ramanujan_BSR_End_Q1()");
    cube_times(k, kRamQ, Q);
}

void Pi_Ramanujan_BSR_End_R2(uint64_t k, Int& R) {
    require(R, 6, "Pi_Ramanujan_BSR_End_R2()");
    uint64_t r0w[3], r1w[3];
    Int r0(r0w, 3), r1(r1w, 3);
    Pi_Ramanujan_BSR_End_R1(k, r0);
    Pi_Ramanujan_BSR_End_R1(k + 1, r1);
    set_product(R, r0.T, r0.L, false, r1.T, r1.L, false);
}

void Pi_Ramanujan_BSR_End_PR2(uint64_t k, Int& P, Int* R) {
    require(P, 9, "Pi_Ramanujan_BSR_End_PR2()");
    if (R) Pi_Ramanujan_BSR_End_R2(k, *R);
    uint64_t r0w[3], r1w[3], p0w[5], p1w[5], q1w[4];
    Int r0(r0w, 3), r1(r1w, 3), p0(p0w, 5), p1(p1w, 5), q1(q1w, 4);
    Pi_Ramanujan_BSR_End_R1(k, r0);
    Pi_Ramanujan_BSR_End_R1(k + 1, r1);
    Pi_Ramanujan_BSR_End_P1(k, r0, p0);
    Pi_Ramanujan_BSR_End_P1(k + 1, r1, p1);
    Pi_Ramanujan_BSR_End_Q1(k + 1, q1);
    uint64_t xw[9], yw[8];
    Int x(xw, 9), y(yw, 8);
    set_product(x, p0.T, p0.L, false, q1.T, q1.L, false);
    set_product(y, r0.T, r0.L, false, p1.T, p1.L, false);
    set_signed_sum(P, x.T, x.L, false, y.T, y.L, false);
}

void Pi_Ramanujan_BSR_End_Q2(uint64_t k, Int& Q) {
    require(Q, 7, "Pi_Ramanujan_BSR_End_Q2()");
    uint64_t aw[4], bw[4];
    Int a(aw, 4), b(bw, 4);
    cube_times(k, kRamQ, a);
    cube_times(k + 1, kRamQ, b);
    uint64_t w[8];
    Int t(w, 8);
    set_product(t, a.T, a.L, false, b.T, b.L, false);
    if (t.L > 7) throw qmp::BufferTooSmallException("Pi_Ramanujan_BSR_End_Q2()", 7, t.L);
    Q.T = Q.base;
    qmp::copy_words(Q.T, t.T, t.L);
    Q.L = t.L;
    Q.sign = true;
}

namespace {

// A pi series: the shared shape (cubic R and Q, linear factor), its leaves and sizer.
class PiSeries final : public PQRSeries {
public:
    enum class Kind { Chudnovsky, Ramanujan };
    explicit PiSeries(Kind kind) : kind_(kind) {}

    std::string name() const override { return kind_ == Kind::Chudnovsky ? "Chudnovsky" : "Ramanujan"; }

    PQRGrowth growth() const override {
        // |R(k)| <= 72 k^3 (Chudnovsky), 32 k^3 (Ramanujan); lin(k) <= (a + b) k.
        const double r = kind_ == Kind::Chudnovsky ? std::log2(72.0) : std::log2(32.0);
        const double q = std::log2(double(kind_ == Kind::Chudnovsky ? kChudQ : kRamQ));
        const double lin = std::log2(double(kind_ == Kind::Chudnovsky ? kChudA + kChudB : kRamA + kRamB));
        const double eps = 1e-9;
        return {GrowthBound{r + lin + eps, 4}, GrowthBound{q + eps, 3}, GrowthBound{r + eps, 3}};
    }

    void term(uint64_t k, TermValue& P, TermValue& Q, TermValue& R) const override {
        Int p(P.w, TermValue::kMaxWords), q(Q.w, TermValue::kMaxWords), r(R.w, TermValue::kMaxWords);
        if (kind_ == Kind::Chudnovsky) {
            Pi_Chudnovsky_BSR_End_R1(k, r);
            Pi_Chudnovsky_BSR_End_P1(k, r, p);
            Pi_Chudnovsky_BSR_End_Q1(k, q);
        } else {
            Pi_Ramanujan_BSR_End_R1(k, r);
            Pi_Ramanujan_BSR_End_P1(k, r, p);
            Pi_Ramanujan_BSR_End_Q1(k, q);
        }
        P.L = uint32_t(p.L), P.negative = !p.sign;
        Q.L = uint32_t(q.L), Q.negative = false;
        R.L = uint32_t(r.L), R.negative = !r.sign;
    }

    void term_residues(uint64_t k, uint64_t& P, uint64_t& Q, uint64_t& R) const override {
        using qmp::add_m61;
        using qmp::mul_m61;
        const uint64_t x = m61(k);
        const uint64_t k3 = mul_m61(mul_m61(x, x), x);
        if (kind_ == Kind::Chudnovsky) {
            const uint64_t r = mul_m61(mul_m61(qmp::sub_m61(mul_m61(2, x), 1), qmp::sub_m61(mul_m61(6, x), 5)),
                                       qmp::sub_m61(mul_m61(6, x), 1));
            R = qmp::sub_m61(0, r);
            Q = mul_m61(k3, m61(kChudQ));
            P = mul_m61(R, add_m61(mul_m61(kChudA, x), kChudB));
        } else {
            R = mul_m61(mul_m61(qmp::sub_m61(mul_m61(2, x), 1), qmp::sub_m61(mul_m61(4, x), 3)),
                        qmp::sub_m61(mul_m61(4, x), 1));
            Q = mul_m61(k3, m61(kRamQ));
            P = mul_m61(R, add_m61(mul_m61(kRamA, x), kRamB));
        }
    }

    bool leaf(uint64_t a, uint64_t b, Int& P, Int& Q, Int& R, bool need_R) const override {
        if (kind_ == Kind::Chudnovsky) {
            if (b - a == 1) {
                Pi_Chudnovsky_BSR_End_R1(a, R);
                Pi_Chudnovsky_BSR_End_P1(a, R, P);
                Pi_Chudnovsky_BSR_End_Q1(a, Q);
            } else {
                Pi_Chudnovsky_BSR_End_PR2(a, P, need_R ? &R : nullptr);
                Pi_Chudnovsky_BSR_End_Q2(a, Q);
            }
        } else {
            if (b - a == 1) {
                Pi_Ramanujan_BSR_End_R1(a, R);
                Pi_Ramanujan_BSR_End_P1(a, R, P);
                Pi_Ramanujan_BSR_End_Q1(a, Q);
            } else {
                Pi_Ramanujan_BSR_End_PR2(a, P, need_R ? &R : nullptr);
                Pi_Ramanujan_BSR_End_Q2(a, Q);
            }
        }
        return true;
    }

    uint64_t leaf_min_words(uint64_t terms, unsigned output) const override {
        static constexpr uint64_t kOne[3] = {5, 4, 3};
        static constexpr uint64_t kTwoChudnovsky[3] = {9, 8, 6};
        static constexpr uint64_t kTwoRamanujan[3] = {9, 7, 6};
        if (terms == 1) return kOne[output];
        return (kind_ == Kind::Chudnovsky ? kTwoChudnovsky : kTwoRamanujan)[output];
    }

    void approximate(uint64_t k, long double& P, long double& Q, long double& R) const override {
        const long double x = (long double)k;
        if (kind_ == Kind::Chudnovsky) {
            R = (2 * x - 1) * (6 * x - 5) * (6 * x - 1);
            Q = x * x * x * (long double)kChudQ;
            P = R * ((long double)kChudA * x + kChudB);
        } else {
            R = (2 * x - 1) * (4 * x - 3) * (4 * x - 1);
            Q = x * x * x * (long double)kRamQ;
            P = R * ((long double)kRamA * x + kRamB);
        }
    }

    uint64_t terms_for_words(uint64_t words) const override {
        return qmp::BinarySplitting::scan_term_count(*this, words, kind_ == Kind::Chudnovsky
                                                                       ? "SeriesStub_Pi_Chudnovsky()"
                                                                       : "SeriesStub_Pi_Ramanujan()");
    }

private:
    Kind kind_;
};

}  // namespace

std::unique_ptr<PQRSeries> SeriesStub_Pi_Chudnovsky() {
    return std::make_unique<PiSeries>(PiSeries::Kind::Chudnovsky);
}

std::unique_ptr<PQRSeries> SeriesStub_Pi_Ramanujan() {
    return std::make_unique<PiSeries>(PiSeries::Kind::Ramanujan);
}

}  // namespace qv
