// Words -> points -> words without a transform: the split must be the integer exactly (round
// trip for every width and digit mode, digits in their mode's range), and the release must turn
// any exact coefficient sequence - here the exact integer convolution of two splits - into the
// product words, whatever the task split. Guards: NaN, huge and off-integer coefficients,
// values past the output range.
#include "qmp/multiply/fft/release.h"
#include "qmp/multiply/fft/split.h"

#include "qmp/parallel/cppasync_framework.h"
#include "tests/qmp/multiply/multiply_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace qmp::fft {
namespace {

using test::Pattern;
using test::Rng;

// Smallest n (multiple of 8) whose 2n digit slots hold `digits` digits plus the carry digit.
uint64_t points_for(uint64_t digits) { return ((digits + 2) / 2 + 7) / 8 * 8; }

double digit_at(const std::vector<Block>& p, uint64_t n, uint64_t t) {
    return t < n ? p[t / 8].re[t % 8] : p[(t - n) / 8].im[(t - n) % 8];
}
void set_digit(std::vector<Block>& p, uint64_t n, uint64_t t, double v) {
    (t < n ? p[t / 8].re[t % 8] : p[(t - n) / 8].im[(t - n) % 8]) = v;
}

std::vector<uint64_t> structured(uint64_t words, int bits, uint64_t field) {
    std::vector<uint64_t> a(words, 0);
    for (uint64_t bit = 0; bit + bits <= words * 64; bit += bits)
        for (int i = 0; i < bits; ++i)
            if (field >> i & 1) a[(bit + i) / 64] |= uint64_t(1) << ((bit + i) % 64);
    return a;
}

std::vector<std::vector<uint64_t>> operands(Rng& rng, uint64_t words, int bits) {
    std::vector<uint64_t> single(words, 0);
    single[words - 1] = uint64_t(1) << 63;
    return {test::make_operand(rng, words, Pattern::Random), test::make_operand(rng, words, Pattern::Runs),
            std::vector<uint64_t>(words, ~uint64_t(0)), std::vector<uint64_t>(words, 0), single,
            structured(words, bits, uint64_t(1) << (bits - 1)),
            structured(words, bits, (uint64_t(1) << (bits - 1)) - 1)};
}

TEST(SplitRelease, RoundTripIsIdentityForEveryWidthAndMode) {
    SCOPED_TRACE(test::seed_note());
    Rng rng(test::test_seed());
    for (DigitMode mode : {DigitMode::Dithered, DigitMode::Balanced, DigitMode::Unsigned}) {
        for (int bits = 1; bits <= 24; ++bits) {
            for (uint64_t words : {1, 3, 17, 100}) {
                int which = 0;
                for (const auto& A : operands(rng, words, bits)) {
                    SCOPED_TRACE(std::string(digit_mode_name(mode)) + " bits=" + std::to_string(bits) +
                                 " words=" + std::to_string(words) + " operand=" + std::to_string(which++));
                    const uint64_t digits = split_digit_count(words, bits);
                    const uint64_t n = points_for(digits);
                    std::vector<Block> points(n / 8);
                    split_words(A.data(), words, bits, mode, points.data(), n, nullptr, 1);
                    const double lo = mode == DigitMode::Unsigned   ? 0
                                      : mode == DigitMode::Balanced ? -std::ldexp(1.0, bits - 1)
                                                                    : -std::ldexp(1.0, bits);
                    const double hi = mode == DigitMode::Unsigned   ? std::ldexp(1.0, bits) - 1
                                      : mode == DigitMode::Balanced ? std::ldexp(1.0, bits - 1)
                                                                    : std::ldexp(1.0, bits);
                    for (uint64_t t = 0; t < 2 * n; ++t) {
                        const double d = digit_at(points, n, t);
                        ASSERT_TRUE(d >= lo && d <= hi && d == std::floor(d)) << "digit " << t << " = " << d;
                        // The carry out of the top digit is one more digit, 0 or 1.
                        if (t == digits) {
                            ASSERT_TRUE(d == 0.0 || d == 1.0) << "carry digit " << d;
                        } else if (t > digits) {
                            ASSERT_EQ(d, 0.0) << "digit " << t;
                        } else if (mode == DigitMode::Balanced) {
                            ASSERT_LT(d, hi) << "digit " << t;
                        }
                    }
                    std::vector<uint64_t> C(words, 0x5555);
                    const ReleaseStatus s = release_points(points.data(), n, bits, digits + 1, C.data(), words, nullptr, 1);
                    ASSERT_EQ(s.max_distance, 0.0);
                    ASSERT_FALSE(s.overrun);
                    ASSERT_EQ(C, A);
                }
            }
        }
    }
}

// Exact integer convolution of two split operands, placed as the coefficients of an inverse
// transform; its release must be the product.
std::vector<Block> exact_convolution(const std::vector<Block>& a, const std::vector<Block>& b, uint64_t n) {
    std::vector<int64_t> da(2 * n), db(2 * n);
    uint64_t top_a = 0, top_b = 0;
    for (uint64_t t = 0; t < 2 * n; ++t) {
        da[t] = static_cast<int64_t>(digit_at(a, n, t));
        db[t] = static_cast<int64_t>(digit_at(b, n, t));
        if (da[t]) top_a = t + 1;
        if (db[t]) top_b = t + 1;
    }
    std::vector<__int128> c(2 * n, 0);
    for (uint64_t i = 0; i < top_a; ++i)
        for (uint64_t j = 0; j < top_b; ++j) c[i + j] += static_cast<__int128>(da[i]) * db[j];
    std::vector<Block> out(n / 8);
    for (uint64_t t = 0; t < 2 * n; ++t) set_digit(out, n, t, static_cast<double>(c[t]));
    return out;
}

TEST(SplitRelease, ReleaseOfExactConvolutionIsTheProductForAnyTaskSplit) {
    SCOPED_TRACE(test::seed_note());
    Rng rng(test::test_seed() + 1);
    CppAsyncFramework threads;
    struct Case { uint64_t AL, BL; int bits; DigitMode mode; };
    for (const Case& c : {Case{40, 40, 16, DigitMode::Dithered}, Case{37, 5, 20, DigitMode::Balanced},
                          Case{1, 1, 21, DigitMode::Dithered}, Case{2100, 2000, 18, DigitMode::Dithered},
                          Case{900, 700, 13, DigitMode::Unsigned}}) {
        for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
            SCOPED_TRACE("AL=" + std::to_string(c.AL) + " BL=" + std::to_string(c.BL) + " bits=" +
                         std::to_string(c.bits) + " pattern=" + std::to_string(int(pattern)));
            const auto A = test::make_operand(rng, c.AL, pattern);
            const auto B = test::make_operand(rng, c.BL, pattern);
            const uint64_t da = split_digit_count(c.AL, c.bits), db = split_digit_count(c.BL, c.bits);
            const uint64_t n = points_for(da + db);
            std::vector<Block> pa(n / 8), pb(n / 8);
            split_words(A.data(), c.AL, c.bits, c.mode, pa.data(), n, nullptr, 1);
            split_words(B.data(), c.BL, c.bits, c.mode, pb.data(), n, &threads, 5);
            const std::vector<Block> conv = exact_convolution(pa, pb, n);
            const auto expected = test::oracle_mul(A, B);
            for (uint64_t tds : {1, 2, 7}) {
                std::vector<uint64_t> C(c.AL + c.BL, 0xdead);
                const ReleaseStatus s = release_points(conv.data(), n, c.bits, da + db + 1, C.data(), C.size(),
                                                       tds > 1 ? &threads : nullptr, tds);
                ASSERT_EQ(s.max_distance, 0.0) << "tds=" << tds;
                ASSERT_FALSE(s.overrun) << "tds=" << tds;
                ASSERT_EQ(C, expected) << "tds=" << tds;
            }
        }
    }
}

