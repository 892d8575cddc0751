// The computation job's settings: every refusal with its exact text, the job file round trip
// with its comment header, and the command-line words giving the same settings as a job file
// written by hand.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/compute/compute_command_line.h"
#include "app/compute/compute_menu.h"
#include "app/compute/compute_settings.h"
#include "app/compute/float_session.h"
#include "app/compute/job_file.h"
#include "config/config_object.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace {

using qmp::test::expect_throw;
using qv::ComputeSettings;

// A complete job in .cfg text, written by hand: the reference for the reader and for the
// command line.
std::string job_text(const std::string& constant_members, const std::string& output_members,
                     const std::string& mode = "ram") {
    return "{\n"
           "    Action : \"CustomCompute\"\n"
           "    Constant : { " + constant_members + " }\n"
           "    ComputeSize : { DecimalDigits : 25000000 EnableHexDigits : true }\n"
           "    Output : { " + output_members + " }\n"
           "    OutputVerify : true\n"
           "    VerifyWithSecondary : true\n"
           "    Mode : \"" + mode + "\"\n"
           "    Parallelism : { TaskDecomposition : 6 Framework : { Framework : \"pushpool\" LogicalCores : [] "
           "WorkerThreads : 3 Randomization : false } }\n"
           "    Allocator : { Allocator : \"malloc\" }\n"
           "}\n";
}

const char kPiConstant[] = "Constant : \"pi\" Algorithm : \"ramanujan\"";
const char kQcdOutput[] =
    "Path : \"/tmp\" DigitWriter : { Framework : \"disk\" Extension : \"qcd\" DigitsPerFile : 1000000 RawIO : false }";

ComputeSettings from_text(const std::string& text) {
    ComputeSettings s = ComputeSettings::defaults();
    s.load_config(qmp::parse_cfg(text));
    return s;
}

ComputeSettings from_words(std::vector<std::string> words) {
    qmp::CommandLine args(std::move(words));
    return qv::parse_compute_command_line(args);
}

TEST(ComputeSettings, CommandLineWordsGiveTheSameJobAsAJobFile) {
    const ComputeSettings file = from_text(job_text(kPiConstant, kQcdOutput));
    const ComputeSettings words = from_words({"pi", "25m", "-alg", "ramanujan", "-hex", "-o", "/tmp", "-format", "qcd",
                                              "-digitsperfile", "1m", "-outputverify", "-verify", "-T", "3", "-TD", "6",
                                              "-MA", "malloc"});
    EXPECT_EQ(qmp::write_cfg(words.to_config(), false), qmp::write_cfg(file.to_config(), false));
    EXPECT_EQ(file.resolved_algorithm(), "ramanujan");
    EXPECT_EQ(file.output.files.digits_per_file, 1000000u);

    // Arguments and aliases: sqrt takes n, zeta(3) is zeta3, a digit count may carry a suffix.
    const ComputeSettings sqrt = from_words({"sqrt", "7", "2k"});
    EXPECT_EQ(sqrt.constant, "sqrt");
    EXPECT_EQ(sqrt.argument, 7);
    EXPECT_EQ(sqrt.decimal_digits, 2000u);
    EXPECT_EQ(from_words({"zeta(3)", "1b"}).constant, "zeta3");
    EXPECT_EQ(from_words({"e", "100", "-o", "-"}).output.writer, "stdout");
}

TEST(ComputeSettings, DigitCountsWithSuffixes) {
    EXPECT_EQ(qv::parse_digit_count("1m"), 1000000u);
    EXPECT_EQ(qv::parse_digit_count("25m"), 25000000u);
    EXPECT_EQ(qv::parse_digit_count("1b"), 1000000000u);
    EXPECT_EQ(qv::parse_digit_count("10k"), 10000u);
    EXPECT_EQ(qv::parse_digit_count("100003"), 100003u);
    EXPECT_EQ(qv::parse_digit_count("18446744073709551615"), std::nullopt);  // 20 characters
    for (const char* bad : {"", "m", "1mm", "1.5m", "-5", "12x", "20000000t"}) {
        EXPECT_EQ(qv::parse_digit_count(bad), std::nullopt) << bad;
    }
}

