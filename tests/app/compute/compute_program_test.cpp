// Computations through the built program: the digits on disk (.txt and .qcd, decimal and
// hexadecimal) against the independent reference files, the job file and standard-output
// forms, the second computation, and a run whose hash check fires: it must exit non-zero with
// the check's message and leave no digit file under a final name.
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "qmp/digitfiles/qcd_set_reader.h"
#include "tests/app/process_runner.h"

namespace {

using qvtest::RunResult;
using qvtest::TempDir;

std::string reference(const std::string& name, uint64_t fraction_digits) {
    std::ifstream in("/work/shared/reference/" + name);
    std::stringstream text;
    text << in.rdbuf();
    const std::string all = text.str();
    return all.substr(0, all.find('.') + 1 + fraction_digits);
}

std::vector<std::string> file_names(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.emplace_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

RunResult run(const std::vector<std::string>& args, const TempDir& dir, std::vector<std::string> env = {}) {
    qvtest::RunOptions options;
    options.extra_env = std::move(env);
    options.time_limit_seconds = 60;
    return qvtest::run_program(args, dir.path(), options);
}

struct TextCase {
    std::vector<std::string> words;  // constant [argument]
    const char* file;                // digit file name without the directory
    const char* reference;
};

TEST(ComputeProgram, TextDigitsOfEveryConstantMatchTheReferences) {
    const TextCase cases[] = {
        {{"pi"}, "Pi - Dec - Chudnovsky (1988).txt", "pi-dec-1m.txt"},
        {{"e"}, "e - Dec - exp(1).txt", "e-dec-1m.txt"},
        {{"goldenratio"}, "Golden Ratio - Dec - Newton's Method.txt", "golden-dec-1m.txt"},
        {{"sqrt", "2"}, "Sqrt(2) - Dec - Newton's Method.txt", "sqrt2-dec-1m.txt"},
        {{"log", "2"}, "Log(2) - Dec - Zuniga (2024-iii).txt", "log2-dec-1m.txt"},
        {{"zeta3"}, "Zeta(3) (Apery's Constant) - Dec - Zuniga (2023-vi).txt", "zeta3-dec-1m.txt"},
        {{"catalan"}, "Catalan's Constant - Dec - Pilehrood (2010-short).txt", "catalan-dec-1m.txt"},
        {{"lemniscate"}, "Lemniscate - Dec - Zuniga (2023-x).txt", "lemniscate-dec-1m.txt"},
        {{"gamma"}, "Euler-Mascheroni Constant - Dec - Brent-McMillan with Refinement.txt", "euler-dec-1m.txt"},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.file);
        TempDir dir;
        std::vector<std::string> args{"custom"};
        args.insert(args.end(), c.words.begin(), c.words.end());
        args.insert(args.end(), {"10000", "-o", dir.path(), "-outputverify"});
        const RunResult r = run(args, dir);
        ASSERT_EQ(r.status, 0) << r.output;
        EXPECT_EQ(qvtest::read_file(dir.file(c.file)), reference(c.reference, 10000));
        EXPECT_NE(r.output.find("Spot Check: Good through 10,000"), std::string::npos) << r.output;
    }
}

TEST(ComputeProgram, LargerRunsInBothFormatsWithHexadecimalDigits) {
    TempDir dir;
    const RunResult r = run({"custom", "pi", "100003", "-hex", "-o", dir.path()}, dir);
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(qvtest::read_file(dir.file("Pi - Dec - Chudnovsky (1988).txt")), reference("pi-dec-1m.txt", 100003));
    // floor(100003 * log16(10)) = 83050 hexadecimal digits.
    EXPECT_EQ(qvtest::read_file(dir.file("Pi - Hex - Chudnovsky (1988).txt")), reference("pi-hex-1m.txt", 83050));
    EXPECT_NE(r.output.find("Spot Check: Good through 100,000"), std::string::npos);
    EXPECT_EQ(qvtest::read_file(dir.file("Pi - Validation.txt")).rfind("Benchmark Validation File", 0), 0u);
    const std::string report = qvtest::read_file(dir.file("Pi - Report.json"));
    EXPECT_NE(report.find("\"DecimalDigits\": 100003"), std::string::npos) << report;
    EXPECT_NE(report.find("\"ChecksPassed\": [\"Base Conversion Hash\", \"Binary Output Hash\", \"Spot Check\"]"),
              std::string::npos) << report;
    const RunResult v = run({"validate", dir.file("Pi - Validation.txt")}, dir);
    EXPECT_NE(v.output.find("Validation Passed!"), std::string::npos) << v.output;

    // The compressed set, read back by the program itself and then compared here.
    TempDir qcd;
    const RunResult q = run({"custom", "e", "1200000", "-o", qcd.path(), "-format", "qcd", "-digitsperfile", "1m",
                             "-outputverify", "-T", "2"}, qcd);
    ASSERT_EQ(q.status, 0) << q.output;
    EXPECT_NE(q.output.find("Spot Check: Good through 1,000,000"), std::string::npos) << q.output;
    qmp::BasicQcdSetReader reader(qcd.file("e - Dec - exp(1) - 0.qcd"));
    ASSERT_EQ(reader.total_digits(), 1200000u);
    EXPECT_EQ(reader.first_digits(), "2.");
    std::string digits(1000000, '\0');
    reader.load_digits(digits.data(), 0, 1000000);
    for (char& d : digits) d = char('0' + d);
    EXPECT_TRUE("2." + digits == reference("e-dec-1m.txt", 1000000));
    const std::vector<std::string> names = file_names(qcd.path());
    EXPECT_NE(std::find(names.begin(), names.end(), "e - Dec - exp(1) - 1.qcd"), names.end());
}

TEST(ComputeProgram, JobFileStandardOutputAndSecondaryVerification) {
    TempDir dir;
    qvtest::write_file(dir.file("job.cfg"),
                       "{\n    Action : \"CustomCompute\"\n"
                       "    Constant : { Constant : \"sqrt\" Algorithm : \"newton\" Argument : 2 }\n"
                       "    ComputeSize : { DecimalDigits : 5000 EnableHexDigits : false }\n"
                       "    Output : { Path : \"out\" DigitWriter : { Framework : \"disk\" Extension : \"txt\" } }\n"
                       "    OutputVerify : true\n    Mode : \"ram\"\n"
                       "    Parallelism : { TaskDecomposition : 1 Framework : { Framework : \"none\" } }\n"
                       "    Allocator : { Allocator : \"mmap\" }\n}\n");
    ::mkdir(dir.file("out").c_str(), 0755);
    const RunResult r = run({"config", "job.cfg"}, dir);
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(qvtest::read_file(dir.file("out/Sqrt(2) - Dec - Newton's Method.txt")), reference("sqrt2-dec-1m.txt", 5000));

    // A user's formula file; its name names the digit file.
    qvtest::write_file(dir.file("phi.cfg"),
                       "{ Shift : [ { LinearCombination : [[5 { Invsqrt : 5 }] [1 { Integer : 1 }]] } -1 ] }\n");
    const RunResult custom = run({"custom", "custom", "phi.cfg", "4000"}, dir);
    ASSERT_EQ(custom.status, 0) << custom.output;
    EXPECT_EQ(qvtest::read_file(dir.file("phi - Dec - User-Defined Formula File.txt")), reference("golden-dec-1m.txt", 4000));

    const RunResult out = run({"custom", "e", "3000", "-o", "-"}, dir);
    ASSERT_EQ(out.status, 0) << out.output;
    EXPECT_NE(out.output.find(reference("e-dec-1m.txt", 3000) + "\n"), std::string::npos) << out.output;

    // Explicit huge pages: where the system has none configured, the failure is logged and the
    // run goes on in ordinary pages.
    if (qvtest::read_file("/proc/sys/vm/nr_hugepages") == "0\n") {
        const RunResult pages = run({"custom", "e", "3000", "-MA", "mmap-largepages", "-o", dir.path()}, dir);
        ASSERT_EQ(pages.status, 0) << pages.output;
        EXPECT_NE(pages.output.find("Memory allocation errors detected. Possible performance degradation.\n"
                                    "Please see event log for details."),
                  std::string::npos) << pages.output;
        EXPECT_NE(qvtest::read_file(dir.file("e - Validation.txt")).find("Allocation Error: large pages"), std::string::npos);
    }

    const RunResult twice = run({"custom", "pi", "20000", "-verify", "-o", dir.path()}, dir);
    ASSERT_EQ(twice.status, 0) << twice.output;
    EXPECT_NE(twice.output.find("Secondary Algorithm: Ramanujan (1910)"), std::string::npos) << twice.output;
    EXPECT_NE(twice.output.find("Secondary algorithm agrees."), std::string::npos) << twice.output;
}

TEST(ComputeProgram, MenuEditsSavesAndRunsTheJob) {
    TempDir dir;
    qvtest::RunOptions options;
    // Main menu 4; digits 5000; load/save -> save as "saved"; start.
    options.input = "4\n3\n5000\n7\n2\nsaved\n0\n";
    const RunResult r = qvtest::run_program({}, dir.path(), options);
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("  3     Decimal Digits:         5,000\n"), std::string::npos) << r.output;
    EXPECT_EQ(qvtest::read_file(dir.file("saved.cfg")).rfind("//  quorvalith Configuration File\r\n", 0), 0u);
    EXPECT_EQ(qvtest::read_file(dir.file("Pi - Dec - Chudnovsky (1988).txt")), reference("pi-dec-1m.txt", 5000));
    // The saved job runs the same computation.
    TempDir again;
    qvtest::write_file(again.file("saved.cfg"), qvtest::read_file(dir.file("saved.cfg")));
    ASSERT_EQ(run({"config", "saved"}, again).status, 0);
    EXPECT_EQ(qvtest::read_file(again.file("Pi - Dec - Chudnovsky (1988).txt")), reference("pi-dec-1m.txt", 5000));
}