TEST(SplitRelease, SplitDoesNotDependOnTheTaskSplit) {
    // Long balanced carry chains (fields 2^(b-1) - 1 with one carry started at the bottom) run
    // across every range boundary; the dithered chain meets quickly. Both must match inline.
    SCOPED_TRACE(test::seed_note());
    Rng rng(test::test_seed() + 2);
    CppAsyncFramework threads;
    const int bits = 17;
    const uint64_t words = 40000;
    std::vector<uint64_t> chain = structured(words, bits, (uint64_t(1) << (bits - 1)) - 1);
    chain[0] |= uint64_t(1) << (bits - 1);
    for (const auto& A : {chain, test::make_operand(rng, words, Pattern::Random)}) {
        for (DigitMode mode : {DigitMode::Balanced, DigitMode::Dithered}) {
            const uint64_t digits = split_digit_count(words, bits);
            const uint64_t n = points_for(digits) + 64;
            std::vector<Block> inline_points(n / 8), parallel_points(n / 8);
            split_words(A.data(), words, bits, mode, inline_points.data(), n, nullptr, 1);
            for (uint64_t tds : {2, 3, 8}) {
                split_words(A.data(), words, bits, mode, parallel_points.data(), n, &threads, tds);
                ASSERT_EQ(0, std::memcmp(inline_points.data(), parallel_points.data(), n * 16))
                    << digit_mode_name(mode) << " tds=" << tds;
            }
            std::vector<uint64_t> C(words);
            ASSERT_FALSE(release_points(parallel_points.data(), n, bits, digits + 1, C.data(), words, &threads, 4).overrun);
            ASSERT_EQ(C, A) << digit_mode_name(mode);
        }
    }
}

