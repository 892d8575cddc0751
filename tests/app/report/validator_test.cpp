// The validator's verdicts: a genuine file passes; every single-byte edit, deletion and
// insertion above the seal is caught; the keyed polynomial checksum alone catches every
// single-byte substitution; version refusals, format 1.2, missing tags, malformed seals and
// files that are sealed but not valid. Then the "validate" action of the built program.
#include "app/report/validator.h"

#include "app/report/seal.h"
#include "app/report/validation_file.h"
#include "tests/app/process_runner.h"
#include "tests/app/report/report_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using qv::ValidationVerdict;

const char kTampered[] = "Validation Failed: File is either invalid or has been tampered with.";
const char kVersionLine[] = "Validation Version:    ";

std::string sample_file() { return qv::render_validation_file(qvtest::sample_record()); }
std::string body_of(const std::string& file) { return file.substr(0, file.rfind("Checksum0: ")); }
std::string resealed(const std::string& body) { return body + qv::seal_lines(body); }

std::string without_line(std::string text, const std::string& line_start) {
    const size_t at = text.find("\r\n" + line_start);
    EXPECT_NE(at, std::string::npos) << line_start;
    const size_t end = text.find("\r\n", at + 2);
    text.erase(at, end - at);
    return text;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

qv::ValidationOutcome check(const std::string& text) { return qv::validate_validation_text(text, "sample.txt"); }

TEST(Validator, GenuineFilePassesAndShowsTheRecord) {
    const qv::ValidationOutcome out = check(sample_file());
    ASSERT_EQ(out.verdict, ValidationVerdict::Passed);
    const std::vector<std::string> head = {"Validation Format 1.3", "Validation Passed!", "",
                                           "Computation Time: 12.250 seconds", "Total Time:       13.000 seconds", "",
                                           "Program:               quorvalith v0.1.0"};
    ASSERT_GE(out.lines.size(), head.size());
    EXPECT_EQ(std::vector<std::string>(out.lines.begin(), out.lines.begin() + head.size()), head);
    EXPECT_NE(std::find(out.lines.begin(), out.lines.end(), "Spot Check:                 Good through 1000000"),
              out.lines.end());
}

TEST(Validator, EverySingleByteEditAboveTheSealFails) {
    const std::string file = sample_file();
    const size_t sealed_size = body_of(file).size();
    const size_t version_value = file.find(kVersionLine) + std::string(kVersionLine).size();
    size_t failures_seen = 0;
    // Inside the version value an edit may make another well-formed version ("1.3.1" -> "1.2.1",
    // "0.3.1", "13.1"), which is rightly refused by its version instead; flipping bit 6 never
    // makes a digit there, so that edit must be reported as tampering everywhere.
    const auto refused_version = [&](size_t i, ValidationVerdict verdict) {
        return i >= version_value && i < version_value + 5 &&
               (verdict == ValidationVerdict::VersionTooOld || verdict == ValidationVerdict::VersionTooNew);
    };
    for (size_t i = 0; i < sealed_size; ++i) {
        for (const char flip : {'\x40', '\x01'}) {
            std::string edited = file;
            edited[i] ^= flip;
            const qv::ValidationOutcome out = check(edited);
            if (flip == '\x01' && refused_version(i, out.verdict)) continue;
            ASSERT_EQ(out.verdict, ValidationVerdict::Tampered) << "byte " << i << " flip " << int(flip);
            ASSERT_EQ(out.lines.back(), kTampered);
            ++failures_seen;
        }
        std::string deleted = file;
        deleted.erase(i, 1);
        const ValidationVerdict verdict = check(deleted).verdict;
        ASSERT_TRUE(verdict == ValidationVerdict::Tampered || refused_version(i, verdict)) << "deleted byte " << i;
        std::string inserted = file;
        inserted.insert(i, 1, ' ');
        ASSERT_EQ(check(inserted).verdict, ValidationVerdict::Tampered) << "inserted at " << i;
    }
    EXPECT_GT(failures_seen, sealed_size);
    EXPECT_EQ(check(file).verdict, ValidationVerdict::Passed);
}

TEST(Validator, PolynomialChecksumAloneCatchesEverySubstitution) {
    const std::string body = body_of(sample_file());
    const uint64_t original = qv::keyed_polynomial_hash(body);
    std::string edited = body;
    for (size_t i = 0; i < body.size(); ++i) {
        for (int delta : {1, 0x80, 0xff}) {
            edited[i] = static_cast<char>(static_cast<unsigned char>(body[i]) + delta);
            ASSERT_NE(qv::keyed_polynomial_hash(edited), original) << "byte " << i << " delta " << delta;
        }
        edited[i] = body[i];
    }
}

TEST(Validator, VersionRefusals) {
    const std::string body = body_of(sample_file());
    const std::vector<std::string> too_old = {"Validation file versions 1.0 an 1.1 are no longer supported.",
                                              "To validate this file, please use quorvalith v0.5.5."};
    const std::vector<std::string> too_new = {"This validation file version is too new.",
                                              "Please use a newer version of quorvalith."};
    // Refused by the version alone: a retired file is refused even with a broken seal.
    const std::pair<const char*, bool> versions[] = {{"1.0", true},    {"1.1", true},    {"1.1.7", true},
                                                     {"1.4", false},   {"1.4.0", false}, {"2.0.0", false},
                                                     {"1.10", false}};
    for (const auto& [version, retired] : versions) {
        const std::string text = replaced(body, "1.3.1\r\n", std::string(version) + "\r\n") + "junk\r\n";
        EXPECT_EQ(check(text).lines, retired ? too_old : too_new) << version;
    }
}

TEST(Validator, Format12HasFewerFieldsAndMissingTagsAreNamed) {
    std::string body = body_of(sample_file());
    for (const char* label : {"Logical Largest Checkpoint:", "Logical Peak Disk Usage:", "Logical Disk Bytes Read:",
                              "Logical Disk Bytes Written:", "Frequency Sanity Check:", "Reference Clock 0:",
                              "Reference Clock 1:", "Reference Clock 2:"}) {
        body = without_line(body, label);
    }
    // Without those fields the file is a valid 1.2 file and an incomplete 1.3 file.
    const std::string as_12 = resealed(replaced(body, "1.3.1\r\n", "1.2.0\r\n"));
    qv::ValidationOutcome out = check(as_12);
    EXPECT_EQ(out.verdict, ValidationVerdict::Passed);
    EXPECT_EQ(out.lines.front(), "Validation Format 1.2");

    out = check(resealed(body));
    EXPECT_EQ(out.verdict, ValidationVerdict::TagNotFound);
    EXPECT_EQ(out.lines, (std::vector<std::string>{"Validation Format 1.3", "Tag not found in sample.txt"}));

    for (const char* label : {"User:", "Validation Version:"}) {
        EXPECT_EQ(check(resealed(without_line(body_of(as_12), label))).lines.back(), "Tag not found in sample.txt");
    }
}

TEST(Validator, MalformedSealsAndInvalidFiles) {
    const std::string file = sample_file();
    const std::string body = body_of(file);
    const size_t c0 = file.find("Checksum0: ") + 11;
    const size_t c1 = file.find("Checksum1: ") + 11;
    std::string wrong_checksum1 = file;
    wrong_checksum1[c1 + 15] = wrong_checksum1[c1 + 15] == '0' ? '1' : '0';
    const std::string hash = "Validation Failed: Invalid Hash", invalid = "Validation Failed - Invalid File";
    const std::pair<std::string, std::string> cases[] = {
        // The checksums' own text: wrong length or characters; a well-formed wrong one is tampering.
        {std::string(file).erase(c1, 1), hash},
        {std::string(file).replace(c0, 1, "G"), hash},
        {wrong_checksum1, kTampered},
        // No seal, a truncated seal, text after the seal.
        {body, invalid},
        {"", invalid},
        {file.substr(0, c1 - 11), invalid},
        {file + "\r\n", invalid},
        // Sealed correctly, but not a file this program writes.
        {resealed(replaced(body, "DO NOT MODIFY!", "PLEASE MODIFY")), invalid},
        {resealed(replaced(body, "1.3.1\r\n", "one\r\n")), invalid},
        {resealed(replaced(body, "12.250 seconds", "12.25s")), invalid},
        {resealed(replaced(body, "Decimal Digits:        1000000", "Decimal Digits:        1e6")), invalid},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(check(cases[i].first).lines.back(), cases[i].second) << i;
}

// ---- The "validate" action of the built program.

TEST(Validator, ProgramValidateAction) {
    qvtest::TempDir dir;
    const std::string good = dir.file("good.txt");
    qv::write_validation_file(good, qvtest::sample_record());
    std::string tampered_text = qvtest::read_file(good);
    tampered_text[tampered_text.find("tester")] = 'T';
    qvtest::write_file(dir.file("bad.txt"), tampered_text);

    qvtest::RunResult r = qvtest::run_program({"validate", "good.txt"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Benchmark Validator\n"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("Validation Format 1.3\nValidation Passed!\n\nComputation Time: 12.250 seconds\n"
                            "Total Time:       13.000 seconds\n"),
              std::string::npos)
        << r.output;
    EXPECT_EQ(r.output.find("Enter Path of Validation File:"), std::string::npos);

    // Asked for the path when none is given; a quoted path is accepted.
    qvtest::RunOptions options;
    options.input = "\"bad.txt\"\n";
    r = qvtest::run_program({"validate"}, dir.path(), options);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Enter Path of Validation File:\n"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find(std::string(kTampered) + "\n"), std::string::npos) << r.output;
    EXPECT_EQ(r.output.find("Validation Passed!"), std::string::npos);

    // End of input at the prompt ends cleanly; a missing file is an error.
    r = qvtest::run_program({"validate"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.output;
    r = qvtest::run_program({"validate", "missing.txt"}, dir.path());
    EXPECT_NE(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Unable to open file"), std::string::npos) << r.output;
    r = qvtest::run_program({"validate", "good.txt", "more"}, dir.path());
    EXPECT_NE(r.output.find("Invalid Parameter: more"), std::string::npos) << r.output;
}

}  // namespace
