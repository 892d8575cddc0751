// The P/Q/R recursion against exact fractions summed directly, the redundancy check firing on
// faults injected into a leaf, a merge and the truncated top of a sum, the plan refusals with their exact texts, and
// e = sum 1/k! (Power +1 and, through the alternating series, Power -1) against the reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "qmp/exception.h"
#include "qmp/parallel/parallel_framework.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/common_p2b3.h"
#include "qmp/series/polynomial_series.h"
#include "qmp/series/psr_series.h"
#include "qmp/series/series_sizer.h"
#include "tests/qmp/series/exact_integer.h"
#include "tests/qmp/series/series_test_support.h"
#include "tests/test_support.h"

namespace qmp::BinarySplitting {
namespace {

using qmp::test::Exact;
using qmp::test::TestBuffer;

Exact poly(const std::vector<int64_t>& c, uint64_t k) {
    Exact v, kk = Exact::of(int64_t(k));
    for (size_t i = c.size(); i-- > 0;) v = v * kk + Exact::of(c[i]);
    return v;
}

// Coefficients with multi-word values, signs and a zero: the leaf and merge carry real work.
const std::vector<int64_t> kP = {11, -4000000000000000000, 3};
const std::vector<int64_t> kQ = {3, -5, 0, 700000000000000000};
const std::vector<int64_t> kR = {0, -2, 9000000000000000};

struct RangeRun {
    std::vector<uint64_t> pw, qw, rw;
    BSRNode<CommonP2B3> node;
    void run(BSR<CommonP2B3>& bsr, const PQRSeries& s, uint64_t a, uint64_t b, uint64_t tds = 1) {
        const auto caps = CommonP2B3::caps(s, a, b);
        pw.assign(caps[0], 0), qw.assign(caps[1], 0), rw.assign(caps[2], 0);
        node.x[0] = Int(pw.data(), caps[0]), node.x[1] = Int(qw.data(), caps[1]), node.x[2] = Int(rw.data(), caps[2]);
        TestBuffer scratch(bsr.need(a, b, CommonP2B3::kAll, tds) + 128);
        bsr.BSR_S(a, b, node, CommonP2B3::kAll, WorkArena(scratch.view), tds);
    }
};

TEST(CommonP2B3, RangesEqualDirectSumsOfExactFractions) {
    for (auto form : {PolynomialSeries::Form::Direct, PolynomialSeries::Form::Linear}) {
        PolynomialSeries s("test", kP, kQ, kR, form);
        // Small blocks, so that merges above the blocks (checked one by one) run as well.
        BSR<CommonP2B3> bsr(s, MulEnv{&qmp::test::series_table()}, nullptr, 0, 64);
        for (uint64_t a : {uint64_t(1), uint64_t(7), uint64_t(1000003)}) {
            for (uint64_t n : {1, 2, 3, 5, 17, 40, 130}) {
                RangeRun r;
                r.run(bsr, s, a, a + n);
                Exact P, Q = Exact::of(1), R = Exact::of(1);
                for (uint64_t k = a; k < a + n; ++k) {
                    const Exact pk = form == PolynomialSeries::Form::Direct ? poly(kP, k) : poly(kR, k) * poly(kP, k);
                    // term k of P(a, b): R(a)..R(k-1) P(k) Q(k+1)..Q(b-1)
                    Exact t = R * pk;
                    for (uint64_t j = k + 1; j < a + n; ++j) t = t * poly(kQ, j);
                    P = P + t;
                    Q = Q * poly(kQ, k);
                    R = R * poly(kR, k);
                }
                EXPECT_TRUE(P.equals(r.node.x[0])) << "P a=" << a << " n=" << n;
                // Q is kept odd, its powers of two in the scale.
                EXPECT_TRUE(Q == Exact::from(r.node.x[1]) * Exact::pow2(r.node.scale)) << "Q a=" << a << " n=" << n;
                EXPECT_TRUE(r.node.x[1].L == 0 || (r.node.x[1].T[0] & 1)) << "Q not odd, a=" << a << " n=" << n;
                EXPECT_TRUE(R.equals(r.node.x[2])) << "R a=" << a << " n=" << n;
            }
        }
    }
}

// Two tasks (parallel halves, BSR_BlockT blocks, parallel checks) give the words of one.
TEST(CommonP2B3, TwoTasksGiveTheWordsOfOne) {
    auto settings = find_parallel_framework("pushpool").default_config();
    settings.get("WorkerThreads", "test") = ConfigObject::make_integer(2);
    auto framework = make_parallel_framework(settings);
    PolynomialSeries s("test", kP, kQ, kR, PolynomialSeries::Form::Linear);
    const MulEnv one{&qmp::test::series_table()}, two{&qmp::test::series_table(), framework.get(), 2};
    for (uint64_t block_words : {uint64_t(512), kBlockMaxWords}) {
        BSR<CommonP2B3> serial(s, one, nullptr, 0, block_words), parallel(s, two, nullptr, 0, block_words);
        RangeRun a, b;
        a.run(serial, s, 1, 9000, 1);
        b.run(parallel, s, 1, 9000, 2);
        for (unsigned i = 0; i < 3; ++i) {
            ASSERT_EQ(a.node.x[i].L, b.node.x[i].L);
            EXPECT_TRUE(std::equal(a.node.x[i].T, a.node.x[i].T + a.node.x[i].L, b.node.x[i].T)) << i;
            EXPECT_EQ(a.node.x[i].sign, b.node.x[i].sign);
        }
    }
}

const char* g_fault_stage = nullptr;
void flip_bit(const char* stage, uint64_t, uint64_t, BigInt<uint64_t>* outputs, unsigned) {
    if (g_fault_stage && std::string(stage) == g_fault_stage && outputs[1].L > 0) outputs[1].T[0] ^= 4;
}

TEST(CommonP2B3, RedundancyCheckFiresOnFaultInLeafAndInMerge) {
    PolynomialSeries s("test", kP, kQ, kR, PolynomialSeries::Form::Direct);
    BSR<CommonP2B3> bsr(s, MulEnv{&qmp::test::series_table()}, nullptr, 0, 64);
    set_bsr_fault_injector(flip_bit);
    for (const char* stage : {"leaf", "merge"}) {
        g_fault_stage = stage;
        RangeRun r;
        try {
            r.run(bsr, s, 1, 400);
            ADD_FAILURE() << "no check failure for a fault in a " << stage;
        } catch (const BSRCheckFailure& e) {
            EXPECT_EQ(e.function(), "qcb_Verify_BSR()");
            EXPECT_EQ(e.message().rfind("Modular Redundancy Check Failed", 0), 0u) << e.message();
            EXPECT_STREQ(e.type_name(), "BSRModularCheckFailedException");
            EXPECT_EQ(e.check0, 0u);  // Q was hit: the first value covers P only
            EXPECT_NE(e.check1, 0u);
        }
    }
    g_fault_stage = nullptr;
    RangeRun clean;
    EXPECT_NO_THROW(clean.run(bsr, s, 1, 400));

    // The top of a sum multiplies truncated operands (no shadow residues): each product and the
    // sum P = X + t are checked against their operands' residues instead.
    const MulEnv env{&qmp::test::series_table()};
    PSR_SeriesB<CommonP2B3> psr(s, 1);
    TestBuffer buffer(psr.memory_bytes(env, 30, 1));
    std::vector<uint64_t> nw(PSR_SeriesB<CommonP2B3>::result_words(30)), dw(nw.size());
    BigFloat<uint64_t> num(nw.data(), nw.size()), den(dw.data(), dw.size());
    for (int hit : {1, 4}) {  // the first product, and the sum
        static int countdown;
        countdown = hit;
        set_bsr_fault_injector([](const char* stage, uint64_t, uint64_t, BigInt<uint64_t>* out, unsigned) {
            if (std::string(stage) == "top" && --countdown == 0) out[0].T[0] ^= 1;
        });
        try {
            psr.run(30, env, 1, buffer.view, num, den);
            ADD_FAILURE() << "no check failure for fault " << hit << " at the top";
        } catch (const BSRCheckFailure& e) {
            EXPECT_EQ(e.a, 1u);
            EXPECT_EQ(e.b, psr.terms(30) + 1);
            EXPECT_NE(e.check0, 0u);
        }
    }
    set_bsr_fault_injector(nullptr);
}

TEST(CommonP2B3, PlanRefusalsHaveExactTexts) {
    PolynomialSeries s("test", kP, kQ, kR, PolynomialSeries::Form::Direct);
    const MulEnv env{&qmp::test::series_table()};
    BSR<CommonP2B3> bsr(s, env);
    const LeafPlan plan = bsr.make_plan(1, 50, CommonP2B3::kAll, 1);
    TestBuffer scratch(plan.memory_bytes + 128);
    std::vector<uint64_t> w(4 * (plan.output_words[0] + plan.output_words[1] + plan.output_words[2]));
    BSRNode<CommonP2B3> node;
    node.x[0] = Int(w.data(), plan.output_words[0]);
    node.x[1] = Int(w.data() + plan.output_words[0], plan.output_words[1]);
    node.x[2] = Int(w.data() + plan.output_words[0] + plan.output_words[1], plan.output_words[2]);
    qmp::test::expect_throw<InvalidParametersException>(
        [&] { BSR_BlockB<CommonP2B3>::run(s, plan, node, WorkArena(scratch.view), env, 2); }, "BSR_BlockB::run()",
        "Attempted to run with a larger tds than the plan supports.");
    node.x[1].capacity = plan.output_words[1] - 1;
    EXPECT_THROW(BSR_BlockB<CommonP2B3>::run(s, plan, node, WorkArena(scratch.view), env, 1), BufferTooSmallException);

    // Without room, a range of 100 terms is declined (the caller splits it); 99 terms fail.
    RangeRun r;
    const auto caps = CommonP2B3::caps(s, 1, 101);
    r.pw.assign(caps[0], 0), r.qw.assign(caps[1], 0), r.rw.assign(caps[2], 0);
    r.node.x[0] = Int(r.pw.data(), caps[0]), r.node.x[1] = Int(r.qw.data(), caps[1]), r.node.x[2] = Int(r.rw.data(), caps[2]);
    TestBuffer tiny(128);
    EXPECT_FALSE(bsr.BSR_End(1, 101, r.node, CommonP2B3::kAll, WorkArena(tiny.view), 1));
    qmp::test::expect_throw<InvalidParametersException>(
        [&] { bsr.BSR_S(1, 100, r.node, CommonP2B3::kAll, WorkArena(tiny.view), 1); },
        "BinarySplitting::CommonP2B3::BSR_BlockB::BSR_End()", "Unable to fit even 100 terms in memory.");

    qmp::test::expect_throw<InvalidParametersException>([&] { PSR_SeriesB<CommonP2B3>(s, 2); },
                                                        "BinarySplitting::CommonP2B3::PSR_SeriesB::PSR_SeriesB()",
                                                        "Power must be 1 or -1.");
    qmp::test::expect_throw<InvalidParametersException>(
        [&] { check_series_index("Sizer()", uint64_t(1) << 63, 100.0); }, "Sizer()",
        "Series index exceeded. Series summation will overflow a 64-bit integer.");
    qmp::test::expect_throw<InvalidParametersException>(
        [&] { check_series_index("Sizer()", 1000, 1e300); }, "Sizer()",
        "Series index exceeded. Series summation will overflow the BigFloat exponent.");
}

// e = 1 + sum_{k>=1} 1/k!  (R = 1, Q = k) and e = 1 / (1 + sum (-1)^k / k!) (R = -1, Power -1).
TEST(CommonP2B3, TaylorSeriesOfEMatchesReference) {
    const std::string ref = qmp::test::read_reference("e-hex-1m.txt");
    PolynomialSeries plain("e", {1}, {0, 1}, {1}, PolynomialSeries::Form::Linear);
    PolynomialSeries alternating("1/e", {1}, {0, 1}, {-1}, PolynomialSeries::Form::Linear);
    const MulEnv env{&qmp::test::series_table()};
    for (uint64_t digits : {1000, 10000, 100000}) {
        const uint64_t words = uint64_t(digits * std::log2(10.0) / 64) + 1;
        std::vector<uint64_t> storage;
        const BigFloat<uint64_t> e = qmp::test::hex_reference(ref, words + 2, storage);
        for (int power : {1, -1}) {
            PSR_SeriesB<CommonP2B3> psr(power == 1 ? plain : alternating, power, {1, 1, 1});
            TestBuffer buffer(psr.memory_bytes(env, words, 1));
            std::vector<uint64_t> nw(PSR_SeriesB<CommonP2B3>::result_words(words)),
                dw(PSR_SeriesB<CommonP2B3>::result_words(words));
            BigFloat<uint64_t> num(nw.data(), nw.size()), den(dw.data(), dw.size());
            psr.run(words, env, 1, buffer.view, num, den);
            EXPECT_GE(qmp::test::agreeing_words(num, den, e), int64_t(words)) << digits << " power " << power;
        }
    }
}

TEST(CommonP2B3, StatusLinesAndPlanDescription) {
    PolynomialSeries e("e", {1}, {0, 1}, {1}, PolynomialSeries::Form::Linear);
    const MulEnv env{&qmp::test::series_table()};
    PSR_SeriesB<CommonP2B3> psr(e, 1);
    TestBuffer buffer(psr.memory_bytes(env, 20, 1));
    std::vector<uint64_t> nw(30), dw(30);
    BigFloat<uint64_t> num(nw.data(), nw.size()), den(dw.data(), dw.size());
    testing::internal::CaptureStdout();
    psr.run(20, env, 1, buffer.view, num, den, true);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string terms = std::to_string(psr.terms(20));
    EXPECT_NE(out.find("Series CommonP2B3...  "), std::string::npos) << out;
    EXPECT_NE(out.find(terms + " terms  (Expansion Factor = "), std::string::npos) << out;
    EXPECT_NE(out.find("Summing: Index: " + terms), std::string::npos) << out;
    EXPECT_NE(out.find("Finishing Series"), std::string::npos) << out;
    BSR<CommonP2B3> bsr(e, env);
    const std::string plan = bsr.make_plan(3, 40, CommonP2B3::kAll, 1).print();
    EXPECT_EQ(plan.rfind("Leaf block [3, 40): tds 1 (max 1), output words ", 0), 0u) << plan;
}

// The term count leaves a tail below 2^(-64 w): checked with log2(1/(N+1)!) from lgamma, so a
// sizer that drops its last term fails here.
TEST(CommonP2B3, SizerKeepsTheTailBelowThePrecision) {
    PolynomialSeries e("e", {1}, {0, 1}, {1}, PolynomialSeries::Form::Linear);
    for (uint64_t words : {1, 10, 100, 1000, 5000}) {
        const uint64_t n = e.terms_for_words(words);
        const double first_omitted_log2 = -std::lgamma(double(n + 2)) / std::log(2.0);
        EXPECT_LT(first_omitted_log2, -64.0 * double(words)) << words;
        EXPECT_GT(-std::lgamma(double(n + 1)) / std::log(2.0), -64.0 * double(words) - 40) << "not minimal";
    }
    // Q(k) = 2k - 6 vanishes at k = 3: refused, where the scan would otherwise never end.
    PolynomialSeries pole("pole", {1}, {-6, 2}, {1}, PolynomialSeries::Form::Linear);
    EXPECT_THROW(pole.terms_for_words(10), InvalidParametersException);
}

}  // namespace
}  // namespace qmp::BinarySplitting