TEST(SplitRelease, StreamedSplitEqualsSplitWords) {
    // The streamed split plans group carries in parallel and emits any 8-block run on its own;
    // every block must equal what split_words() writes, for carry chains across plan ranges
    // (tds), runs that straddle the two sides, the top carry digit and the zero tail.
    SCOPED_TRACE(test::seed_note());
    Rng rng(test::test_seed() + 4);
    CppAsyncFramework threads;
    for (DigitMode mode : {DigitMode::Dithered, DigitMode::Balanced, DigitMode::Unsigned}) {
        for (int bits : {1, 11, 16, 17, 19, 24}) {
            for (uint64_t words : {1, 37, 5000, 12345}) {
                for (int which : {0, 1, 2}) {
                    std::vector<uint64_t> A = which == 0 ? test::make_operand(rng, words, Pattern::Random)
                                            : which == 1 ? structured(words, bits, (uint64_t(1) << (bits - 1)) - 1)
                                                         : std::vector<uint64_t>(words, ~uint64_t(0));
                    if (which == 1) A[0] |= uint64_t(1) << (bits - 1);
                    const uint64_t digits = split_digit_count(words, bits);
                    const uint64_t n = (digits / 2 / 64 + 1) * 64 + (which == 2 ? 64 : 0);
                    std::vector<Block> expected(n / 8), streamed(n / 8);
                    split_words(A.data(), words, bits, mode, expected.data(), n, nullptr, 1);
                    std::vector<uint8_t> carries(SplitSource::scratch_bytes(n));
                    for (uint64_t tds : {1, 3}) {
                        SCOPED_TRACE(std::string(digit_mode_name(mode)) + " bits=" + std::to_string(bits) +
                                     " words=" + std::to_string(words) + " operand=" + std::to_string(which) +
                                     " tds=" + std::to_string(tds));
                        const SplitSource source(A.data(), words, bits, mode, n, carries.data(),
                                                 tds > 1 ? &threads : nullptr, tds);
                        std::fill(streamed.begin(), streamed.end(), Block{{1, 1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1, 1}});
                        // Runs in a scrambled order and of mixed lengths, as the column pass asks.
                        for (uint64_t b = n / 8; b >= 8;) {
                            const uint64_t run = b >= 16 && (b / 8) % 3 == 0 ? 16 : 8;
                            b -= run;
                            source.fill(b, run, streamed.data() + b);
                        }
                        ASSERT_EQ(0, std::memcmp(expected.data(), streamed.data(), n * 16));
                    }
                }
            }
        }
    }
}

TEST(SplitRelease, GuardsFireOnBadCoefficients) {
    const uint64_t n = 64;
    const int bits = 16;
    std::vector<uint64_t> C(8);
    auto run = [&](uint64_t t, double v, uint64_t count) {
        std::vector<Block> p(n / 8);
        for (auto& b : p) for (int i = 0; i < 8; ++i) b.re[i] = b.im[i] = 0.0;
        set_digit(p, n, t, v);
        return release_points(p.data(), n, bits, count, C.data(), C.size(), nullptr, 1);
    };
    EXPECT_EQ(run(3, 5.4, 32).max_distance, std::fabs(5.4 - 5.0));
    EXPECT_TRUE(std::isinf(run(3, std::numeric_limits<double>::quiet_NaN(), 32).max_distance));
    EXPECT_TRUE(std::isinf(run(3, std::ldexp(1.0, 63), 32).max_distance));
    EXPECT_TRUE(std::isinf(run(100, -std::ldexp(1.0, 70), 32).max_distance));
    // Nonzero above the coefficient count, a carry out of the top word, a negative total.
    EXPECT_TRUE(run(40, 1.0, 32).overrun);
    EXPECT_TRUE(run(31, std::ldexp(1.0, 40), 32).overrun);
    EXPECT_TRUE(run(0, -1.0, 32).overrun);
    EXPECT_FALSE(run(31, 65535.0, 32).overrun);
    EXPECT_EQ(C[7], uint64_t(65535) << 48);
    // Coefficients beyond 2^51 take the scalar conversion: still exact.
    for (double big : {std::ldexp(1.0, 56) + 16.0, std::ldexp(1.0, 51), std::ldexp(1.0, 61) + 1024.0}) {
        EXPECT_FALSE(run(0, big, 32).overrun);
        EXPECT_EQ(C[0], static_cast<uint64_t>(big));
        EXPECT_EQ(C[1], 0u);
    }
}

TEST(SplitRelease, OperandTooLargeForTheTransformIsRejected) {
    std::vector<uint64_t> A(4, 1);
    std::vector<Block> p(1);
    // 4 words at 16 bits = 16 digits + carry digit > 2 * 8 slots.
    EXPECT_THROW(split_words(A.data(), 4, 16, DigitMode::Dithered, p.data(), 8, nullptr, 1),
                 InvalidParametersException);
    EXPECT_THROW(split_words(A.data(), 1, 25, DigitMode::Dithered, p.data(), 8, nullptr, 1),
                 InvalidParametersException);
}

}  // namespace
}  // namespace qmp::fft
