// The two-formula extraction against the reference hexadecimal digits of pi (a spread of
// positions from 0 to the last one the file covers, on every kernel), the error bound against
// 32 known digits, threads and pinning giving the same sums, and an injected fault in one
// term of either formula stopping the run with both values.
#include "formulas/bbp/hex_digit_extractor.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv::bbp {
namespace {

// The fractional hexadecimal digits of pi from the reference file (1,000,000 of them).
const std::string& reference_digits() {
    static const std::string digits = [] {
        std::ifstream in("/work/shared/reference/pi-hex-1m.txt");
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        return text.size() > 2 ? text.substr(2) : std::string();
    }();
    return digits;
}

ExtractionResult extract(uint64_t position, uint32_t threads = 1, qmp::Parallelizer* p = nullptr) {
    ExtractorSettings s;
    s.position = position;
    s.threads = threads;
    s.parallelizer = p;
    return extract_pi_hex_digits(s);
}

void expect_reference_digits(const ExtractionResult& r) {
    const std::string& ref = reference_digits();
    ASSERT_GE(r.digits.size(), size_t(kMinPrintedDigits));
    const size_t available = std::min(r.digits.size(), ref.size() - size_t(r.position));
    EXPECT_EQ(r.digits.substr(0, available), ref.substr(size_t(r.position), available)) << "position " << r.position;
}

TEST(BbpExtractor, DigitsEqualTheReferenceAcrossTheFile) {
    ASSERT_EQ(reference_digits().size(), 1000000u);
    std::vector<uint64_t> positions = {0, 1, 2, 7, 8, 9, 15, 16, 31, 100, 1000, 65536, 999983, 999984};
    std::mt19937_64 rng(qmp::test::test_seed());
    for (int i = 0; i < 6; ++i) positions.push_back(rng() % 999985);
    SCOPED_TRACE(qmp::test::seed_note());
    for (uint64_t p : positions) expect_reference_digits(extract(p));
}

TEST(BbpExtractor, EveryKernelGivesTheSameSums) {
    const qmp::SimdLevel levels[] = {qmp::SimdLevel::Portable, qmp::SimdLevel::AVX2, qmp::SimdLevel::AVX512};
    for (uint64_t p : {uint64_t(12345), uint64_t(654321)}) {
        qmp::force_simd_level(qmp::SimdLevel::Portable);
        const ExtractionResult reference = extract(p);
        for (qmp::SimdLevel level : levels) {
            qmp::force_simd_level(level);
            const ExtractionResult r = extract(p);
            EXPECT_EQ(r.bbp.value, reference.bbp.value) << r.kernel;
            EXPECT_EQ(r.bellard.value, reference.bellard.value) << r.kernel;
            expect_reference_digits(r);
        }
    }
    qmp::force_simd_level(qmp::detected_simd_level());
}

TEST(BbpExtractor, ErrorBoundHoldsAgainstThirtyTwoKnownDigits) {
    // frac(16^p pi) truncated to 128 bits is the 32 reference digits after p: the exact value
    // lies in [ref, ref + 1) units, so |value - ref| <= error + 1 for each formula.
    const std::string& ref = reference_digits();
    for (uint64_t p : {uint64_t(0), uint64_t(4321), uint64_t(999968)}) {
        uint128 exact = 0;
        for (char c : ref.substr(size_t(p), 32)) exact = exact * 16 + uint128(c <= '9' ? c - '0' : c - 'a' + 10);
        const ExtractionResult r = extract(p);
        for (const FormulaSum* s : {&r.bbp, &r.bellard}) {
            const uint128 above = s->value - exact, below = exact - s->value;
            const uint128 distance = above < below ? above : below;
            EXPECT_LE(distance, uint128(s->error_units) + 1) << "position " << p;
            EXPECT_GT(s->error_units, 0u);
        }
    }
}

TEST(BbpExtractor, ThreadsAndPinningGiveTheSameSums) {
    const ExtractionResult one = extract(300000);
    std::unique_ptr<qmp::ParallelFramework> framework = make_extractor_framework(3);
    ASSERT_NE(framework, nullptr);
    const ExtractionResult three = extract(300000, 3, framework.get());
    EXPECT_EQ(three.bbp.value, one.bbp.value);
    EXPECT_EQ(three.bellard.value, one.bellard.value);
    EXPECT_EQ(three.digits, one.digits);

    ExtractorSettings pinned;
    pinned.position = 300000;
    pinned.threads = 2;
    pinned.parallelizer = framework.get();
    pinned.pin_order = {0};
    int progress_calls = 0;
    pinned.progress = [&](const ExtractionProgress& p) {
        ++progress_calls;
        EXPECT_GT(p.fraction, 0.0);
        EXPECT_LT(p.fraction, 1.0);
    };
    pinned.progress_interval_seconds = 0;  // a line after every range but the last
    const ExtractionResult r = extract_pi_hex_digits(pinned);
    EXPECT_EQ(r.bbp.value, one.bbp.value);
    EXPECT_GT(progress_calls, 0);
}

TEST(BbpExtractor, AFaultInOneTermMakesTheFormulasDisagree) {
    const ExtractionResult clean = extract(5000);
    for (int formula = 0; formula < 2; ++formula) {
        ExtractorSettings s;
        s.position = 5000;
        s.fault = {true, formula, 77, uint32_t(formula == 0 ? 2 : 5)};
        try {
            extract_pi_hex_digits(s);
            ADD_FAILURE() << "no disagreement for formula " << formula;
        } catch (const qmp::AlgorithmFailedException& e) {
            EXPECT_EQ(e.function(), "HexDigitExtractor::extract()");
            // The value of the formula without the fault is reported as computed cleanly.
            const std::string bbp = "BBP = 0." + hex128(clean.bbp.value);
            const std::string bellard = "Bellard = 0." + hex128(clean.bellard.value);
            EXPECT_EQ(e.message().rfind("The two formulas disagree at position 5000: BBP = 0.", 0), 0u) << e.message();
            EXPECT_NE(e.message().find(formula == 0 ? bellard : bbp), std::string::npos) << e.message();
            EXPECT_EQ(e.message().find(formula == 0 ? bbp : bellard), std::string::npos) << e.message();
        }
    }
}

TEST(BbpExtractor, RefusesPositionsBeyondTheLimit) {
    qmp::test::expect_throw<qmp::InvalidParametersException>(
        [] { extract(kMaxHexPosition + 1); }, "HexDigitExtractor::extract()",
        "The position must not exceed 1000000000000000000.");
}

TEST(BbpHexInterval, DigitsFixedByAnIntervalAndOverlaps) {
    const uint128 x = (uint128(0x243f6a8885a308d3ull) << 64) | 0x13198a2e03707344ull;
    EXPECT_EQ(HexInterval::around(x, 0).certain_digits(), 32);
    EXPECT_EQ(HexInterval::around(x, 0).digits(32), "243f6a8885a308d313198a2e03707344");
    // +-0x1000 changes the last four digits at most: 0x7344 - 0x1000 .. 0x7344 + 0x1000.
    EXPECT_EQ(HexInterval::around(x, 0x1000).certain_digits(), 28);
    // An interval reaching past 0 fixes nothing, nor one of half the circle.
    EXPECT_EQ(HexInterval::around(5, 6).certain_digits(), 0);
    EXPECT_EQ(HexInterval::around(~uint128(0) - 2, 6).certain_digits(), 0);
    EXPECT_EQ(HexInterval::around(x, uint64_t(1) << 63).certain_digits(), 0);

    const auto both = intersect(HexInterval::around(1000, 10), HexInterval::around(1015, 10));
    ASSERT_TRUE(both.has_value());
    EXPECT_EQ(both->low, uint128(1005));
    EXPECT_EQ(both->high, uint128(1010));
    EXPECT_FALSE(intersect(HexInterval::around(1000, 10), HexInterval::around(1021, 10)).has_value());
    // Overlap across 0.
    const auto wrapped = intersect(HexInterval::around(2, 5), HexInterval::around(~uint128(0), 5));
    ASSERT_TRUE(wrapped.has_value());
    EXPECT_EQ(wrapped->low, ~uint128(0) - 2);
    EXPECT_EQ(wrapped->high, uint128(4));
}

}  // namespace
}  // namespace qv::bbp
