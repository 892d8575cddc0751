// The validator's decisions (validate_validation_text) and its console form (run_validator).
// The version refusals come first because retired and future formats are sealed differently;
// everything else is judged only after the seal, so an edited byte anywhere above the seal is
// reported as tampering, not as whatever the edit happened to break.
#include "app/report/validator.h"

#include "app/prompt.h"
#include "app/report/seal.h"
#include "app/report/validation_labels.h"
#include "qmp/console.h"
#include "qmp/exception.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

namespace qv {

namespace {

namespace L = validation_labels;
using qmp::Console::Colour;

constexpr std::string_view kEol = "\r\n";

struct Version {
    unsigned major = 0;
    unsigned minor = 0;
};

bool all_digits(std::string_view s) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

// "major.minor" or "major.minor.patch", each a decimal number.
std::optional<Version> parse_version(std::string_view value) {
    std::string_view parts[3];
    int n_parts = 0;
    while (n_parts < 3) {
        const size_t dot = value.find('.');
        parts[n_parts++] = value.substr(0, dot);
        if (dot == std::string_view::npos) break;
        value.remove_prefix(dot + 1);
        if (n_parts == 3) return std::nullopt;  // a fourth part
    }
    if (n_parts < 2) return std::nullopt;
    for (int i = 0; i < n_parts; ++i) {
        if (!all_digits(parts[i])) return std::nullopt;
    }
    return Version{static_cast<unsigned>(std::atoi(std::string(parts[0]).c_str())),
                   static_cast<unsigned>(std::atoi(std::string(parts[1]).c_str()))};
}

// The value of the first line of `text` that starts with `label`, without its line end.
std::optional<std::string_view> find_field(std::string_view text, std::string_view label) {
    size_t start = 0;
    if (text.substr(0, label.size()) != label) {
        const std::string needle = std::string(kEol) + std::string(label);
        const size_t at = text.find(needle);
        if (at == std::string_view::npos) return std::nullopt;
        start = at + kEol.size();
    }
    const size_t value_start = start + label.size();
    const size_t end = text.find(kEol, value_start);
    if (end == std::string_view::npos) return std::nullopt;
    return text.substr(value_start, end - value_start);
}

bool is_count(std::string_view s) {
    if (s.empty() || s.size() > 20) return false;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

bool is_lower_hex(std::string_view s, size_t length) {
    if (s.size() != length) return false;
    for (char c : s) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return true;
}

bool is_seconds(std::string_view value) {
    constexpr std::string_view kUnit = " seconds";
    if (value.size() <= kUnit.size() || value.substr(value.size() - kUnit.size()) != kUnit) return false;
    value.remove_suffix(kUnit.size());
    const size_t dot = value.find('.');
    if (dot == std::string_view::npos) return all_digits(value);
    return all_digits(value.substr(0, dot)) && all_digits(value.substr(dot + 1));
}

ValidationOutcome fail(ValidationOutcome outcome, ValidationVerdict verdict, std::string message) {
    outcome.verdict = verdict;
    outcome.lines.push_back(std::move(message));
    return outcome;
}

// The fields a format must have, in file order.
std::vector<const char*> required_labels(unsigned minor) {
    std::vector<const char*> labels = {L::kVersion, L::kProgram, L::kBinary, L::kUser, L::kConstant,
                                       L::kAlgorithm, L::kDecimalDigits, L::kHexadecimalDigits, L::kMode,
                                       L::kThreading, L::kWorkingMemory, L::kTotalMemory};
    if (minor >= 3) labels.insert(labels.end(), {L::kLargestCheckpoint, L::kPeakDisk, L::kDiskRead, L::kDiskWritten});
    labels.insert(labels.end(), {L::kConfigurationDump, L::kStartDate, L::kEndDate, L::kComputationTime, L::kWallTime,
                                 L::kSha256, L::kDecCounts, L::kHexCounts, L::kDecHash, L::kHexHash, L::kSpotCheck,
                                 L::kTimerSanity});
    if (minor >= 3) labels.push_back(L::kFrequencySanity);
    labels.push_back(L::kReferenceClock);
    if (minor >= 3) labels.insert(labels.end(), std::begin(L::kReferenceClocks), std::end(L::kReferenceClocks));
    labels.insert(labels.end(), {L::kDebugger, L::kContiguous, L::kEccErrors, L::kColours, L::kStatusLine, L::kEventLog});
    return labels;
}

// The recorded fields shown after a pass.
constexpr const char* kShownLabels[] = {L::kProgram, L::kBinary, L::kUser, L::kConstant, L::kAlgorithm,
                                        L::kDecimalDigits, L::kHexadecimalDigits, L::kMode, L::kThreading,
                                        L::kStartDate, L::kEndDate, L::kSha256, L::kDecHash, L::kHexHash,
                                        L::kSpotCheck, L::kTimerSanity};

std::string read_whole_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw qmp::FileIO::FileException("Validator::run()", path,
                                         std::string("Unable to open file: ") + std::strerror(errno) + ".");
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

std::string clean_path(std::string path) {
    while (!path.empty() && (path.back() == ' ' || path.back() == '\r' || path.back() == '\t')) path.pop_back();
    while (!path.empty() && path.front() == ' ') path.erase(0, 1);
    if (path.size() >= 2 && path.front() == '"' && path.back() == '"') path = path.substr(1, path.size() - 2);
    return path;
}

}  // namespace

ValidationOutcome validate_validation_text(std::string_view text, const std::string& description) {
    ValidationOutcome outcome;

    // 1. The version: retired and future formats are refused before anything else.
    std::optional<Version> version;
    if (const auto value = find_field(text, L::kVersion)) version = parse_version(*value);
    if (version && (version->major < 1 || (version->major == 1 && version->minor < 2))) {
        outcome.verdict = ValidationVerdict::VersionTooOld;
        outcome.lines = {"Validation file versions 1.0 an 1.1 are no longer supported.",
                         "To validate this file, please use quorvalith v0.5.5."};
        return outcome;
    }
    if (version && (version->major > 1 || version->minor > 3)) {
        outcome.verdict = ValidationVerdict::VersionTooNew;
        outcome.lines = {"This validation file version is too new.", "Please use a newer version of quorvalith."};
        return outcome;
    }
    if (version) outcome.lines.push_back(version->minor == 2 ? "Validation Format 1.2" : "Validation Format 1.3");

    // 2. The seal: the last "Checksum0: ", then a "Checksum1: " line, then the end of the file.
    // The line break before it belongs to the sealed text, so an edit there is tampering too.
    const size_t at = text.rfind(kChecksum0Label);
    if (at == std::string_view::npos) return fail(outcome, ValidationVerdict::InvalidFile, "Validation Failed - Invalid File");
    const std::string_view body = text.substr(0, at);
    const std::string_view seal_text = text.substr(body.size());
    const std::optional<std::string_view> checksum0 = find_field(seal_text, kChecksum0Label);
    const std::optional<std::string_view> checksum1 = find_field(seal_text, kChecksum1Label);
    const size_t expected_size = checksum0 && checksum1
                                     ? std::strlen(kChecksum0Label) + checksum0->size() + std::strlen(kChecksum1Label) +
                                           checksum1->size() + 2 * kEol.size()
                                     : 0;
    if (!checksum0 || !checksum1 || seal_text.size() != expected_size) {
        return fail(outcome, ValidationVerdict::InvalidFile, "Validation Failed - Invalid File");
    }
    if (!is_lower_hex(*checksum0, 64) || !is_lower_hex(*checksum1, 16)) {
        return fail(outcome, ValidationVerdict::InvalidHash, "Validation Failed: Invalid Hash");
    }
    const Seal seal = compute_seal(body);
    if (seal.checksum0 != *checksum0 || seal.checksum1 != *checksum1) {
        return fail(outcome, ValidationVerdict::Tampered,
                    "Validation Failed: File is either invalid or has been tampered with.");
    }

    // 3. A genuine seal over a file that still is not one this program can read.
    const std::string header = std::string(L::kHeader) + "\r\n\r\n";
    if (!find_field(body, L::kVersion)) return fail(outcome, ValidationVerdict::TagNotFound, "Tag not found in " + description);
    if (!version || body.substr(0, header.size()) != header) {
        return fail(outcome, ValidationVerdict::InvalidFile, "Validation Failed - Invalid File");
    }
    for (const char* label : required_labels(version->minor)) {
        if (!find_field(body, label)) return fail(outcome, ValidationVerdict::TagNotFound, "Tag not found in " + description);
    }
    const std::string_view computation_time = *find_field(body, L::kComputationTime);
    const std::string_view wall_time = *find_field(body, L::kWallTime);
    if (!is_count(*find_field(body, L::kDecimalDigits)) || !is_seconds(computation_time) ||
        !is_seconds(wall_time)) {
        return fail(outcome, ValidationVerdict::InvalidFile, "Validation Failed - Invalid File");
    }

    outcome.verdict = ValidationVerdict::Passed;
    outcome.lines.push_back("Validation Passed!");
    outcome.lines.push_back("");
    outcome.lines.push_back("Computation Time: " + std::string(computation_time));
    outcome.lines.push_back("Total Time:       " + std::string(wall_time));
    outcome.lines.push_back("");
    for (const char* label : kShownLabels) outcome.lines.push_back(std::string(label) + std::string(*find_field(body, label)));
    return outcome;
}

void run_validator(std::string path) {
    qmp::Console::println("Benchmark Validator", Colour::Header);
    qmp::Console::println();
    if (path.empty()) {
        qmp::Console::println("Enter Path of Validation File:", Colour::Prompt);
        path = clean_path(prompt_line(""));
    }
    const std::string text = read_whole_file(path);
    qmp::Console::println();
    const ValidationOutcome outcome = validate_validation_text(text, path);
    const bool passed = outcome.verdict == ValidationVerdict::Passed;
    for (const std::string& line : outcome.lines) {
        const bool announcement = line.rfind("Validation Format", 0) == 0;
        qmp::Console::println(line, announcement ? Colour::Info : passed ? Colour::Value : Colour::Error);
    }
}

}  // namespace qv
