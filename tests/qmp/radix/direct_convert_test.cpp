// The conversion tree against slow oracles: random fractions and decimal fractions whose digits
// run through 9s and 0s across every block boundary, on a small block with stored FFT
// transforms at every level, serial and with two tasks; the fix-up helpers and the plan limits.
#include "qmp/radix/direct_convert.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "qmp/exception.h"
#include "qmp/multiply/fft/fftv4.h"
#include "qmp/radix/power_table.h"
#include "qmp/radix/remainder_float.h"
#include "qmp/radix/srt_tree.h"
#include "tests/qmp/radix/radix_test_support.h"

namespace qmp::test {
namespace {

std::vector<uint64_t> convert(const AlgorithmTableB& table, const std::vector<uint64_t>& F, uint64_t words,
                              uint64_t block, Parallelizer* parallelizer = nullptr, uint64_t tds = 1) {
    DirectConvertB plan(table, words, tds, block);
    Scratch scratch(plan.scratch_bytes(words));
    std::vector<uint64_t> out(words + 1, 0x5555555555555555ull);
    plan.run(F.data(), F.size(), out.data(), words, scratch.buffer, parallelizer);
    EXPECT_EQ(out[words], 0x5555555555555555ull) << "write past the output";
    out.resize(words);
    return out;
}

TEST(DirectConvertB, RandomFractionsMatchSlowConversion) {
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed());
    auto framework = pushpool(2);
    for (uint64_t words : {1, 2, 3, 8, 9, 17, 40, 100, 257, 700}) {
        SCOPED_TRACE("words=" + std::to_string(words));
        // Fractions longer, as long and shorter than the converter keeps.
        for (uint64_t f_words : {words + 5, words + 2, words / 2 + 1}) {
            const std::vector<uint64_t> F = random_operand<uint64_t>(rng, f_words);
            const std::vector<uint64_t> expected = decimal_words(slow_decimal_digits(
                f_words > words + 2 ? std::vector<uint64_t>(F.end() - (words + 2), F.end()) : F, words * 19), words);
            EXPECT_EQ(convert(small_fft_table(), F, words, 8), expected);
            EXPECT_EQ(convert(small_fft_table(), F, words, 8, framework.get(), 2), expected);
            EXPECT_EQ(convert(default_table(), F, words, 0), expected);
        }
    }
}

// Decimal strings with runs of 9s and 0s straddling every multiple of the block (in digits),
// rounded up to binary at the converter's precision: the output must be the string itself,
// which makes every left half that truncation leaves one unit low carry through its run. Only
// the very last word may be one unit low: the value lies a hair above the string, closer than
// the guard words resolve, and no half follows it to mend it.
TEST(DirectConvertB, CarriesThroughRunsOfNinesAndZeros) {
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 1);
    auto framework = pushpool(2);
    const uint64_t before_add = SRTv2::add1_count();
    for (uint64_t words : {50, 300, 1000}) {
        SCOPED_TRACE("words=" + std::to_string(words));
        const uint64_t block = 8, n_digits = words * 19;
        std::string digits(n_digits, '0');
        for (auto& c : digits) c = char('0' + rng() % 10);
        for (uint64_t b = block * 19; b < n_digits; b += block * 19) {
            const char run = rng() % 2 ? '9' : '0';
            const uint64_t length = 20 + rng() % 60;
            for (uint64_t i = b - std::min<uint64_t>(b, length); i < std::min(n_digits, b + length); ++i)
                digits[i] = run;
        }
        digits.back() = '7';  // the last word is not zero: a low unit cannot run into a 9s tail
        const std::string& value = digits;
        const std::vector<uint64_t> F = decimal_to_fraction_rounded_up(value, words + DirectConvertB::kGuardWords);
        const std::vector<uint64_t> expected = decimal_words(value, words);
        for (int variant = 0; variant < 3; ++variant) {
            const std::vector<uint64_t> got =
                variant == 2 ? convert(default_table(), F, words, 0)
                             : convert(small_fft_table(), F, words, block, variant == 1 ? framework.get() : nullptr, 2);
            uint64_t first = 0;
            while (first < words && got[first] == expected[first]) ++first;
            const bool last_low = first == words - 1 && got[first] + 1 == expected[first];
            EXPECT_TRUE(first == words || last_low) << "variant " << variant << ": word " << first << " is "
                                                    << got[first] << ", expected " << expected[first];
        }
    }
    EXPECT_GT(SRTv2::add1_count(), before_add) << "no left half needed a carry: the inputs miss their purpose";
}

