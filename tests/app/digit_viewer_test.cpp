// The digit viewer driven end to end through the built program: opening refusals, the menus
// of a text file and of a compressed set, viewing, statistics (checked against counts and a
// hash computed here from the reference digits), extraction, recompression of all digits and
// of a subset (the written files read back and compared byte for byte with the source), search
// directories, and a clean end at the end of input wherever it comes.
#include "process_runner.h"

#include "qmp/digitfiles/qcd_set_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using qvtest::count_occurrences;
using qvtest::RunOptions;
using qvtest::RunResult;
using qvtest::TempDir;

RunResult run(const std::vector<std::string>& args, const TempDir& dir, const std::string& input = "") {
    RunOptions options;
    options.input = input;
    return qvtest::run_program(args, dir.path(), options);
}

bool has(const RunResult& r, const std::string& text) { return r.output.find(text) != std::string::npos; }

// The first n fractional digits of pi from the shared reference, as a text file "3.<digits>".
std::string pi_text(size_t n) {
    const std::string all = qvtest::read_file("/work/shared/reference/pi-dec-1m.txt");
    return all.substr(0, 2 + n);
}

uint64_t horner_hash(const std::string& digits) {
    const unsigned __int128 p = (uint64_t(1) << 61) - 1;
    unsigned __int128 h = 0;
    for (char c : digits) h = (h * 10 + uint64_t(c - '0')) % p;
    return uint64_t(h);
}

std::string with_commas(uint64_t v) {
    std::string s = std::to_string(v), out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (i != 0 && (s.size() - i) % 3 == 0) out += ',';
        out += s[i];
    }
    return out;
}

const char* const kSetMenu =
    "What would you like to do?\n\n"
    "  1   View a small range of digits.\n"
    "  2   Compute Stats (Digit Counts + Hash).\n"
    "  3   Extract digits into a .txt file.\n"
    "  4   Compress digits 1 - N into one or more .qcd files.\n"
    "  5   Compress a subset of digits into .qcd files.\n"
    "  6   Add search directory. (if .qcd files are in multiple paths)\n";

TEST(DigitViewer, OpeningRefusalsAndTheMenuEntry) {
    TempDir dir;
    RunResult r = run({"digitviewer", "pi.dat"}, dir);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r, "quorvalith Digit Viewer v2.5.314\n")) << r.output;
    EXPECT_TRUE(has(r, "In Function: Menu_DigitViewer()\nUnrecognized Extension: .dat\n")) << r.output;
    r = run({"digitviewer", "some.dir/pi"}, dir);
    EXPECT_TRUE(has(r, "In Function: Menu_DigitViewer()\nNo Extension found.\n")) << r.output;
    // Main-menu entry 6 asks for the path; the end of input there ends the program cleanly.
    r = run({}, dir, "6\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "Enter the path of the file (include .txt or .qcd extensions):\n")) << r.output;
    r = run({}, dir, "6\npi\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(has(r, "No Extension found.")) << r.output;
}

TEST(DigitViewer, TextFileViewStatsAndCompressionRoundTrip) {
    TempDir dir;
    const size_t n = 20011;
    qvtest::write_file(dir.file("pi.txt"), pi_text(n));
    const std::string fraction = pi_text(n).substr(2);
    // View 1-120; stats 101-20011; view out of range; compress 1-N in 1000-digit files
    // (with a refused count and a refused file size first), then end of input.
    const std::string input = "1\n1\n120\n2\n101\n20011\n1\n20000\n20012\n4\n50\n20011\n10\n1000\npi\n \n";
    const RunResult r = run({"digitviewer", "pi.txt"}, dir, input);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "\n\nText File\nDigits after Decimal Place: 20,011\n")) << r.output;
    EXPECT_FALSE(has(r, "Extract digits")) << "extraction is offered for a text file";
    EXPECT_TRUE(has(r, "1415926535 8979323846 2643383279 5028841971 6939937510  :  50\n"));
    EXPECT_TRUE(has(r, "8214808651 3282306647  :  120\n")) << r.output;
    EXPECT_TRUE(has(r, "This range of digits is not accessible.")) << r.output;

    const std::string part = fraction.substr(100);
    std::string counts = "Digit Counts (101 - 20,011)\n";
    for (char d = '0'; d <= '9'; ++d) {
        counts += std::string("    ") + d + ": " + with_commas(std::count(part.begin(), part.end(), d)) + "\n";
    }
    EXPECT_TRUE(has(r, "Processing 19,911 digits...\n    From: 101\n    To  : 20,011\n")) << r.output;
    EXPECT_TRUE(has(r, counts)) << r.output;
    EXPECT_TRUE(has(r, "Hash(101 - 20,011)  " + std::to_string(horner_hash(part)) + "\n")) << r.output;
    EXPECT_TRUE(has(r, "Hash(A - B) are the digits from A - B as an integer modulo (2^61 - 1).\n"));

    EXPECT_TRUE(has(r, "\n\nWrite to Compressed File\nStarting Digit: 1\n"));
    EXPECT_TRUE(has(r, "Please select at least 100 digits."));
    EXPECT_TRUE(has(r, "Must be at least 100"));
    EXPECT_TRUE(has(r, "Files written: 21\n")) << r.output;
    for (int id : {0, 20}) EXPECT_TRUE(std::filesystem::exists(dir.file("pi - " + std::to_string(id) + ".qcd")));

    // The set, opened from its last file: the hash of digits 1-19 is the first packed word,
    // extraction of the whole set gives the source text back, and a view across files.
    const RunResult s = run({"digitviewer", dir.file("pi - 20.qcd")}, dir, "2\n1\n19\n3\n1\n20011\n \n1\n995\n1004\n");
    EXPECT_EQ(s.status, 0) << s.output;
    EXPECT_TRUE(has(s, "\n\nCompressed Digit File\nDigits after Decimal Place: 20,011\nDigits per File: 1,000\n\n"))
        << s.output;
    EXPECT_TRUE(has(s, kSetMenu)) << s.output;
    EXPECT_TRUE(has(s, "Hash(1 - 19)  " + std::to_string(1415926535897932384ull % ((1ull << 61) - 1)) + "\n"));
    EXPECT_EQ(qvtest::read_file(dir.file("pi (1 - 20011).txt")), pi_text(n));
    EXPECT_TRUE(has(s, fraction.substr(994, 10) + "  :  1,004\n")) << s.output;
}

