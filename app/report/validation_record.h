// Everything a benchmark validation file records about one run, as plain data: what was
// computed and how, on what, how long it took, the fingerprints of the result digits and the
// sanity checks. The computation driver fills it; validation_file.h lays it out and seals it.
// Texts are stored as they will appear (dates, the threading description, reference clocks);
// counts and times are numbers that the writer formats.
#pragma once

#include "config/config_object.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv {

enum class ComputationMode { Ram, Swap };

enum class SpotCheckKind { GoodThrough, MismatchAt, NotAvailable };
struct SpotCheck {
    SpotCheckKind kind = SpotCheckKind::NotAvailable;
    uint64_t digit_position = 0;  // for GoodThrough and MismatchAt
};

enum class TimerSanity { Passed, Failed, UnableToValidate, DisabledByCheckpointRestart };

struct ValidationRecord {
    // Identity.
    std::string program_version;  // without the leading "v"
    std::string binary_tag;       // the processor-specific build, e.g. "x64 AVX2"
    std::string user;

    // What was computed.
    std::string constant_name;
    std::string algorithm_name;
    uint64_t decimal_digits = 0;
    std::optional<uint64_t> hexadecimal_digits;  // nothing when hexadecimal output was off
    ComputationMode mode = ComputationMode::Ram;
    std::string threading_mode;  // the parallel framework's description

    // Memory, in bytes.
    uint64_t working_memory_bytes = 0;
    uint64_t total_memory_bytes = 0;
    // Far-memory statistics (zero for a run in RAM).
    uint64_t largest_checkpoint_bytes = 0;
    uint64_t peak_disk_usage_bytes = 0;
    uint64_t disk_bytes_read = 0;
    uint64_t disk_bytes_written = 0;

    qmp::ConfigObject configuration = qmp::ConfigObject::make_object();

    // Time.
    std::string start_date;
    std::string end_date;
    double computation_seconds = 0;
    double wall_seconds = 0;

    // Fingerprints of the result. The SHA-256 covers the decimal digits first_digit..last_digit
    // after the point, as ASCII; hex counts and hash are absent with hexadecimal output off.
    uint64_t sha256_first_digit = 0;
    uint64_t sha256_last_digit = 0;
    std::string sha256_decimal_hex;
    std::array<uint64_t, 10> decimal_counts{};
    std::array<uint64_t, 16> hexadecimal_counts{};
    uint64_t decimal_hash = 0;      // floor(|x| * 10^dec) mod (2^61 - 1)
    uint64_t hexadecimal_hash = 0;  // floor(|x| * 16^hex) mod (2^61 - 1)

    // Checks and environment.
    SpotCheck spot_check;
    TimerSanity timer_sanity = TimerSanity::UnableToValidate;
    std::string reference_clock;
    std::array<std::string, 3> reference_clocks;
    bool debugger_present = false;
    bool contiguous = true;
    uint64_t ecc_recovered_errors = 0;
    bool colours = false;
    bool status_line = false;
    std::vector<std::string> event_log;
};

}  // namespace qv
