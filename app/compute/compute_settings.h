// The settings of one computation job as a configuration object and back. Reading order of a
// job: "Constant" {"Constant" token, "Algorithm", "Argument" (sqrt, log, brent), "FormulaFile"
// (custom)}, "ComputeSize" {"DecimalDigits", "EnableHexDigits"}, "Output" {"Path",
// "DigitWriter" {"Framework", "Extension", "DigitsPerFile", "RawIO"}}, "OutputVerify", the
// optional "VerifyWithSecondary" and "TuningProfile"; then "Mode" and, for "ram", "Parallelism"
// and "Allocator". Writing back gives the same members, "Mode" first among the driver's.
// Refusals are InvalidParametersException; check() ends with "Cannot run computation with
// these parameters." after printing the reason.
#pragma once

#include <cstdint>
#include <string>

#include "config/config_object.h"
#include "qmp/digitfiles/digit_file_settings.h"
#include "qmp/parallel/parallel_settings.h"

namespace qv {

// Decimal digit counts a job accepts. Below the minimum the spot check and the radix
// conversion's guard digits dominate; the maximum is what a 64-bit digit position and the
// in-memory driver's sizing can describe.
inline constexpr uint64_t kMinDecimalDigits = 100;
inline constexpr uint64_t kMaxDecimalDigits = uint64_t(1000000000000000);

struct DigitOutputSettings {
    std::string writer = "disk";  // "disk": files in `path`; "stdout": the standard output
    std::string path;             // directory of the digit files; "" is the working directory
    std::string extension = "txt";  // "txt" or "qcd"
    qmp::DigitFileSettings files;

    // Reads the "Output" object: "No Extension found." / "Unrecognized Extension: " + ext,
    // "Invalid Digit Writer: " + name.
    void load_config(const qmp::ConfigObject& output);
    qmp::ConfigObject to_config() const;
};

struct ComputeSettings {
    std::string constant = "pi";  // catalog token (aliases resolved on load)
    std::string algorithm;        // "" until resolved: the constant's primary algorithm
    int64_t argument = 0;         // n of sqrt(n) and log(n); k of n = 2^k for "brent"
    std::string formula_file;     // "custom" only
    uint64_t decimal_digits = 1000000;
    bool hex_digits = false;
    DigitOutputSettings output;
    bool output_verify = false;
    bool verify_with_secondary = false;
    std::string mode = "ram";
    qmp::ParallelSettings parallelism;
    std::string allocator = "mmap";  // "mmap", "mmap-largepages" or "malloc"

    // The defaults of a new job: pi with its primary algorithm, 1,000,000 digits, text output
    // in the working directory, the environment's framework and task decomposition.
    static ComputeSettings defaults();

    // Sets the constant token (aliases accepted) and resets the algorithm to its primary.
    void set_constant(const std::string& token);
    // Sets the algorithm; "Invalid Algorithm: " + token for one the constant does not offer.
    void set_algorithm(const std::string& token);
    // The constant's algorithm menu for the current argument.
    std::string resolved_algorithm() const;

    // Reads a whole job object (its "Action" is the caller's business).
    void load_config(const qmp::ConfigObject& job);
    qmp::ConfigObject to_config() const;

    // The hexadecimal digits matching the decimal ones: floor(decimal * log16(10)).
    uint64_t hexadecimal_digits() const;

    // Throws "Cannot run computation with these parameters." naming the reason first on the
    // console when the settings cannot run.
    void check() const;
    // The reason check() would refuse, or "" when the settings can run.
    std::string refusal_reason() const;
};

}  // namespace qv
