// Compressed digit files: the exact bytes of a header and of the packed words (values worked
// out by hand here), sets whose last file is short, what a writer that never finished leaves
// behind, and every refusal of the writers with its exact text.
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/digitfiles/digit_file_settings.h"
#include "qmp/digitfiles/qcd_file_writer.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/digitfiles/qcd_set_writer.h"
#include "qmp/digitfiles/text_writer.h"

#include "tests/qmp/digitfiles/digitfiles_test_support.h"
#include "tests/test_support.h"

#include <csignal>
#include <cstring>
#include <random>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using qmp::InvalidParametersException;
using qmp::test::expect_throw;
using qmp::test::raw_from_text;
using qmp::test::ScratchDir;
using qmp::test::slurp;

std::string le64(uint64_t v) {
    std::string s(8, '\0');
    for (int i = 0; i < 8; ++i) s[i] = char(v >> (8 * i));
    return s;
}

std::vector<char> random_raw(uint64_t n, uint32_t radix, uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::vector<char> raw(n);
    for (char& c : raw) c = char(rng() % radix);
    return raw;
}

TEST(QcdFiles, TwentyDigitFileIsTheGoldenHeaderAndTwoWords) {
    ScratchDir dir;
    const std::vector<char> raw = raw_from_text("14159265358979323846");
    {
        qmp::BasicQcdFileWriter w(dir.file("pi"), "3.14159", 10, 0, 20, 0);
        EXPECT_EQ(w.get_range().start, 0u);
        EXPECT_EQ(w.get_range().end, 20u);
        w.store_digits_B(raw.data(), 0, 7);  // split inside a word
        w.store_digits_B(raw.data() + 7, 7, 13);
        EXPECT_TRUE(w.close());
    }
    const std::string golden = std::string(
        "#Compressed Digit File\r\n\r\nFileVersion:\t1.1.0\r\n\r\nBase:\t10\r\n\r\n"
        "FirstDigits:\t3.14159\r\n\r\nTotalDigits:\t20\r\n\r\nBlocksize:\t20\r\nBlockID:\t0\r\n\r\n"
        "EndHeader\r\n\r\n") + '\0';
    EXPECT_EQ(slurp(dir.file("pi.qcd")), golden + le64(1415926535897932384ull) + le64(6000000000000000000ull));
    EXPECT_EQ(dir.names(), std::vector<std::string>{"pi.qcd"});

    // Hexadecimal: 17 digits of pi, the 17th alone in the top nibble of the second word.
    const std::vector<char> hex = raw_from_text("243f6a8885a308d31");
    {
        qmp::BasicQcdFileWriter w(dir.file("hex - 0"), "3.", 16, 100, 17, 0);
        w.store_digits_B(hex.data(), 0, 17);
        EXPECT_TRUE(w.close());
    }
    const std::string file = slurp(dir.file("hex - 0.qcd"));
    EXPECT_EQ(file.substr(file.size() - 16), le64(0x243f6a8885a308d3ull) + le64(0x1000000000000000ull));
    // The writer records the block size it was given; the reader lowers it to the total.
    EXPECT_NE(file.find("TotalDigits:\t17\r\n\r\nBlocksize:\t100\r\nBlockID:\t0\r\n\r\n"), std::string::npos);
    qmp::BasicQcdSetReader r(dir.file("hex - 0.qcd"));
    EXPECT_EQ(r.digits_per_file(), 17u);
    std::vector<char> back(17);
    r.load_digits(back.data(), 0, 17);
    EXPECT_EQ(back, hex);
}

