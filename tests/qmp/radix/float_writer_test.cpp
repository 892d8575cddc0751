// The digit writer end to end: reference digits of pi and e converted from their hexadecimal
// references, the sizes at the edges, the range and size refusals with their exact texts,
// each hash check made to fire by an injected fault, and identical digits on every SIMD path
// and with one or two threads.
#include "qmp/radix/float_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "qmp/words/word_array.h"
#include "tests/qmp/radix/radix_test_support.h"

namespace qmp::test {
namespace {

// A BigFloat over a vector: integer word (if non-zero) on top of the fraction words.
struct Number {
    std::vector<uint64_t> words;
    BigFloat<uint64_t> x;
    Number(uint64_t integer_part, const std::vector<uint64_t>& fraction, bool positive = true) : words(fraction) {
        words.push_back(integer_part);
        x = BigFloat<uint64_t>(words.data(), words.size());
        x.L = normalized_length(words.data(), words.size());
        x.exp = -int64_t(fraction.size());
        x.sign = positive;
    }
};

struct Sink final : DigitSink {
    std::string text;
    void store_digits(const char* raw, uint64_t position, uint64_t count) override {
        EXPECT_EQ(position, text.size());
        for (uint64_t i = 0; i < count; ++i) text.push_back(char('0' + raw[i]));
    }
};

std::string run_writer(const Number& n, uint64_t computed, uint64_t output, Parallelizer* parallelizer = nullptr,
                       uint64_t tds = 1, uint32_t radix = 10) {
    Sink sink;
    FloatWriterB writer(n.x, radix, computed, output, true, &sink, default_table(), parallelizer, tds);
    DigitCounts counts(radix);
    DigitHash hash(radix);
    Scratch memory(writer.memory_bytes());
    writer.convert(memory.buffer);
    writer.verify(memory.buffer);
    writer.write(1000);
    // The statistics see the digits the sink got: count and hash them here.
    if (radix == 10)
        writer.stat_dec_digits(counts, hash);
    else
        writer.stat_hex_digits(counts, hash);
    unsigned __int128 h = 0;
    for (char c : sink.text) h = (h * radix + uint64_t(c - '0')) % ((uint64_t(1) << 61) - 1);
    EXPECT_EQ(hash.value(), uint64_t(h));
    EXPECT_EQ(counts.total(), output);
    return sink.text;
}

// The decimal reference from the hexadecimal one: hex digits enough for the decimal digits
// plus a margin, so that the truncated input agrees with the constant on every digit compared.
void expect_reference(const char* hex_file, const char* dec_file, uint64_t digits, Parallelizer* p = nullptr,
                      uint64_t tds = 1) {
    SCOPED_TRACE(std::string(hex_file) + " digits=" + std::to_string(digits));
    const std::string hex = read_reference(hex_file), dec = read_reference(dec_file);
    ASSERT_GT(hex.size(), 1000u) << "missing reference file";
    uint64_t integer_part = 0;
    std::vector<uint64_t> fraction;
    hex_reference_words(hex, std::min<uint64_t>(hex.size() - 2, digits * 5 / 6 + 64), integer_part, fraction);
    const Number n(integer_part, fraction);
    const std::string got = run_writer(n, digits + 20, digits, p, tds);
    ASSERT_EQ(got.size(), digits);
    const size_t point = dec.find('.');
    EXPECT_EQ(std::to_string(integer_part), dec.substr(0, point));
    EXPECT_TRUE(got == dec.substr(point + 1, digits)) << "first difference at digit "
                                                      << std::mismatch(got.begin(), got.end(), dec.begin() + point + 1).first - got.begin();
}

TEST(FloatWriterB, ReferenceDigitsOfPiAndE) {
    for (uint64_t digits : {1000, 10000, 100000}) {
        expect_reference("pi-hex-1m.txt", "pi-dec-1m.txt", digits);
        expect_reference("e-hex-1m.txt", "e-dec-1m.txt", digits);
    }
}

TEST(FloatWriterB, ReferenceDigitsMillionLong) {
    if (std::getenv("QMP_TEST_LONG") == nullptr) GTEST_SKIP() << "QMP_TEST_LONG not set";
    auto framework = pushpool(2);
    expect_reference("pi-hex-1m.txt", "pi-dec-1m.txt", 999000);
    expect_reference("e-hex-1m.txt", "e-dec-1m.txt", 999000, framework.get(), 2);
}

TEST(FloatWriterB, HexadecimalDigitsAreTheBinaryWords) {
    const std::string hex = read_reference("pi-hex-1m.txt");
    uint64_t integer_part = 0;
    std::vector<uint64_t> fraction;
    hex_reference_words(hex, 5000, integer_part, fraction);
    const Number n(integer_part, fraction);
    std::string got = run_writer(n, 4990, 4990, nullptr, 1, 16);
    for (char& c : got) c = c <= '9' ? c : char('a' + (c - '0' - 10));
    EXPECT_EQ(got, hex.substr(2, 4990));
}

TEST(FloatWriterB, WordCountsAndSmallSizes) {
    const Number n(1, {uint64_t(1) << 63});  // 1.5
    for (auto [computed, words] : {std::pair<uint64_t, uint64_t>{1, 3}, {38, 5}, {18, 3}, {19, 4}, {1000, 55}}) {
        FloatWriterB writer(n.x, 10, computed, computed, true, nullptr, default_table());
        EXPECT_EQ(writer.output_words(), words) << computed;
        EXPECT_GE(writer.memory_bytes(), FloatWriterB::kMinMemoryBytes);
    }
    EXPECT_EQ(run_writer(n, 1, 1), "5");
    EXPECT_EQ(run_writer(n, 38, 38), "5" + std::string(37, '0'));
    // Digits computed may equal the digits output; one fewer is refused.
    EXPECT_EQ(run_writer(n, 20, 20), "5" + std::string(19, '0'));
    expect_throw<InvalidParametersException>(
        [&] { FloatWriterB(n.x, 10, 19, 20, true, nullptr, default_table()); }, "FloatWriterB::FloatWriterB()",
        "compute < output");
}

TEST(FloatWriterB, RangeRefusalsAndNegativeNumbers) {
    const std::string text =
        "\n\nquorvalith's radix conversion and digit output is only equipped to handle\n"
        "positive numbers with a magnitude near 1.\n\nThe exact range that quorvalith can handle is:\n"
        "    32-bit binaries: 2^-32 < x < 2^32\n    64-bit binaries: 2^-64 < x < 2^64";
    std::vector<uint64_t> words = {1, 1};
    auto check = [&](uint64_t L, int64_t exp) {
        BigFloat<uint64_t> x(words.data(), 2);
        x.T = words.data() + (2 - L);
        x.L = L;
        x.exp = exp;
        words_to_dec_range_check(x);
    };
    expect_throw<InvalidParametersException>([&] { check(0, 0); }, "words_to_dec()", "Number is zero and out of range." + text);
    // 2^64, 2^-64 itself and 2^-128 are out; 2^-64 (1 + 2^-64) and 2^64 - 1 are in.
    for (int64_t exp : {1, -1, -2})
        expect_throw<InvalidParametersException>([&] { check(1, exp); }, "words_to_dec()", "Number is out of range." + text);
    EXPECT_NO_THROW(check(2, -2));
    words = {1, ~0ull};
    EXPECT_NO_THROW(check(1, 0));
    // A negative number is written as its absolute value.
    const Number negative(3, {uint64_t(1) << 62}, false);
    EXPECT_EQ(run_writer(negative, 30, 30), "25" + std::string(28, '0'));
}

TEST(FloatWriterB, EachHashCheckFiresOnAFault) {
    const std::string hex = read_reference("e-hex-1m.txt");
    uint64_t integer_part = 0;
    std::vector<uint64_t> fraction;
    hex_reference_words(hex, 20000, integer_part, fraction);
    const Number n(integer_part, fraction);
    for (uint32_t radix : {10u, 16u}) {
        FloatWriterB writer(n.x, radix, 20000, 20000, true, nullptr, default_table());
        Scratch memory(writer.memory_bytes());
        writer.convert(memory.buffer);
        writer.verify(memory.buffer);
        expect_throw<InvalidParametersException>([&] { writer.verify(memory.buffer, 20001); },
                                                 "FloatWriterB::verify()", "Too many digits.");
        writer.words_for_test()[300] ^= 1;  // one corrupted output word
        if (radix == 10)
            expect_throw<AlgorithmFailedException>([&] { writer.verify(memory.buffer); }, "FloatWriterB::verify()",
                                                   "Base Conversion Failed: Checksum Mismatch");
        else
            expect_throw<AlgorithmFailedException>([&] { writer.verify(memory.buffer); },
                                                   "FloatWriterB::verify_binary_words()",
                                                   "Binary Output Failed: Checksum Mismatch");
        writer.words_for_test()[300] ^= 1;
        writer.verify(memory.buffer);
        if (radix == 10) {
            VerifyB::set_power_fault_for_test(true);
            expect_throw<AlgorithmFailedException>([&] { writer.verify(memory.buffer); }, "VerifyB::hash_binary()",
                                                   "Power Hash Mismatch");
            VerifyB::set_power_fault_for_test(false);
        }
    }
}

struct SimdGuard {
    ~SimdGuard() { force_simd_level(detected_simd_level()); }
};

TEST(FloatWriterB, SameDigitsOnEverySimdPathAndThreadCount) {
    SimdGuard guard;
    const std::string hex = read_reference("pi-hex-1m.txt");
    uint64_t integer_part = 0;
    std::vector<uint64_t> fraction;
    hex_reference_words(hex, 60000, integer_part, fraction);
    const Number n(integer_part, fraction);
    auto framework = pushpool(2);
    const std::string serial = run_writer(n, 70000, 70000);
    EXPECT_EQ(run_writer(n, 70000, 70000, framework.get(), 2), serial);
    for (int level = 0; level <= int(detected_simd_level()); ++level) {
        force_simd_level(static_cast<SimdLevel>(level));
        EXPECT_EQ(run_writer(n, 70000, 70000), serial) << simd_level_name(static_cast<SimdLevel>(level));
    }
}

}  // namespace
}  // namespace qmp::test
