// The validation file's layout byte for byte (labels, paddings, line ends, order, the texts of
// disabled and special values), the configuration dump read back by the .cfg reader, and
// writing under a working name.
#include "app/report/validation_file.h"

#include "qmp/exception.h"
#include "tests/app/process_runner.h"
#include "tests/app/report/report_test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

const char kGoldenBeforeDump[] =
    "Benchmark Validation File - DO NOT MODIFY! If you do, it will fail validation.\r\n"
    "\r\n"
    "Validation Version:    1.3.1\r\n"
    "Program:               quorvalith v0.1.0\r\n"
    "Binary:                x64 AVX512\r\n"
    "User:                  tester\r\n"
    "\r\n"
    "Constant:              Pi\r\n"
    "Algorithm:             Chudnovsky (1988)\r\n"
    "Decimal Digits:        1000000\r\n"
    "Hexadecimal Digits:    830482\r\n"
    "Computation Mode:      Swap Mode\r\n"
    "Threading Mode:        Push Pool  ->  2 / ?  (randomization on)\r\n"
    "Working Memory:        123456789 bytes\r\n"
    "Total Memory:          2147483648 bytes\r\n"
    "\r\n"
    "Logical Largest Checkpoint:    11 bytes\r\n"
    "Logical Peak Disk Usage:       22 bytes\r\n"
    "Logical Disk Bytes Read:       33 bytes\r\n"
    "Logical Disk Bytes Written:    44 bytes\r\n"
    "\r\n"
    "Configuration Dump:\r\n";

const char kGoldenAfterDump[] =
    "\r\n"
    "Start Date:            Mon Nov 23 22:00:00 2026\r\n"
    "End Date:              Mon Nov 23 22:00:13 2026\r\n"
    "Total Computation Time:    12.250 seconds\r\n"
    "Start-to-End Wall Time:    13.000 seconds\r\n"
    "\r\n"
    "SHA256-dec(1 - 1000000): 00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff\r\n"
    "Dec Counts: 100000 100001 100002 100003 100004 100005 100006 100007 100008 100009\r\n"
    "Hex Counts: 51900 51901 51902 51903 51904 51905 51906 51907 51908 51909 51910 51911 51912 51913 "
    "51914 51915\r\n"
    "Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = 1234567890123456789\r\n"
    "Hex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = 987654321\r\n"
    "\r\n"
    "Spot Check:                 Good through 1000000\r\n"
    "Timer Sanity Check:         Passed\r\n"
    "Frequency Sanity Check:     Disabled in this version of quorvalith\r\n"
    "Reference Clock:            clock_gettime(CLOCK_MONOTONIC)\r\n"
    "Reference Clock 0:          rdtsc\r\n"
    "Reference Clock 1:          tsc\r\n"
    "Reference Clock 2:          hpet\r\n"
    "Is Debugger Present:        No\r\n"
    "Is Contiguous:              Yes\r\n"
    "ECC Recovered Errors:       0\r\n"
    "Colors:                     Enabled\r\n"
    "Status Line:                Disabled\r\n"
    "\r\n"
    "Event Log:\r\n"
    "22:00:00 Begin Computation\r\n"
    "22:00:12 End Computation  second line\r\n"
    "\r\n";

TEST(ValidationFile, GoldenLayout) {
    const qv::ValidationRecord record = qvtest::sample_record();
    const std::string body = qv::render_validation_body(record);
    const std::string before = kGoldenBeforeDump;
    const std::string after = kGoldenAfterDump;
    ASSERT_GT(body.size(), before.size() + after.size());
    EXPECT_EQ(body.substr(0, before.size()), before);
    EXPECT_EQ(body.substr(body.size() - after.size()), after);

    // The dump in between is the job configuration in the .cfg syntax, one line break after it.
    const std::string dump = body.substr(before.size(), body.size() - before.size() - after.size());
    ASSERT_GE(dump.size(), 2u);
    EXPECT_EQ(dump.substr(dump.size() - 2), "\r\n");
    EXPECT_EQ(qmp::parse_cfg(dump), record.configuration);
    EXPECT_NE(dump.find("    DecimalDigits : 1000000\r\n"), std::string::npos) << dump;

    // No bare line feed anywhere: every line ends in "\r\n".
    for (size_t i = 0; i < body.size(); ++i) {
        if (body[i] == '\n') {
            ASSERT_TRUE(i > 0 && body[i - 1] == '\r') << "at " << i;
        }
    }

    // The whole file is the body followed by exactly the two seal lines.
    const std::string file = qv::render_validation_file(record);
    ASSERT_EQ(file.substr(0, body.size()), body);
    const std::string seal = file.substr(body.size());
    ASSERT_EQ(seal.size(), 11 + 64 + 2 + 11 + 16 + 2) << seal;
    EXPECT_EQ(seal.substr(0, 11), "Checksum0: ");
    EXPECT_EQ(seal.substr(77, 11), "Checksum1: ");
}

TEST(ValidationFile, DisabledAndSpecialValues) {
    qv::ValidationRecord record = qvtest::sample_record();
    record.hexadecimal_digits.reset();
    record.mode = qv::ComputationMode::Ram;
    record.timer_sanity = qv::TimerSanity::DisabledByCheckpointRestart;
    record.spot_check = {qv::SpotCheckKind::MismatchAt, 4321};
    record.debugger_present = true;
    record.contiguous = false;
    std::string body = qv::render_validation_body(record);
    record.timer_sanity = qv::TimerSanity::UnableToValidate;
    record.spot_check = {};
    body += qv::render_validation_body(record);
    for (const char* line : {"\r\nHexadecimal Digits:    Disabled\r\n", "\r\nComputation Mode:      Ram Only\r\n",
                             "\r\nHex Counts: Disabled\r\n", "\r\nHex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = Disabled\r\n",
                             "\r\nTimer Sanity Check:         Disabled due to checkpoint restart\r\n",
                             "\r\nTimer Sanity Check:         Unable to Validate\r\n",
                             "\r\nSpot Check:                 Mismatch at 4321\r\n",
                             "\r\nSpot Check:                 Not Available\r\n", "\r\nIs Debugger Present:        Yes\r\n",
                             "\r\nIs Contiguous:              No\r\n"}) {
        EXPECT_NE(body.find(line), std::string::npos) << line;
    }
}

TEST(ValidationFile, WrittenUnderAWorkingNameThenRenamed) {
    qvtest::TempDir dir;
    const qv::ValidationRecord record = qvtest::sample_record();
    const std::string path = dir.file("Pi - validation.txt");
    qvtest::write_file(path, "old contents");
    qv::write_validation_file(path, record);
    EXPECT_EQ(qvtest::read_file(path), qv::render_validation_file(record));
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));

    const std::string missing = dir.file("no such folder/validation.txt");
    try {
        qv::write_validation_file(missing, record);
        ADD_FAILURE() << "no exception";
    } catch (const qmp::FileIO::FileException& e) {
        EXPECT_EQ(e.function(), "ValidationFile::write()");
        EXPECT_EQ(e.path(), missing + ".tmp");
        EXPECT_EQ(e.message(), "Path: " + missing + ".tmp\nUnable to create file: No such file or directory.");
    }
    EXPECT_FALSE(std::filesystem::exists(missing));
}

}  // namespace