TEST(QcdFiles, SetWithShortLastFileReadsBackAcrossBoundaries) {
    ScratchDir dir;
    const uint64_t total = 2503, per_file = 1000;
    const std::vector<char> raw = random_raw(total, 10, qmp::test::test_seed());
    qmp::BasicQcdSetWriter w(dir.path(), "x - Dec - test", "3.1", 10, per_file, total);
    for (uint64_t p = 0, step = 1; p < total; step = step * 3 % 997 + 1) {
        const uint64_t n = std::min(step, total - p);
        w.store_digits(raw.data() + p, p, n);
        p += n;
    }
    std::unique_ptr<qmp::BasicQcdSetReader> r = w.close_and_get_basic_reader();
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"x - Dec - test - 0.qcd", "x - Dec - test - 1.qcd",
                                                     "x - Dec - test - 2.qcd"}));
    // The last file: 503 digits = 26 whole words and 9 digits followed by 10 zero digits.
    const std::string last = slurp(dir.file("x - Dec - test - 2.qcd"));
    EXPECT_NE(last.find("TotalDigits:\t2503\r\n\r\nBlocksize:\t1000\r\nBlockID:\t2\r\n"), std::string::npos);
    uint64_t expected_last = 0;
    for (int k = 0; k < 19; ++k) expected_last = expected_last * 10 + (k < 9 ? uint8_t(raw[2494 + k]) : 0);
    EXPECT_EQ(last.substr(last.size() - 8), le64(expected_last));
    EXPECT_EQ(r->load_file(2).words_in_this_file(), 27u);
    EXPECT_EQ(r->load_file(0).words_in_this_file(), 53u);
    EXPECT_EQ(last.size(), r->load_file(2).data_offset() + 27 * 8);

    EXPECT_EQ(r->total_digits(), total);
    EXPECT_EQ(r->first_digits(), "3.1");
    for (auto [s, e] : {std::pair<uint64_t, uint64_t>{0, total}, {999, 1001}, {1994, 2503}, {2502, 2503}, {5, 24}}) {
        std::vector<char> got(e - s);
        r->load_digits(got.data(), s, e - s);
        EXPECT_TRUE(std::equal(got.begin(), got.end(), raw.begin() + s)) << s << " - " << e;
    }
}

TEST(QcdFiles, OneMillionDigitsInOneMillionPerFileIsExactlyOneFile) {
    ScratchDir dir;
    const std::vector<char> raw = random_raw(1000000, 16, 7);
    qmp::BasicQcdSetWriter w(dir.path(), qmp::digit_file_base_name("Pi", 16, "BBP"), "3.", 16, 1000000, 1000000);
    w.store_digits(raw.data(), 0, raw.size());
    EXPECT_TRUE(w.close());
    EXPECT_EQ(dir.names(), std::vector<std::string>{"Pi - Hex - BBP - 0.qcd"});
    const std::string head = slurp(dir.file("Pi - Hex - BBP - 0.qcd")).substr(0, 200);
    EXPECT_NE(head.find("Blocksize:\t1000000\r\nBlockID:\t0\r\n"), std::string::npos);
}

TEST(QcdFiles, UnfinishedWritersLeaveOnlyTheWorkingName) {
    ScratchDir dir;
    const std::vector<char> raw = random_raw(500, 10, 3);
    {   // Destroyed without close().
        qmp::BasicQcdFileWriter w(dir.file("a - 0"), "3.", 10, 100, 500, 0);
        w.store_digits_B(raw.data(), 0, 40);
    }
    {   // Closed early.
        qmp::BasicQcdFileWriter w(dir.file("b - 0"), "3.", 10, 100, 500, 0);
        w.store_digits_B(raw.data(), 0, 99);
        EXPECT_FALSE(w.close());
    }
    {   // Unbounded set: the full first file is renamed, the second is not.
        qmp::BasicQcdSetWriter w(dir.path(), "c", "3.", 10, 100, 0);
        w.store_digits(raw.data(), 0, 150);
        EXPECT_FALSE(w.close());
    }
    {   // Text file closed early.
        qmp::BasicTextWriter t(dir.file("d.txt"), "3.", 10, 500);
        t.store_digits(raw.data(), 0, 10);
    }
    // A child killed in the middle of writing.
    const pid_t child = fork();
    if (child == 0) {
        qmp::BasicQcdFileWriter w(dir.file("e - 0"), "3.", 10, 100, 500, 0);
        w.store_digits_B(raw.data(), 0, 50);
        ::kill(::getpid(), SIGKILL);
        ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"a - 0 (incomplete).qcd", "b - 0 (incomplete).qcd",
                                                     "c - 0.qcd", "c - 1 (incomplete).qcd",
                                                     "d (incomplete).txt", "e - 0 (incomplete).qcd"}));
}

