// A filled-in validation record for the report tests: every field a distinct value, so that a
// field written in the wrong place or order shows up.
#pragma once

#include "app/report/validation_record.h"

namespace qvtest {

inline qv::ValidationRecord sample_record() {
    qv::ValidationRecord r;
    r.program_version = "0.1.0";
    r.binary_tag = "x64 AVX512";
    r.user = "tester";
    r.constant_name = "Pi";
    r.algorithm_name = "Chudnovsky (1988)";
    r.decimal_digits = 1000000;
    r.hexadecimal_digits = 830482;
    r.mode = qv::ComputationMode::Swap;
    r.threading_mode = "Push Pool  ->  2 / ?  (randomization on)";
    r.working_memory_bytes = 123456789;
    r.total_memory_bytes = 2147483648ULL;
    r.largest_checkpoint_bytes = 11, r.peak_disk_usage_bytes = 22, r.disk_bytes_read = 33, r.disk_bytes_written = 44;
    r.configuration.add_string("Action", "CustomCompute");
    qmp::ConfigObject& size = r.configuration.add_object("ComputeSize");
    size.add_integer("DecimalDigits", 1000000);
    size.add_bool("EnableHexDigits", true);
    r.start_date = "Mon Nov 23 22:00:00 2026";
    r.end_date = "Mon Nov 23 22:00:13 2026";
    r.computation_seconds = 12.25;
    r.wall_seconds = 13.0;
    r.sha256_first_digit = 1;
    r.sha256_last_digit = 1000000;
    r.sha256_decimal_hex = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";
    for (int i = 0; i < 10; ++i) r.decimal_counts[i] = 100000 + i;
    for (int i = 0; i < 16; ++i) r.hexadecimal_counts[i] = 51900 + i;
    r.decimal_hash = 1234567890123456789ULL;
    r.hexadecimal_hash = 987654321;
    r.spot_check = {qv::SpotCheckKind::GoodThrough, 1000000};
    r.timer_sanity = qv::TimerSanity::Passed;
    r.reference_clock = "clock_gettime(CLOCK_MONOTONIC)";
    r.reference_clocks = {"rdtsc", "tsc", "hpet"};
    r.colours = true;
    r.event_log = {"22:00:00 Begin Computation", "22:00:12 End Computation\r\nsecond line"};
    return r;
}

}  // namespace qvtest
