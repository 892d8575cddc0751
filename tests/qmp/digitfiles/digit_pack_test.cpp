// Packing on every kernel level this machine runs, against an oracle written here: the word is
// the digits read as one number in the radix by 128-bit Horner steps, and unpacking is checked
// digit by digit against repeated division. Sizes cover the vector step (8 words), its tails
// and the extreme words; an out-of-range byte is planted at every position of a block.
#include "qmp/digitfiles/digit_pack.h"

#include "tests/test_support.h"

#include <random>
#include <vector>

namespace {

using qmp::SimdLevel;

uint64_t oracle_word(const char* raw, uint32_t radix) {
    unsigned __int128 v = 0;
    for (uint32_t k = 0; k < qmp::digits_per_word(radix); ++k) v = v * radix + uint8_t(raw[k]);
    return uint64_t(v);
}

std::vector<SimdLevel> levels() {
    std::vector<SimdLevel> out{SimdLevel::Portable};
    if (qmp::detected_simd_level() >= SimdLevel::AVX2) out.push_back(SimdLevel::AVX2);
    if (qmp::detected_simd_level() >= SimdLevel::AVX512) out.push_back(SimdLevel::AVX512);
    return out;
}

bool pack(const qmp::DigitPackKernels& k, uint32_t radix, const char* raw, uint64_t* w, uint64_t n) {
    return radix == 10 ? k.pack_dec(raw, w, n) : k.pack_hex(raw, w, n);
}
void unpack(const qmp::DigitPackKernels& k, uint32_t radix, const uint64_t* w, char* raw, uint64_t n) {
    radix == 10 ? k.unpack_dec(w, raw, n) : k.unpack_hex(w, raw, n);
}

TEST(DigitPack, EveryLevelMatchesTheOracleBothWays) {
    std::mt19937_64 rng(qmp::test::test_seed());
    for (uint32_t radix : {10u, 16u}) {
        const uint32_t dpw = qmp::digits_per_word(radix);
        for (SimdLevel level : levels()) {
            const qmp::DigitPackKernels& k = qmp::digit_pack_kernels(level);
            for (uint64_t n : {1, 2, 7, 8, 9, 15, 16, 17, 63, 200}) {
                SCOPED_TRACE(std::to_string(radix) + " " + qmp::simd_level_name(level) + " n=" +
                             std::to_string(n) + " " + qmp::test::seed_note());
                std::vector<char> raw(n * dpw);
                // Random digits, with whole words of the largest and the smallest digit.
                for (uint64_t i = 0; i < raw.size(); ++i) {
                    const uint64_t word = i / dpw;
                    raw[i] = char(word % 5 == 1 ? radix - 1 : word % 5 == 3 ? 0 : rng() % radix);
                }
                std::vector<uint64_t> words(n + 1, 0xdeadbeefdeadbeefull);
                EXPECT_FALSE(pack(k, radix, raw.data(), words.data(), n));
                for (uint64_t i = 0; i < n; ++i) ASSERT_EQ(words[i], oracle_word(&raw[i * dpw], radix)) << i;
                EXPECT_EQ(words[n], 0xdeadbeefdeadbeefull) << "wrote past the end";

                std::vector<char> back(n * dpw + 1, 77);
                unpack(k, radix, words.data(), back.data(), n);
                for (uint64_t i = 0; i < n; ++i) {
                    unsigned __int128 w = words[i];
                    for (uint32_t d = dpw; d-- > 0;) {
                        ASSERT_EQ(uint8_t(back[i * dpw + d]), uint64_t(w % radix)) << i << " " << d;
                        w /= radix;
                    }
                }
                EXPECT_EQ(back[n * dpw], 77) << "wrote past the end";
            }
        }
    }
    EXPECT_EQ(qmp::max_packed_word(10), 9999999999999999999ull);
}

TEST(DigitPack, AnOutOfRangeByteAnywhereIsReportedOnEveryLevel) {
    for (uint32_t radix : {10u, 16u}) {
        const uint32_t dpw = qmp::digits_per_word(radix);
        const uint64_t n = 11;  // one vector step and a tail
        for (SimdLevel level : levels()) {
            const qmp::DigitPackKernels& k = qmp::digit_pack_kernels(level);
            std::vector<uint64_t> words(n);
            for (uint64_t pos = 0; pos < n * dpw; ++pos) {
                for (int bad : {int(radix), 0x80, 0xFF}) {
                    std::vector<char> raw(n * dpw, char(radix - 1));
                    raw[pos] = char(bad);
                    ASSERT_TRUE(pack(k, radix, raw.data(), words.data(), n))
                        << radix << " " << qmp::simd_level_name(level) << " pos " << pos << " byte " << bad;
                }
            }
        }
    }
}

TEST(DigitPack, DispatchFollowsTheForcedLevel) {
    // The dispatching entry points give the same words as the portable kernel on every level.
    const std::string digits = "31415926535897932384626433832795028841971693993751058209749445923078164";
    std::vector<char> raw(digits.size());
    for (size_t i = 0; i < digits.size(); ++i) raw[i] = char(digits[i] - '0');
    const uint64_t n = raw.size() / 19;
    std::vector<uint64_t> expected(n), got(n);
    qmp::digit_pack_kernels(SimdLevel::Portable).pack_dec(raw.data(), expected.data(), n);
    const SimdLevel saved = qmp::active_simd_level();
    for (SimdLevel level : levels()) {
        qmp::force_simd_level(level);
        EXPECT_FALSE(qmp::pack_digits(10, raw.data(), got.data(), n));
        EXPECT_EQ(got, expected);
    }
    qmp::force_simd_level(saved);
    EXPECT_EQ(expected[0], 3141592653589793238ull);
}

}  // namespace