TEST(DigitViewer, SubsetsSearchDirectoriesAndMissingFiles) {
    TempDir dir;
    qvtest::write_file(dir.file("pi.txt"), pi_text(5000));
    // Files 2..3 of a 4500-digit set of 1000-digit files; then a subset past the end.
    RunResult r = run({"digitviewer", "pi.txt"}, dir, "5\n4500\n1000\n2\n9\nsub\n \n5\n4500\n1000\n5\n6\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(has(r, "\n\nWrite to Compressed File (partial)\n")) << r.output;
    EXPECT_TRUE(has(r, "Digits per file: 1,000\nWriting digits: 2,001 - 4,500\n")) << r.output;
    EXPECT_TRUE(has(r, "No Digits to Recompress.")) << r.output;
    EXPECT_TRUE(std::filesystem::exists(dir.file("sub - 2.qcd")));
    EXPECT_TRUE(std::filesystem::exists(dir.file("sub - 4.qcd")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("sub - 1.qcd")));

    // The set is split over two directories: digits in file 4 are missing until it is added.
    std::filesystem::create_directory(dir.file("more"));
    std::filesystem::rename(dir.file("sub - 4.qcd"), dir.file("more/sub - 4.qcd"));
    r = run({"digitviewer", "sub - 2.qcd"}, dir, "1\n3990\n4010\n6\nmore\n1\n3990\n4010\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(count_occurrences(r.output, "This range of digits is not accessible."), 1u) << r.output;
    EXPECT_TRUE(has(r, "The following needed files are missing or inaccessible:\nsub - 4.qcd\n")) << r.output;
    const std::string fraction = pi_text(5000).substr(2);
    EXPECT_TRUE(has(r, fraction.substr(3989, 10) + " " + fraction.substr(3999, 10) + " " + fraction.substr(4009, 1) +
                          "  :  4,010\n")) << r.output;

    // Too few digits to compress anything.
    qvtest::write_file(dir.file("short.txt"), "3.14159");
    r = run({"digitviewer", "short.txt"}, dir, "4\n5\n");
    EXPECT_EQ(count_occurrences(r.output, "Too few digits to compress."), 2u) << r.output;
    // A text file without a point in its first 63 bytes has no statistics.
    qvtest::write_file(dir.file("nopoint.txt"), std::string(100, '1'));
    r = run({"digitviewer", "nopoint.txt"}, dir, "2\n");
    EXPECT_TRUE(has(r, "In Function: compute_stats()\nNo decimal place found.\n")) << r.output;

    // An unbounded set states no total; its complete files can still be read.
    {
        std::vector<char> raw(fraction.size());
        for (size_t i = 0; i < raw.size(); ++i) raw[i] = char(fraction[i] - '0');
        qmp::BasicQcdSetWriter unbounded(dir.path(), "u", "3.", 10, 100, 0);
        unbounded.store_digits(raw.data(), 0, 250);
    }
    r = run({"digitviewer", "u - 1.qcd"}, dir, "1\n191\n200\n");
    EXPECT_TRUE(has(r, "Digits after Decimal Place: Unknown - Extended File Format\nDigits per File: 100\n")) << r.output;
    EXPECT_TRUE(has(r, fraction.substr(190, 10) + "  :  200\n")) << r.output;
}

TEST(DigitViewer, EndOfInputAtEveryPromptEndsCleanly) {
    TempDir dir;
    qvtest::write_file(dir.file("pi.txt"), pi_text(3000));
    const std::string script = "4\n1000\n0\npi\n \n";  // a full compression, cut short below
    for (size_t cut = 0; cut <= script.size(); ++cut) {
        if (cut != 0 && script[cut - 1] != '\n') continue;
        const RunResult r = run({"digitviewer", "pi.txt"}, dir, script.substr(0, cut));
        EXPECT_EQ(r.status, 0) << "input cut after " << cut << " bytes:\n" << r.output;
    }
}

}  // namespace
