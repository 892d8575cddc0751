// The labels of the validation file's fields, padded to their value columns: identity and
// settings 23 characters, logical-disk statistics 31, the two times 27, checks 28. The writer
// lays them out and the validator finds fields by them, so both read this one list.
#pragma once

namespace qv::validation_labels {

inline constexpr const char* kHeader =
    "Benchmark Validation File - DO NOT MODIFY! If you do, it will fail validation.";
inline constexpr const char* kFormatVersion = "1.3.1";

inline constexpr const char* kVersion = "Validation Version:    ";
inline constexpr const char* kProgram = "Program:               ";
inline constexpr const char* kBinary = "Binary:                ";
inline constexpr const char* kUser = "User:                  ";
inline constexpr const char* kConstant = "Constant:              ";
inline constexpr const char* kAlgorithm = "Algorithm:             ";
inline constexpr const char* kDecimalDigits = "Decimal Digits:        ";
inline constexpr const char* kHexadecimalDigits = "Hexadecimal Digits:    ";
inline constexpr const char* kMode = "Computation Mode:      ";
inline constexpr const char* kThreading = "Threading Mode:        ";
inline constexpr const char* kWorkingMemory = "Working Memory:        ";
inline constexpr const char* kTotalMemory = "Total Memory:          ";
inline constexpr const char* kLargestCheckpoint = "Logical Largest Checkpoint:    ";
inline constexpr const char* kPeakDisk = "Logical Peak Disk Usage:       ";
inline constexpr const char* kDiskRead = "Logical Disk Bytes Read:       ";
inline constexpr const char* kDiskWritten = "Logical Disk Bytes Written:    ";
inline constexpr const char* kConfigurationDump = "Configuration Dump:";
inline constexpr const char* kStartDate = "Start Date:            ";
inline constexpr const char* kEndDate = "End Date:              ";
inline constexpr const char* kComputationTime = "Total Computation Time:    ";
inline constexpr const char* kWallTime = "Start-to-End Wall Time:    ";
inline constexpr const char* kSha256 = "SHA256-dec(";
inline constexpr const char* kDecCounts = "Dec Counts: ";
inline constexpr const char* kHexCounts = "Hex Counts: ";
inline constexpr const char* kDecHash = "Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = ";
inline constexpr const char* kHexHash = "Hex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = ";
inline constexpr const char* kSpotCheck = "Spot Check:                 ";
inline constexpr const char* kTimerSanity = "Timer Sanity Check:         ";
inline constexpr const char* kFrequencySanity = "Frequency Sanity Check:     ";
inline constexpr const char* kReferenceClock = "Reference Clock:            ";
inline constexpr const char* kReferenceClocks[3] = {"Reference Clock 0:          ", "Reference Clock 1:          ",
                                                     "Reference Clock 2:          "};
inline constexpr const char* kDebugger = "Is Debugger Present:        ";
inline constexpr const char* kContiguous = "Is Contiguous:              ";
inline constexpr const char* kEccErrors = "ECC Recovered Errors:       ";
inline constexpr const char* kColours = "Colors:                     ";
inline constexpr const char* kStatusLine = "Status Line:                ";
inline constexpr const char* kEventLog = "Event Log:";

}  // namespace qv::validation_labels