TEST(SRTv2, FixupMendsOneUnitAndRefusesMore) {
    const uint64_t nine = kDecimalWordBase - 1;
    // The value of 4 words modulo 2^64, by 128-bit arithmetic (the top word's weight 10^57 and the
    // second's 10^38 vanish or nearly so modulo 2^64, so the expectations are written per case).
    auto value = [](uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
        unsigned __int128 v = 0;
        for (uint64_t w : {a, b, c, d}) v = v * kDecimalWordBase + w;  // modulo 2^128
        return uint64_t(v);
    };
    std::vector<uint64_t> a = {7, nine, nine, nine};
    SRTv2::fixup(a.data(), 4, value(8, 0, 0, 0));  // one low: the carry runs through the nines
    EXPECT_EQ(a, (std::vector<uint64_t>{8, 0, 0, 0}));
    SRTv2::fixup(a.data(), 4, value(7, nine, nine, nine));  // one high: the borrow runs back
    EXPECT_EQ(a, (std::vector<uint64_t>{7, nine, nine, nine}));
    SRTv2::fixup(a.data(), 4, value(7, nine, nine, nine));
    EXPECT_EQ(a, (std::vector<uint64_t>{7, nine, nine, nine}));

    std::vector<uint64_t> b = {nine, nine};
    expect_throw<AlgorithmFailedException>([&] { SRTv2::add1(b.data(), 2); }, "SRTv2::add1()", "Impossible carryout.");
    std::vector<uint64_t> z = {0, 0};
    expect_throw<AlgorithmFailedException>([&] { SRTv2::sub1(z.data(), 2); }, "SRTv2::sub1()", "Impossible carryout.");
    std::vector<uint64_t> c = {0, 5};
    expect_throw<AlgorithmFailedException>([&] { SRTv2::fixup(c.data(), 2, 7); }, "SRTv2::fixup()",
                                           "Overlap Mismatch:\n    RL = 2\n    Expected = 7\n    Actual   = 5");
    EXPECT_EQ(c, (std::vector<uint64_t>{0, 5}));
}

TEST(DirectConvertB, PlanLimitsAndMessages) {
    DirectConvertB plan(small_fft_table(), 100, 1, 8);
    std::vector<uint64_t> F(10, 1), out(200);
    Scratch scratch(plan.scratch_bytes());
    expect_throw<InvalidParametersException>(
        [&] { plan.run(F.data(), F.size(), out.data(), 101, scratch.buffer, nullptr); }, "DirectConvertB::run()",
        "Input size is too large for conversion plan.");
    // Too little scratch is refused before anything is written.
    Scratch small(plan.scratch_bytes() - plan.scratch_bytes() / 4);
    EXPECT_THROW(plan.run(F.data(), F.size(), out.data(), 100, small.buffer, nullptr), BufferTooSmallException);

    ReadyTableB table(plan.levels(), small_fft_table());
    expect_throw<InvalidParametersException>([&] { table.perform_split(2 * plan.levels().back().block_words + 1); },
                                             "ReadyTableB::perform_split()", "Table isn't large enough.");
    EXPECT_EQ(table.perform_split(9), 0u);
    EXPECT_EQ(table.perform_split(17), 1u);
    EXPECT_EQ(table.perform_split(16), 0u);
    // A transform can only be replaced by one of the same product (levels 0-1 have none).
    Scratch memory(table.table_bytes() + table.build_scratch_bytes());
    table.make_tables(memory.buffer, nullptr, 1);
    const uint64_t top = table.level_count() - 1;
    for (uint64_t j : {uint64_t(0), top - 1})
        expect_throw<InvalidParametersException>([&] { table.power_for_test(top).replace(table.power(j)); },
                                                 "PowerTransform::replace()", "Transforms are incompatible.");
    table.power_for_test(top).replace(table.power(top));

    // A product window reaching below the remainder, a stored length above its precision.
    std::vector<uint64_t> r(10, 3), C(64);
    RemainderFloatB src(r.data(), 10), dst;
    auto multiply = [&](uint64_t keep) {
        dst.set_multiply_by_transform(src, table.power(0), keep, C.data(), C.size(), small_fft_table(),
                                      scratch.buffer.data(), scratch.buffer.size_bytes(), nullptr, 1);
    };
    const char* function = "RemainderFloatB::set_multiply_by_transform()";
    expect_throw<AlgorithmFailedException>([&] { multiply(11); }, function, "Truncated Range");
    src.L = 11;
    expect_throw<AlgorithmFailedException>([&] { multiply(4); }, function, "Unexpected: tmag < 0");
}

// The plan refuses FFT levels whose sub-transforms carry less than a block; every level of a
// real plan passes (its window spans two blocks). 7 * 2^6 points at 20 bits carry 140 words.
TEST(DirectConvertB, RefusesSubTransformsShorterThanTheBlock) {
    fft::TransformSize size;
    size.m = 7;
    size.k = 6;
    size.bits = 20;
    expect_throw<InvalidParametersException>([&] { DirectConvertB::check_sub_transform(size, 141); },
                                             "DirectConvertB::DirectConvertB()",
                                             "Sub-transform length is smaller than the conversion block size.");
    EXPECT_NO_THROW(DirectConvertB::check_sub_transform(size, 140));
    for (uint64_t block : {8, 96, 512}) EXPECT_NO_THROW(DirectConvertB(small_fft_table(), 1 << 20, 2, block));
}

}  // namespace
}  // namespace qmp::test