TEST(QcdFiles, WriterRefusalsAreExact) {
    ScratchDir dir;
    const char* ctor = "BasicQcdFileWriter::BasicQcdFileWriter()";
    const char* set_ctor = "BasicQcdSetWriter::BasicQcdSetWriter()";
    expect_throw<InvalidParametersException>([&] { qmp::BasicQcdFileWriter(dir.file("r"), "3.", 8, 100, 0, 0); },
                                             ctor, "Unsupported Radix");
    expect_throw<InvalidParametersException>([&] { qmp::BasicQcdFileWriter(dir.file("r"), "3.", 10, 50, 100, 2); },
                                             ctor, "File ID is out of range.");
    expect_throw<InvalidParametersException>([&] { qmp::BasicQcdSetWriter(dir.path(), "s", "3.", 2, 100, 100); },
                                             set_ctor, "Invalid Parameters");
    expect_throw<InvalidParametersException>([&] { qmp::BasicQcdSetWriter(dir.path(), "s", "3.", 10, 0, 0); },
                                             set_ctor, "Single-file is incompatible with unbounded output.");
    EXPECT_TRUE(dir.names().empty()) << "a refused writer created a file";

    const std::vector<char> raw = random_raw(200, 10, 5);
    qmp::BasicQcdFileWriter w(dir.file("w"), "3.", 10, 50, 200, 1);
    expect_throw<InvalidParametersException>([&] { w.store_digits_B(raw.data(), 50, 0); }, "Region::Region()",
                                             "Invalid Range - Failed: s < e");
    expect_throw<InvalidParametersException>([&] { w.store_digits_B(raw.data(), 90, 20); },
                                             "BasicQcdFileWriter::store_digits_B()",
                                             "Write out of bounds.\nRequested Range: 90 - 110\nAvailable Range: 50 - 100");
    expect_throw<InvalidParametersException>([&] { w.store_digits_B(raw.data(), 60, 5); },
                                             "BasicQcdFileWriter::store_digits_B()", "Digits must be stored in order.");
    std::vector<char> bad(raw.begin(), raw.begin() + 40);
    bad[23] = 10;
    expect_throw<InvalidParametersException>([&] { w.store_digits_B(bad.data(), 50, 40); },
                                             "BasicQcdFileWriter::store_digits_B()", "Invalid Digit");
    alignas(8) char buffer[24] = {};
    expect_throw<InvalidParametersException>(
        [&] { w.store_words(reinterpret_cast<const uint64_t*>(buffer + 1), 0, 1); },
        "BasicQcdFileWriter::start_access()", "Buffer is misaligned.");
    const uint64_t words[4] = {};
    expect_throw<InvalidParametersException>([&] { w.store_words(words, 2, 2); },
                                             "BasicQcdFileWriter::start_access()",
                                             "Write out of bounds.\nRequested Range: 2 - 4\nAvailable Range: 0 - 3");
    const uint64_t too_big = 10000000000000000000ull;
    expect_throw<InvalidParametersException>([&] { w.store_words(&too_big, 0, 1); },
                                             "BasicQcdFileWriter::store_words()", "Invalid Digit");

    qmp::BasicQcdSetWriter empty(dir.path(), "none", "3.", 10, 100, 100);
    expect_throw<InvalidParametersException>([&] { empty.close_and_get_basic_reader(); },
                                             "BasicQcdSetWriter::close_and_get_basic_reader()", "No files open.");

    const char* text_ctor = "BasicTextWriter::BasicTextWriter()";
    expect_throw<InvalidParametersException>([&] { qmp::BasicTextWriter(dir.file("t.txt"), "3.", 12, 0); },
                                             text_ctor, "Invalid Radix");
    expect_throw<InvalidParametersException>([&] { qmp::BasicTextWriter(dir.file("t.txt"), "3", 10, 0); },
                                             text_ctor, "No decimal place was found.");
    qmp::BasicTextWriter t(dir.file("t.txt"), "3.", 16, 0);
    bad.assign(8, 3);
    bad[5] = 16;
    expect_throw<InvalidParametersException>([&] { t.store_digits(bad.data(), 0, 8); },
                                             "BasicTextWriter::store_digits()", "Invalid Digit");
    t.close();
    expect_throw<InvalidParametersException>([&] { t.store_digits(raw.data(), 0, 1); },
                                             "BasicTextWriter::store_digits()", "File is closed.");
}