TEST(ComputeProgram, FailedCheckLeavesNoFinalFilesAndBadWordsWriteNothing) {
    TempDir dir;
    const RunResult r = run({"custom", "pi", "100003", "-o", dir.path()}, dir, {"QMP_TEST_CORRUPT_DIGIT_WORD=777"});
    EXPECT_EQ(r.status, 1) << r.output;
    EXPECT_NE(r.output.find("Base Conversion Failed: Checksum Mismatch"), std::string::npos) << r.output;
    EXPECT_EQ(file_names(dir.path()), std::vector<std::string>{"environment.cfg"});

    // Digits changed on disk after writing: the read-back fires and the files go back to their
    // working names.
    for (const char* format : {"txt", "qcd"}) {
        SCOPED_TRACE(format);
        TempDir out;
        const RunResult b = run({"custom", "e", "20000", "-o", out.path(), "-format", format, "-outputverify"}, out,
                                {"QMP_TEST_CORRUPT_WRITTEN_FILE=1"});
        EXPECT_EQ(b.status, 1) << b.output;
        EXPECT_NE(b.output.find("verify_written_digits()"), std::string::npos) << b.output;
        const std::string working = std::string("e - Dec - exp(1)") + (format == std::string("txt") ? " (incomplete).txt" : " - 0 (incomplete).qcd");
        EXPECT_EQ(file_names(out.path()), (std::vector<std::string>{working, "environment.cfg"}));
    }

    struct Bad {
        std::vector<std::string> words;
        const char* message;
    } cases[] = {
        {{"custom", "pi", "1m", "-fast"}, "Invalid Command: -fast"},
        {{"custom", "pi", "1q"}, "Invalid Parameter: 1q"},
        {{"custom", "pie", "1m"}, "Invalid constant token."},
        {{"custom", "pi", "1m", "-alg", "machin"}, "Invalid Algorithm: machin"},
        {{"custom", "pi", "1m", "-T"}, "Expected more parameters."},
        {{"custom", "pi", "50"}, "Cannot run computation with these parameters."},
        {{"custom", "pi", "1000", "-o", "/nonexistent/dir"}, "The output directory does not exist: /nonexistent/dir"},
        {{"custom", "pi", "1m", "-swap", "/tmp"}, "Swap mode is not available in this build"},
    };
    for (const Bad& c : cases) {
        TempDir empty;
        const RunResult b = run(c.words, empty);
        EXPECT_EQ(b.status, 1) << b.output;
        EXPECT_NE(b.output.find(c.message), std::string::npos) << b.output;
        EXPECT_EQ(file_names(empty.path()), std::vector<std::string>{"environment.cfg"});
    }
}

}  // namespace