TEST(ComputeSettings, CommandLineRefusals) {
    const char* parser = "CustomCompute::parse_options()";
    using IPE = qmp::InvalidParametersException;
    using CLE = qmp::CommandLine::CommandLineException;
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-bogus"}); }, parser, "Invalid Command: -bogus");
    expect_throw<IPE>([&] { from_words({"pi", "12x"}); }, parser, "Invalid Parameter: 12x");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "extra"}); }, parser, "Invalid Parameter: extra");
    expect_throw<IPE>([&] { from_words({"sqrt", "two", "1m"}); }, parser, "Invalid Parameter: two");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-format", "zip"}); }, parser, "Invalid Parameter: zip");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-T", "0"}); }, parser, "Invalid Parameter: 0");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-M", "1g"}); }, parser, "Option -M is not supported for this mode.");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-swap", "/tmp"}); }, parser,
                      "Swap mode is not available in this build: use \"ram\".");
    expect_throw<CLE>([&] { from_words({"pi", "1m", "-o"}); }, parser, "Expected more parameters.");
    expect_throw<CLE>([&] { from_words({"sqrt", "2"}); }, parser, "Expected more parameters.");
    expect_throw<CLE>([&] { from_words({}); }, parser, "Expected more parameters.");
    expect_throw<IPE>([&] { from_words({"tau", "1m"}); }, "ConstantTable::find()", "Invalid constant token.");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-alg", "newton"}); }, "AlgorithmTable::find()",
                      "Invalid Algorithm: newton");
    expect_throw<IPE>([&] { from_words({"pi", "1m", "-digitsperfile", "999"}); }, "DigitFileSettings::set_digits_per_file()",
                      "DigitsPerFile must be at least 1,000,000 digits.");
}

TEST(ComputeSettings, JobFileRefusals) {
    using IPE = qmp::InvalidParametersException;
    const char* output = "DigitOutput::load_config()";
    const char* load = "ComputeSettings::load_config()";
    auto output_with = [](const std::string& digit_writer) {
        return "Path : \"\" DigitWriter : { " + digit_writer + " }";
    };
    expect_throw<IPE>([&] { from_text(job_text(kPiConstant, output_with("Framework : \"disk\" Extension : \"\""))); },
                      output, "No Extension found.");
    expect_throw<IPE>([&] { from_text(job_text(kPiConstant, output_with("Framework : \"disk\" Extension : \"zip\""))); },
                      output, "Unrecognized Extension: zip");
    expect_throw<IPE>([&] { from_text(job_text(kPiConstant, output_with("Framework : \"tape\" Extension : \"txt\""))); },
                      output, "Invalid Digit Writer: tape");
    expect_throw<IPE>([&] { from_text(job_text("Constant : \"Pi\" Algorithm : \"\"", kQcdOutput)); },
                      "ConstantTable::find()", "Invalid constant token.");
    expect_throw<IPE>([&] { from_text(job_text("Constant : \"e\" Algorithm : \"chudnovsky\"", kQcdOutput)); },
                      "AlgorithmTable::find()", "Invalid Algorithm: chudnovsky");
    expect_throw<IPE>([&] { from_text(job_text(kPiConstant, kQcdOutput, "swap")); }, load,
                      "Swap mode is not available in this build: use \"ram\".");
    expect_throw<IPE>([&] { from_text(job_text(kPiConstant, kQcdOutput, "disk")); }, load, "Invalid Mode: disk");

    // Settings that read well but cannot run.
    ComputeSettings s = from_text(job_text(kPiConstant, kQcdOutput));
    const char* check = "ComputeSettings::check()";
    const char* cannot = "Cannot run computation with these parameters.";
    s.decimal_digits = 99;
    expect_throw<IPE>([&] { s.check(); }, check, cannot);
    s.decimal_digits = 100;
    EXPECT_NO_THROW(s.check());
    ComputeSettings log = from_text(job_text("Constant : \"log\" Algorithm : \"\" Argument : 1", kQcdOutput));
    expect_throw<IPE>([&] { log.check(); }, check, cannot);

    // The driver's own guards.
    const qv::SessionToken forged{12345};
    expect_throw<IPE>([&] { qv::NormalFloatSessionB(s, forged); }, "NormalFloatSessionB::NormalFloatSessionB()",
                      "AuthorizationToken is invalid.");
    qv::NormalFloatSessionB session(s, qv::issue_session_token());
    expect_throw<IPE>([&] { session.run(forged); }, "NormalFloatSessionB::run()", "AuthorizationToken is invalid.");
    session.set(7);
    EXPECT_NO_THROW(session.set(7));
    expect_throw<IPE>([&] { session.set(8); }, "NormalFloatSession::set()", "Cannot set to different seed.");
}