TEST(QcdFiles, SettingsAndNames) {
    const std::string refusal = "DigitsPerFile must be at least 1,000,000 digits.";
    for (int64_t bad : {int64_t(1), int64_t(999999), int64_t(-1)}) {
        qmp::DigitFileSettings s;
        expect_throw<InvalidParametersException>([&] { s.set_digits_per_file(bad); },
                                                 "DigitFileSettings::set_digits_per_file()", refusal);
    }
    qmp::ConfigObject config = qmp::ConfigObject::make_object();
    config.add_integer("DigitsPerFile", 1000000);
    config.add_bool("RawIO", true);
    qmp::DigitFileSettings s;
    s.load(config);
    EXPECT_EQ(s.digits_per_file, 1000000u);
    EXPECT_TRUE(s.raw_io);
    qmp::ConfigObject written = qmp::ConfigObject::make_object();
    s.store(written);
    EXPECT_EQ(written, config);

    EXPECT_EQ(qmp::digit_file_base_name("Pi", 10, "Chudnovsky"), "Pi - Dec - Chudnovsky");
    expect_throw<InvalidParametersException>([] { qmp::digit_file_base_name("Pi", 2, "x"); },
                                             "digit_file_base_name()", "Invalid Base");
    EXPECT_EQ(qmp::qcd_file_name("Pi - Hex - BBP", 12), "Pi - Hex - BBP - 12.qcd");
    EXPECT_EQ(qmp::qcd_working_name("e", 0), "e - 0 (incomplete).qcd");
    EXPECT_EQ(qmp::format_with_commas(1234567890), "1,234,567,890");
    EXPECT_EQ(qmp::format_with_commas(999), "999");
}

TEST(QcdFiles, RawIoWritesTheSameBytes) {
    ScratchDir dir;
    const std::vector<char> raw = random_raw(300000, 10, 11);
    for (bool raw_io : {false, true}) {
        const std::string stem = raw_io ? "raw" : "cached";
        try {
            qmp::BasicQcdSetWriter w(dir.path(), stem, "3.", 10, 0, raw.size(), raw_io);
            w.store_digits(raw.data(), 0, raw.size());
            EXPECT_TRUE(w.close());
            qmp::BasicTextWriter t(dir.file(stem + ".txt"), "3.", 10, raw.size(), raw_io);
            t.store_digits(raw.data(), 0, raw.size());
            EXPECT_TRUE(t.close());
        } catch (const qmp::FileIO::FileException& e) {
            // A file system without O_DIRECT (tmpfs) refuses raw I/O at open.
            if (!raw_io) throw;
            GTEST_SKIP() << "raw I/O not available here: " << e.message();
        }
    }
    EXPECT_EQ(slurp(dir.file("raw - 0.qcd")), slurp(dir.file("cached - 0.qcd")));
    EXPECT_EQ(slurp(dir.file("raw.txt")), slurp(dir.file("cached.txt")));
}

}  // namespace
