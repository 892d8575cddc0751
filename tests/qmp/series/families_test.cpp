// BinaryBBP, Hyperdescent and BrentMcMillanAB ranges against their defining sums, built here
// as exact integers; pi by the BBP formula and e by Hyperdescent against the reference digits;
// binomial coefficients against Pascal's rule.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qmp/exception.h"
#include "qmp/series/binary_bbp.h"
#include "qmp/series/brent_mcmillan_ab.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/hyperdescent.h"
#include "qmp/words/mod_m61.h"
#include "qmp/series/polynomial_series.h"
#include "qmp/series/psr_series.h"
#include "tests/qmp/series/exact_integer.h"
#include "tests/qmp/series/series_test_support.h"
#include "tests/test_support.h"

namespace qmp::BinarySplitting {
namespace {

using qmp::test::Exact;
using qmp::test::TestBuffer;

template <class F>
struct FamilyRun {
    std::vector<std::vector<uint64_t>> words;
    BSRNode<F> node;
    // Blocks of at most `block_words` output words, so merges above the blocks run too.
    FamilyRun(const typename F::Series& s, uint64_t a, uint64_t b, unsigned mask = F::kAll, uint64_t block_words = 48) {
        BSR<F> bsr(s, MulEnv{&qmp::test::series_table()}, nullptr, 0, block_words);
        const auto caps = F::caps(s, a, b);
        words.resize(F::kOutputs);
        for (unsigned i = 0; i < F::kOutputs; ++i) {
            words[i].assign(caps[i], 0);
            node.x[i] = Int(words[i].data(), caps[i]);
        }
        TestBuffer scratch(bsr.need(a, b, mask, 1) + 128);
        bsr.BSR_S(a, b, node, mask, WorkArena(scratch.view), 1);
    }
};

// Words of agreement between V = ((CQ + CP S) / CD)^power from PSR_SeriesB<F> and a reference.
template <class F>
int64_t top_level_agreement(const typename F::Series& s, uint64_t words, SeriesCoefficients c, const char* file,
                            int power = 1) {
    const MulEnv env{&qmp::test::series_table()};
    PSR_SeriesB<F> psr(s, power, c);
    TestBuffer buffer(psr.memory_bytes(env, words, 1));
    std::vector<uint64_t> nw(PSR_SeriesB<F>::result_words(words)), dw(PSR_SeriesB<F>::result_words(words));
    BigFloat<uint64_t> num(nw.data(), nw.size()), den(dw.data(), dw.size());
    psr.run(words, env, 1, buffer.view, num, den);
    std::vector<uint64_t> storage;
    const BigFloat<uint64_t> ref = qmp::test::hex_reference(qmp::test::read_reference(file), words + 2, storage);
    return qmp::test::agreeing_words(num, den, ref);
}

long double approximate(const BigFloat<uint64_t>& x) {
    long double v = 0;
    for (uint64_t i = x.L; i-- > 0 && i + 3 >= x.L;) v += std::ldexp((long double)x.T[i], int(64 * (x.exp + int64_t(i))));
    return x.sign ? v : -v;
}

// p and q of the BBP formula for pi in k' = k + 1: sum_{k'>=1} 16^-k' p/q = pi / 16.
class PiBBP final : public BBPSeries {
public:
    std::string name() const override { return "pi BBP"; }
    uint64_t shift_bits() const override { return 4; }
    // (8k+1)(8k+4)(8k+5)(8k+6) and 4(8k+4)(8k+5)(8k+6) - 2(8k+1)(8k+5)(8k+6) - (8k+1)(8k+4)(8k+6)
    // - (8k+1)(8k+4)(8k+5), at k = k' - 1: factors 8k'-7, 8k'-4, 8k'-3, 8k'-2.
    static int64_t q(int64_t x) { return (8 * x - 7) * (8 * x - 4) * (8 * x - 3) * (8 * x - 2); }
    static int64_t p(int64_t x) {
        return 4 * (8 * x - 4) * (8 * x - 3) * (8 * x - 2) - 2 * (8 * x - 7) * (8 * x - 3) * (8 * x - 2) -
               (8 * x - 7) * (8 * x - 4) * (8 * x - 2) - (8 * x - 7) * (8 * x - 4) * (8 * x - 3);
    }
    PQRGrowth growth() const override { return {{std::log2(8192.0), 3}, {std::log2(4096.0), 4}, {0, 0}}; }
    void term(uint64_t k, TermValue& P, TermValue& Q, TermValue& R) const override {
        const int64_t pv = p(int64_t(k));
        P.set_u64(uint64_t(pv < 0 ? -pv : pv), pv < 0);
        Q.set_u64(uint64_t(q(int64_t(k))));
        R.set_u64(1);
    }
    void term_residues(uint64_t k, uint64_t& P, uint64_t& Q, uint64_t& R) const override {
        const int64_t pv = p(int64_t(k));
        P = pv < 0 ? qmp::sub_m61(0, qmp::reduce_m61(uint64_t(-pv))) : qmp::reduce_m61(uint64_t(pv));
        Q = qmp::reduce_m61(uint64_t(q(int64_t(k))));
        R = 1;
    }
    uint64_t terms_for_words(uint64_t words) const override { return 16 * words + 4; }
};

TEST(BinaryBBP, RangesEqualTheScaledSumAndPiMatchesReference) {
    PiBBP s;
    for (uint64_t a : {1, 9, 4000}) {
        for (uint64_t n : {1, 2, 7, 33, 90}) {
            FamilyRun<BinaryBBP> r(s, a, a + n);
            Exact P, Q = Exact::of(1);
            for (uint64_t k = a; k < a + n; ++k) {
                Exact t = Exact::of(PiBBP::p(int64_t(k))) * Exact::pow2(4 * (a + n - 1 - k));
                for (uint64_t j = a; j < a + n; ++j)
                    if (j != k) t = t * Exact::of(PiBBP::q(int64_t(j)));
                P = P + t;
                Q = Q * Exact::of(PiBBP::q(int64_t(k)));
            }
            EXPECT_TRUE(P.equals(r.node.x[0])) << a << " " << n;
            EXPECT_TRUE(Q.equals(r.node.x[1])) << a << " " << n;
        }
    }
    // pi = 16 S through the shared top level.
    EXPECT_GE(top_level_agreement<BinaryBBP>(s, 60, {16, 0, 1}, "pi-hex-1m.txt"), 60);
}

TEST(Hyperdescent, RangesEqualTheSignedSumAndEMatchesReference) {
    for (int sign : {1, -1}) {
        // Q(k) = 2k^2 + 3k + 1 = (2k + 1)(k + 1): multi-word products, forward differences of degree 2.
        HyperdescentSeries s({1, 3, 2}, sign);
        for (uint64_t a : {1, 5, 3000000}) {
            for (uint64_t n : {1, 3, 24, 25, 77, 200}) {
                FamilyRun<Hyperdescent> r(s, a, a + n);
                Exact P, Q = Exact::of(1);
                for (uint64_t k = a; k < a + n; ++k) {
                    Exact t = Exact::of((sign < 0 && (k - a) % 2 == 0) ? -1 : 1);
                    for (uint64_t j = k + 1; j < a + n; ++j) t = t * Exact::of(int64_t(2 * j * j + 3 * j + 1));
                    P = P + t;
                    Q = Q * Exact::of(int64_t(2 * k * k + 3 * k + 1));
                }
                EXPECT_TRUE(P.equals(r.node.x[0])) << sign << " " << a << " " << n;
                EXPECT_TRUE(Q.equals(r.node.x[1])) << sign << " " << a << " " << n;
            }
        }
    }
    // e = 1 + S with Q(k) = k, and e = 1 / (1 + S) with the alternating series.
    EXPECT_GE(top_level_agreement<Hyperdescent>(HyperdescentSeries({0, 1}, 1), 300, {1, 1, 1}, "e-hex-1m.txt"), 300);
    EXPECT_GE(top_level_agreement<Hyperdescent>(HyperdescentSeries({0, 1}, -1), 300, {1, 1, 1}, "e-hex-1m.txt", -1),
              300);
}

TEST(Hyperdescent, BinomialsFollowPascalsRule) {
    std::vector<std::vector<unsigned __int128>> pascal(70);
    for (uint64_t n = 0; n < 70; ++n) {
        pascal[n].assign(n + 1, 1);
        for (uint64_t k = 1; k < n; ++k) pascal[n][k] = pascal[n - 1][k - 1] + pascal[n - 1][k];
    }
    for (uint64_t n = 0; n <= 67; ++n) {
        std::vector<uint64_t> row(n + 1);
        binomial_row(n, row.data());
        for (uint64_t k = 0; k <= n; ++k) {
            EXPECT_EQ(binomial_coefficient_u64(n, k), uint64_t(pascal[n][k])) << n << " " << k;
            EXPECT_EQ(row[k], uint64_t(pascal[n][k])) << n << " " << k;
        }
    }
    EXPECT_EQ(binomial_coefficient_u64(5, 7), 0u);
    qmp::test::expect_throw<LimitExceededException>([] { binomial_coefficient_u64(68, 34); },
                                                    "binomial_coefficient_u64()", "Binomial coefficient overflows 64 bits.");
}

TEST(BrentMcMillanAB, RangesEqualTheHarmonicSums) {
    BrentMcMillanSeries s(3);  // n = 8
    const int64_t n2 = 64;
    for (uint64_t a : {1, 4, 30}) {
        for (uint64_t len : {1, 2, 5, 21, 60}) {
            const uint64_t b = a + len;
            FamilyRun<BrentMcMillanAB> r(s, a, b);
            auto prod = [&](uint64_t lo, uint64_t hi, int power, uint64_t skip) {
                Exact x = Exact::of(1);
                for (uint64_t j = lo; j < hi; ++j)
                    if (j != skip) x = power == 2 ? x * Exact::of(int64_t(j * j)) : x * Exact::of(int64_t(j));
                return x;
            };
            Exact R = Exact::of(1), P, C, V;
            for (uint64_t k = a; k < b; ++k) {
                R = R * Exact::of(n2);  // n^(2 (k - a + 1))
                P = P + R * prod(k + 1, b, 2, 0);
                C = C + prod(a, b, 1, k);
                Exact harmonic;  // D * sum_{i=a..k} 1/i
                for (uint64_t i = a; i <= k; ++i) harmonic = harmonic + prod(a, b, 1, i);
                V = V + R * prod(k + 1, b, 2, 0) * harmonic;
            }
            const Exact expected[6] = {P, prod(a, b, 2, 0), R, prod(a, b, 1, 0), C, V};
            for (unsigned i = 0; i < 6; ++i) EXPECT_TRUE(expected[i].equals(r.node.x[i])) << a << " " << len << " " << i;
        }
    }
    // gamma = U / B - k ln 2 through the shared top level, to long double precision.
    const BrentMcMillanAB::Size one = BrentMcMillanAB::SeriesSizer(1);
    BrentMcMillanSeries gamma_series(one.log2_n, one.terms);
    const MulEnv env{&qmp::test::series_table()};
    PSR_SeriesB<BrentMcMillanAB> psr(gamma_series, 1);
    TestBuffer buffer(psr.memory_bytes(env, 2, 1));
    std::vector<uint64_t> nw(8), dw(8);
    BigFloat<uint64_t> num(nw.data(), nw.size()), den(dw.data(), dw.size());
    psr.run(2, env, 1, buffer.view, num, den);
    const long double gamma = approximate(num) / approximate(den) - one.log2_n * std::log(2.0L);
    EXPECT_NEAR(double(gamma), 0.57721566490153286061, 1e-15);

    const BrentMcMillanAB::Size size = BrentMcMillanAB::SeriesSizer(100);
    // 8 n covers 100 words (6400 bits) in nats, and K / n is near alpha.
    EXPECT_GE(8.0 * std::ldexp(1.0, int(size.log2_n)), 100 * 64 * std::log(2.0));
    EXPECT_LT(4.0 * std::ldexp(1.0, int(size.log2_n)), 100 * 64 * std::log(2.0) + 32);
    EXPECT_NEAR(double(size.terms) / std::ldexp(1.0, int(size.log2_n)), 4.97, 0.1);
}

}  // namespace
}  // namespace qmp::BinarySplitting
