// End-to-end runs of "bbp" and "bench-bbp": the digits printed against the reference file and
// the peer extractor, the position convention line, positions typed at the prompt and in the
// menu, threads and pinning words, the long-run confirmation, and the errors with their status.
#include "process_runner.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using qvtest::RunResult;
using qvtest::TempDir;

std::string reference_after(size_t position, size_t count) {
    std::ifstream in("/work/shared/reference/pi-hex-1m.txt");
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return text.substr(2 + position, count);
}

RunResult run(const std::vector<std::string>& args, const TempDir& dir, const std::string& input = "") {
    qvtest::RunOptions options;
    options.input = input;
    return qvtest::run_program(args, dir.path(), options);
}

TEST(BbpJob, PrintsTheReferenceDigitsAfterThePosition) {
    TempDir dir;
    RunResult r = run({"bbp", "1000"}, dir);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Hex digits: " + reference_after(1000, 24) + "\n"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("Position:   1000  (the first digit printed is hexadecimal digit 1001 after the point)"),
              std::string::npos);
    EXPECT_NE(r.output.find("Digits:     1001 to 1024 after the point"), std::string::npos);

    r = run({"bbp", "threads=2", "pin=0", "0"}, dir);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Hex digits: 243f6a8885a308d313198a2e\n"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("Threads:    2\n"), std::string::npos);
    EXPECT_NE(r.output.find("Pin order:  0\n"), std::string::npos);

    // Asked at the prompt, and through menu entry 5 (position, threads, no pinning).
    r = run({"bbp"}, dir, "2.5k\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Hex digits: " + reference_after(2500, 24)), std::string::npos) << r.output;
    r = run({}, dir, "5\n1y\n777\n1\n\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Invalid position: 1y"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("Hex digits: " + reference_after(777, 24)), std::string::npos) << r.output;
}

TEST(BbpJob, ErrorsEndWithStatusOne) {
    TempDir dir;
    const struct {
        std::vector<std::string> args;
        const char* text;
    } cases[] = {
        {{"bbp", "1x"}, "Invalid position: 1x"},
        {{"bbp", "1000000000000000001"}, "The position must not exceed 1000000000000000000."},
        {{"bbp", "5", "6"}, "Invalid Parameter: 6"},
        {{"bbp", "threads=0", "5"}, "Threads must be between 1 and 1024."},
        {{"bbp", "pin=a", "5"}, "Invalid core list: a"},
        {{"bbp", "5", "-TD", "4"}, "Option -TD is not supported for this mode."},
        {{"bench-bbp", "1m", "now"}, "Invalid Parameter: now"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[1]);
        const RunResult r = run(c.args, dir);
        EXPECT_EQ(r.status, 1) << r.output;
        EXPECT_NE(r.output.find(c.text), std::string::npos) << r.output;
        EXPECT_EQ(r.output.find("Hex digits:"), std::string::npos);
    }
}

TEST(BbpJob, BenchmarkRunsSmallSizesAndAsksBeforeLongOnes) {
    TempDir dir;
    RunResult r = run({"bench-bbp", "1m", "-noSMT"}, dir);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Estimated time: "), std::string::npos) << r.output;
    // Digits 1000001..1000020 as the peer reference extractor (bbp_ref 1000000) prints them.
    EXPECT_NE(r.output.find("Hex digits: 6c65e52cb459350050e4"), std::string::npos) << r.output;

    r = run({"bench-bbp", "100t"}, dir, "n\n");
    EXPECT_EQ(r.status, 1) << r.output;
    EXPECT_NE(r.output.find("This size takes longer than a day on this machine (estimated "), std::string::npos)
        << r.output;
    EXPECT_NE(r.output.find("Run it anyway? (y/n): "), std::string::npos);
    EXPECT_EQ(r.output.find("Computing..."), std::string::npos);
}

}  // namespace
