// Pi by both series against the hexadecimal reference (the residue of floor(pi 16^h), formed
// here from the reference text), identical words on 1 and 2 threads and on the portable SIMD
// path, the leaf buffer needs with their exact routine names, the Chudnovsky linear factor on
// both sides of its word-size switch, and the checked final product firing on a fault.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "formulas/pi/pi_finish.h"
#include "formulas/pi/pi_series.h"
#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "qmp/parallel/parallel_framework.h"
#include "qmp/series/truncated_top.h"
#include "qmp/words/mod_m61.h"
#include "tests/qmp/series/series_test_support.h"
#include "tests/test_support.h"

namespace qv {
namespace {

using qmp::test::TestBuffer;

uint64_t reference_residue(uint64_t h) {
    static const std::string ref = qmp::test::read_reference("pi-hex-1m.txt");
    uint64_t r = 3;
    for (uint64_t i = 0; i < h; ++i) {
        const char c = ref[2 + i];
        r = qmp::add_m61(qmp::mul_pow2_m61(r, 4), uint64_t(c <= '9' ? c - '0' : c - 'a' + 10));
    }
    return r;
}

struct PiRun {
    std::vector<uint64_t> words;
    qmp::BigFloat<uint64_t> value;
    PiRun(const std::string& algorithm, uint64_t digits, qmp::Parallelizer* par, uint64_t tds) {
        const uint64_t w = uint64_t(std::ceil(digits * std::log2(10.0) / 64)) + 1;
        Pi_Series_BigFloatR pi(algorithm, qmp::test::series_table(), w, tds);
        TestBuffer buffer(pi.memory_bytes());
        words.assign(pi.result_words(), 0);
        value = qmp::BigFloat<uint64_t>(words.data(), words.size());
        pi.run(value, buffer.view, par, nullptr);
    }
};

TEST(PiSeries, BothSeriesMatchTheReference) {
    for (const char* algorithm : {"chudnovsky", "ramanujan"}) {
        for (uint64_t digits : {1000, 10000, 100000}) {
            PiRun run(algorithm, digits, nullptr, 1);
            const uint64_t h = uint64_t(std::floor(digits * std::log2(10.0) / 4)) - 16;
            EXPECT_EQ(hex_prefix_residue(run.value, h), reference_residue(h)) << algorithm << " " << digits;
        }
    }
    // The top products formed from three half-length products each, as at 10^8 digits and above
    // (the Ramanujan series' halves outgrow the precision from 10^4 digits, Chudnovsky's later).
    qmp::BinarySplitting::set_top_split_min_words(0);
    for (uint64_t digits : {10000, 100000}) {
        PiRun run("ramanujan", digits, nullptr, 1);
        const uint64_t h = uint64_t(std::floor(digits * std::log2(10.0) / 4)) - 16;
        EXPECT_EQ(hex_prefix_residue(run.value, h), reference_residue(h)) << "split top " << digits;
    }
    qmp::BinarySplitting::set_top_split_min_words(qmp::BinarySplitting::kTopSplitMinWords);
}

TEST(PiSeries, SameWordsOnTwoThreadsAndOnThePortablePath) {
    auto settings = qmp::find_parallel_framework("pushpool").default_config();
    settings.get("WorkerThreads", "test") = qmp::ConfigObject::make_integer(2);
    auto framework = qmp::make_parallel_framework(settings);
    const uint64_t digits = 300000;  // large enough for parallel halves and parallel checks
    PiRun one("chudnovsky", digits, nullptr, 1), two("chudnovsky", digits, framework.get(), 2);
    EXPECT_EQ(one.words, two.words);
    const qmp::SimdLevel saved = qmp::active_simd_level();
    qmp::force_simd_level(qmp::SimdLevel::Portable);
    PiRun portable("chudnovsky", digits, nullptr, 1);
    qmp::force_simd_level(saved);
    EXPECT_EQ(one.words, portable.words);
}

TEST(PiSeries, LeavesRefuseShortBuffersByName) {
    uint64_t w[16];
    auto expect_need = [&](const char* name, uint64_t need, auto call) {
        Int x(w, need - 1);
        try {
            call(x);
            ADD_FAILURE() << name;
        } catch (const qmp::BufferTooSmallException& e) {
            EXPECT_EQ(e.function(), name);
            EXPECT_EQ(e.required_size(), need);
        }
    };
    expect_need("Pi_Chudnovsky_BSR_End_R1()", 3, [](Int& x) { Pi_Chudnovsky_BSR_End_R1(5, x); });
    expect_need("Pi_Chudnovsky_BSR_End_Q1()", 4, [](Int& x) { Pi_Chudnovsky_BSR_End_Q1(5, x); });
    expect_need("Pi_Chudnovsky_BSR_End_PR2()", 9, [](Int& x) { Pi_Chudnovsky_BSR_End_PR2(5, x, nullptr); });
    expect_need("Pi_Chudnovsky_BSR_End_Q2()", 8, [](Int& x) { Pi_Chudnovsky_BSR_End_Q2(5, x); });
    expect_need("Pi_Ramanujan_BSR_End_R2()", 6, [](Int& x) { Pi_Ramanujan_BSR_End_R2(5, x); });
    expect_need("Pi_Ramanujan_BSR_End_Q2()", 7, [](Int& x) { Pi_Ramanujan_BSR_End_Q2(5, x); });
    qmp::test::expect_throw<qmp::InvalidParametersException>(
        [] { Pi_Series_BigFloatR("machin", qmp::test::series_table(), 10, 1); },
        "Pi_Series_BigFloatR::Pi_Series_BigFloatR()", "Algorithm must be \"chudnovsky\" or \"ramanujan\".");
}

// P(k) / R(k) = 545140134 k + 13591409 exactly, one word below 33838536045 and two from it on.
TEST(PiSeries, ChudnovskyLinearFactorAcrossItsWordSwitch) {
    for (uint64_t k : {kChudnovskyWideLinearTerm - 1, kChudnovskyWideLinearTerm, kChudnovskyWideLinearTerm + 7}) {
        uint64_t rw[3], pw[5];
        Int R(rw, 3), P(pw, 5);
        Pi_Chudnovsky_BSR_End_R1(k, R);
        Pi_Chudnovsky_BSR_End_P1(k, R, P);
        const unsigned __int128 lin = (unsigned __int128)545140134 * k + 13591409;
        EXPECT_EQ(lin >> 64 != 0, k >= kChudnovskyWideLinearTerm);
        // R * lin from R's words and the 128-bit factor, schoolbook in the test.
        uint64_t expect[5] = {};
        const uint64_t f[2] = {uint64_t(lin), uint64_t(lin >> 64)};
        for (int i = 0; i < 3; ++i) {
            unsigned __int128 c = 0;
            for (int j = 0; j < 2; ++j) {
                c += (unsigned __int128)(i < int(R.L) ? rw[i] : 0) * f[j] + expect[i + j];
                expect[i + j] = uint64_t(c);
                c >>= 64;
            }
            expect[i + 2] += uint64_t(c);
        }
        for (uint64_t i = 0; i < 5; ++i) EXPECT_EQ(i < P.L ? pw[i] : 0, expect[i]) << k << " word " << i;
        EXPECT_FALSE(P.sign);
    }
}

// The first omitted Chudnovsky term, (6k)! / ((3k)! k!^3 640320^(3k)) (545140134 k + 13591409)
// by lgamma, is below 2^(-64 words): a sizer that stops a term early fails here.
TEST(PiSeries, ChudnovskySizerLeavesNoTermAbovePrecision) {
    auto series = SeriesStub_Pi_Chudnovsky();
    auto log2_term = [](double k) {
        return (std::lgamma(6 * k + 1) - std::lgamma(3 * k + 1) - 3 * std::lgamma(k + 1) - 3 * k * std::log(640320.0) +
                std::log(545140134.0 * k + 13591409.0)) / std::log(2.0);
    };
    for (uint64_t words : {2, 30, 1000, 40000}) {
        const uint64_t n = series->terms_for_words(words);
        EXPECT_LT(log2_term(double(n + 1)), -64.0 * double(words)) << words;
        EXPECT_GT(log2_term(double(n)), -64.0 * double(words) - 120) << "not minimal at " << words;
    }
}

TEST(PiSeries, CheckedFinalProductFiresOnFault) {
    Pi_Series_BigFloatR::set_product_fault([](uint64_t* w, uint64_t n) { w[n / 2] ^= 1; });
    qmp::test::expect_throw<qmp::AlgorithmFailedException>([] { PiRun run("chudnovsky", 5000, nullptr, 1); },
                                                           "Pi_Series_BigFloatR::run()",
                                                           "Checksum Mismatch. Multiplication Failed.");
    Pi_Series_BigFloatR::set_product_fault(nullptr);
}

}  // namespace
}  // namespace qv
