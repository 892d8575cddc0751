// Round trips through both formats with reference digits computed elsewhere: text file ->
// text reader -> compressed set -> set reader, at sizes that end inside a word and inside a
// file, with the statistics checked against counts and a hash computed here by plain Horner
// steps modulo 2^61 - 1. The read-back check must pass on intact files and fire on a file
// changed by one digit.
#include "qmp/digitfiles/digit_verify.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/digitfiles/qcd_set_writer.h"
#include "qmp/digitfiles/text_reader.h"
#include "qmp/digitfiles/text_writer.h"

#include "tests/qmp/digitfiles/digitfiles_test_support.h"
#include "tests/test_support.h"

#include <fstream>

namespace {

using qmp::test::raw_from_text;
using qmp::test::ScratchDir;
using qmp::test::slurp;

uint64_t horner_hash(const std::string& digits, uint32_t radix) {
    const unsigned __int128 p = (uint64_t(1) << 61) - 1;
    unsigned __int128 h = 0;
    for (char c : digits) h = (h * radix + uint64_t(c <= '9' ? c - '0' : c - 'a' + 10)) % p;
    return uint64_t(h);
}

void flip_byte(const std::string& path, uint64_t offset_from_end) {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekg(-int64_t(offset_from_end), std::ios::end);
    const char c = char(f.get());
    f.seekp(-int64_t(offset_from_end), std::ios::end);
    f.put(c == '0' ? '1' : '0');
}

TEST(DigitRoundTrip, TextToCompressedAndBackWithStatsAndReadBackCheck) {
    for (const char* name : {"pi-dec-1m.txt", "e-hex-1m.txt"}) {
        const std::string fraction = qmp::test::reference_fraction(name).substr(0, 100003);
        if (fraction.empty()) GTEST_SKIP() << "no reference digits";
        const uint32_t radix = std::string(name).find("hex") != std::string::npos ? 16 : 10;
        const std::string integer = std::string(name)[0] == 'p' ? "3." : "2.";
        ScratchDir dir;
        const std::vector<char> raw = raw_from_text(fraction);

        // Text file written in uneven pieces, through the statistics tee.
        const std::string txt = dir.file("c.txt");
        qmp::BasicTextWriter text(txt, integer + "14", radix, raw.size());
        qmp::DigitStatsSink tee(text, radix);
        for (uint64_t p = 0, n = 1; p < raw.size(); p += n, n = std::min<uint64_t>(n * 5 + 3, raw.size() - p - 0)) {
            n = std::min<uint64_t>(n, raw.size() - p);
            tee.store_digits(raw.data() + p, p, n);
        }
        ASSERT_TRUE(text.close());
        EXPECT_EQ(slurp(txt), integer + fraction);
        EXPECT_EQ(tee.hash().value(), horner_hash(fraction, radix));

        qmp::BasicTextReader text_reader(txt);
        EXPECT_EQ(text_reader.radix(), radix);
        EXPECT_EQ(text_reader.total_digits(), fraction.size());
        qmp::verify_written_digits(text_reader, 0, raw.size(), tee.counts(), tee.hash(), txt);

        // Into a compressed set of 10007-digit files (the last one short) from the text reader.
        qmp::BasicQcdSetWriter set_writer(dir.path(), "c", text_reader.first_digits(), radix, 10007, raw.size());
        std::vector<char> block(40000);
        for (uint64_t p = 0; p < raw.size(); p += block.size()) {
            const uint64_t n = std::min<uint64_t>(block.size(), raw.size() - p);
            text_reader.load_digits(block.data(), p, n);
            set_writer.store_digits(block.data(), p, n);
        }
        std::unique_ptr<qmp::BasicQcdSetReader> set = set_writer.close_and_get_basic_reader();
        EXPECT_EQ(set->radix(), radix);
        EXPECT_EQ(set->first_digits(), integer);
        qmp::verify_written_digits(*set, 0, raw.size(), tee.counts(), tee.hash(), "c");

        // Statistics of an inner range against counts and a hash made here.
        qmp::DigitCounts counts(radix);
        qmp::DigitHash hash(radix);
        set->load_stats(counts, hash, 12345, 67891);
        const std::string part = fraction.substr(12345, 67891 - 12345);
        EXPECT_EQ(hash.value(), horner_hash(part, radix));
        EXPECT_EQ(counts[7], uint64_t(std::count(part.begin(), part.end(), '7')));
        EXPECT_EQ(counts.total(), part.size());

        // One changed digit in the middle of the last compressed file, and one in the text.
        flip_byte(dir.file("c - 9.qcd"), 50);
        EXPECT_THROW(qmp::verify_written_digits(*set, 0, raw.size(), tee.counts(), tee.hash(), "c"),
                     qmp::AlgorithmFailedException);
        flip_byte(txt, 1000);
        qmp::BasicTextReader changed(txt);
        qmp::test::expect_throw<qmp::AlgorithmFailedException>(
            [&] { qmp::verify_written_digits(changed, 0, raw.size(), tee.counts(), tee.hash(), txt); },
            "verify_written_digits()",
            "Digit output verification failed: the digits read back from \"" + txt + "\" differ from the digits written.");
    }
}

TEST(DigitRoundTrip, TextReaderRefusals) {
    ScratchDir dir;
    const std::string p = dir.file("t.txt");
    qmp::test::spit(p, std::string(63, '1') + ".5");
    qmp::BasicTextReader no_point(p);
    EXPECT_FALSE(no_point.has_decimal_point());
    qmp::test::expect_throw<qmp::InvalidParametersException>(
        [&] { no_point.total_digits(); }, "BasicTextReader::process_txt()",
        "A decimal place was not found within the first 63 bytes of the file.");
    qmp::test::spit(p, "3.14159x6");
    qmp::BasicTextReader r(p);
    std::vector<char> raw(8);
    qmp::test::expect_throw<qmp::InvalidParametersException>([&] { r.load_digits(raw.data(), 0, 7); },
                                                              "BasicTextReader::load_digits()", "Invalid Digit");
    qmp::test::expect_throw<qmp::InvalidParametersException>([&] { r.load_digits(raw.data(), 3, 5); },
                                                              "BasicTextReader::load_digits()", "Out of range.");
    r.load_digits(raw.data(), 0, 5);
    EXPECT_EQ(std::string(raw.begin(), raw.begin() + 5), std::string("\1\4\1\5\x9", 5));
    qmp::test::expect_throw<qmp::InvalidParametersException>([&] { qmp::BasicTextReader bad(p, 8); },
                                                              "BasicTextReader::BasicTextReader()", "Invalid radix.");
}

}  // namespace