TEST(ComputeSettings, SavedJobFileHasItsHeaderAndLoadsBackTheSameJob) {
    ComputeSettings s = from_words({"log", "3", "100003", "-alg", "zuniga2024ii", "-hex", "-o", "/tmp/d", "-compress"});
    const std::string base = "/tmp/qv_compute_job_" + std::to_string(::getpid());
    const std::string path = qv::save_job_file(base, s);
    EXPECT_EQ(path, base + ".cfg");
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    const std::string expected_header =
        "//  quorvalith Configuration File\r\n"
        "//  Version: 0.1.0\r\n"
        "//  Load this from quorvalith or run directly:\r\n"
        "//      quorvalith config filename.cfg\r\n"
        "//  If you're copying Windows file paths into here, be sure to replace\r\n"
        "//  all backslashes \"\\\" with forward slashes \"/\". Backslash is an\r\n"
        "//  escape character.\r\n";
    EXPECT_EQ(text.str().rfind(expected_header, 0), 0u) << text.str();
    // The driver's members follow the job's, "Mode" first.
    const std::string body = text.str();
    EXPECT_LT(body.find("OutputVerify"), body.find("Mode"));
    EXPECT_LT(body.find("Mode"), body.find("Parallelism"));
    EXPECT_LT(body.find("Parallelism"), body.find("Allocator"));

    ComputeSettings loaded = ComputeSettings::defaults();
    qv::load_job_file(base, loaded);  // ".cfg" appended as the config action does
    EXPECT_EQ(qmp::write_cfg(loaded.to_config(), false), qmp::write_cfg(s.to_config(), false));
    EXPECT_EQ(loaded.argument, 3);
    EXPECT_EQ(loaded.resolved_algorithm(), "zuniga2024ii");
    std::remove(path.c_str());
}

TEST(ComputeSettings, MenuShowsEveryEntryAndDisabledFeatures) {
    ComputeSettings s = from_words({"e", "1m"});
    const std::vector<std::string> lines = qv::compute_menu_lines(s, qv::ComputeMenuPurpose::Run, "1 byte");
    const char* prefixes[] = {"  1     Constant:", "  2     Algorithm:", "  3     Decimal Digits:",
                              "  4     Hexadecimal Digits:", "  5     Digit Output:", "  6     Verify Output:",
                              "  8     Multi-Threading:", "  9     Logical Memory Needed:", "        Logical Disk Needed:",
                              "  0     Start Computation!"};
    size_t at = 0;
    for (const char* prefix : prefixes) {
        while (at < lines.size() && lines[at].rfind(prefix, 0) != 0) ++at;
        EXPECT_LT(at, lines.size()) << "missing or out of order: " << prefix;
    }
    EXPECT_NE(std::find(lines.begin(), lines.end(), "  4     Hexadecimal Digits: (Disabled)"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "  6     Verify Output: (Disabled)"), lines.end());
    EXPECT_NE(std::find_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find("Load/Save Configuration File") != std::string::npos; }),
              lines.end());
    EXPECT_EQ(qv::compute_menu_lines(s, qv::ComputeMenuPurpose::Edit, "").back(), "  0     Finish");
    s.hex_digits = true;
    const std::vector<std::string> hex_lines = qv::compute_menu_lines(s, qv::ComputeMenuPurpose::Run, "");
    EXPECT_NE(std::find_if(hex_lines.begin(), hex_lines.end(),
                           [](const std::string& l) { return l.rfind("  4     Hexadecimal Digits:", 0) == 0 && l.find("830,482") != std::string::npos; }),
              hex_lines.end());
}

}  // namespace
