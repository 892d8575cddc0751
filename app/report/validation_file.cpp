// Layout and writing of the validation file. Values never contain a line break (event-log
// entries and free texts have theirs replaced by spaces), so every field is exactly one line
// and the validator can find it by its label at the start of a line.
#include "app/report/validation_file.h"

#include "app/report/seal.h"
#include "app/report/validation_labels.h"
#include "qmp/exception.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace qv {

namespace {

namespace L = validation_labels;
constexpr const char* kEol = "\r\n";

std::string one_line(std::string text) {
    for (char& c : text) {
        if (c == '\r' || c == '\n') c = ' ';
    }
    return text;
}

void field(std::string& out, const char* label, const std::string& value) {
    out += label;
    out += one_line(value);
    out += kEol;
}

std::string bytes_text(uint64_t bytes) { return std::to_string(bytes) + " bytes"; }

template <size_t N>
std::string counts_text(const std::array<uint64_t, N>& counts) {
    std::string text;
    for (size_t i = 0; i < N; ++i) {
        if (i != 0) text += ' ';
        text += std::to_string(counts[i]);
    }
    return text;
}

std::string spot_check_text(const SpotCheck& check) {
    switch (check.kind) {
        case SpotCheckKind::GoodThrough: return "Good through " + std::to_string(check.digit_position);
        case SpotCheckKind::MismatchAt: return "Mismatch at " + std::to_string(check.digit_position);
        case SpotCheckKind::NotAvailable: break;
    }
    return "Not Available";
}

const char* timer_sanity_text(TimerSanity sanity) {
    switch (sanity) {
        case TimerSanity::Passed: return "Passed";
        case TimerSanity::Failed: return "Failed";
        case TimerSanity::UnableToValidate: return "Unable to Validate";
        case TimerSanity::DisabledByCheckpointRestart: break;
    }
    return "Disabled due to checkpoint restart";
}

const char* yes_no(bool value) { return value ? "Yes" : "No"; }
const char* enabled_text(bool value) { return value ? "Enabled" : "Disabled"; }

[[noreturn]] void file_error(const std::string& path, const char* what) {
    throw qmp::FileIO::FileException("ValidationFile::write()", path,
                                     std::string(what) + ": " + std::strerror(errno) + ".");
}

}  // namespace

std::string format_seconds(double seconds) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.3f seconds", seconds);
    return text;
}

std::string render_validation_body(const ValidationRecord& r) {
    const bool hex = r.hexadecimal_digits.has_value();
    std::string out;
    out += L::kHeader;
    out += "\r\n\r\n";

    field(out, L::kVersion, L::kFormatVersion);
    field(out, L::kProgram, std::string("quorvalith v") + r.program_version);
    field(out, L::kBinary, r.binary_tag);
    field(out, L::kUser, r.user);
    out += kEol;

    field(out, L::kConstant, r.constant_name);
    field(out, L::kAlgorithm, r.algorithm_name);
    field(out, L::kDecimalDigits, std::to_string(r.decimal_digits));
    field(out, L::kHexadecimalDigits, hex ? std::to_string(*r.hexadecimal_digits) : "Disabled");
    field(out, L::kMode, r.mode == ComputationMode::Ram ? "Ram Only" : "Swap Mode");
    field(out, L::kThreading, r.threading_mode);
    field(out, L::kWorkingMemory, bytes_text(r.working_memory_bytes));
    field(out, L::kTotalMemory, bytes_text(r.total_memory_bytes));
    out += kEol;

    field(out, L::kLargestCheckpoint, bytes_text(r.largest_checkpoint_bytes));
    field(out, L::kPeakDisk, bytes_text(r.peak_disk_usage_bytes));
    field(out, L::kDiskRead, bytes_text(r.disk_bytes_read));
    field(out, L::kDiskWritten, bytes_text(r.disk_bytes_written));
    out += kEol;

    // The .cfg writer ends its last line without a line break; the dump gets one.
    out += L::kConfigurationDump;
    out += kEol;
    out += qmp::write_cfg(r.configuration, false);
    if (out.size() < 2 || out.compare(out.size() - 2, 2, kEol) != 0) out += kEol;
    out += kEol;

    field(out, L::kStartDate, r.start_date);
    field(out, L::kEndDate, r.end_date);
    field(out, L::kComputationTime, format_seconds(r.computation_seconds));
    field(out, L::kWallTime, format_seconds(r.wall_seconds));
    out += kEol;

    out += L::kSha256;
    out += std::to_string(r.sha256_first_digit) + " - " + std::to_string(r.sha256_last_digit) + "): ";
    out += one_line(r.sha256_decimal_hex);
    out += kEol;
    field(out, L::kDecCounts, counts_text(r.decimal_counts));
    field(out, L::kHexCounts, hex ? counts_text(r.hexadecimal_counts) : "Disabled");
    field(out, L::kDecHash, std::to_string(r.decimal_hash));
    field(out, L::kHexHash, hex ? std::to_string(r.hexadecimal_hash) : "Disabled");
    out += kEol;

    field(out, L::kSpotCheck, spot_check_text(r.spot_check));
    field(out, L::kTimerSanity, timer_sanity_text(r.timer_sanity));
    field(out, L::kFrequencySanity, "Disabled in this version of quorvalith");
    field(out, L::kReferenceClock, r.reference_clock);
    for (int i = 0; i < 3; ++i) field(out, L::kReferenceClocks[i], r.reference_clocks[i]);
    field(out, L::kDebugger, yes_no(r.debugger_present));
    field(out, L::kContiguous, yes_no(r.contiguous));
    field(out, L::kEccErrors, std::to_string(r.ecc_recovered_errors));
    field(out, L::kColours, enabled_text(r.colours));
    field(out, L::kStatusLine, enabled_text(r.status_line));
    out += kEol;

    out += L::kEventLog;
    out += kEol;
    for (const std::string& entry : r.event_log) {
        out += one_line(entry);
        out += kEol;
    }
    out += kEol;
    return out;
}

std::string render_validation_file(const ValidationRecord& record) {
    std::string text = render_validation_body(record);
    text += seal_lines(text);
    return text;
}

void write_validation_file(const std::string& path, const ValidationRecord& record) {
    const std::string text = render_validation_file(record);
    const std::string working_path = path + ".tmp";
    const int fd = ::open(working_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) file_error(working_path, "Unable to create file");
    uint64_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const int saved = n == 0 ? EIO : errno;
            ::close(fd);
            ::unlink(working_path.c_str());
            errno = saved;
            file_error(working_path, "Unable to write file");
        }
        done += static_cast<uint64_t>(n);
    }
    const bool synced = ::fsync(fd) == 0;
    int saved = errno;
    const bool closed = ::close(fd) == 0;
    if (!synced || !closed) {
        if (synced) saved = errno;
        ::unlink(working_path.c_str());
        errno = saved;
        file_error(working_path, "Unable to complete file");
    }
    if (::rename(working_path.c_str(), path.c_str()) != 0) {
        const int saved = errno;
        ::unlink(working_path.c_str());
        errno = saved;
        file_error(path, "Unable to rename file");
    }
}

}  // namespace qv
