// The spot check of a result: 20 known decimal digits of each constant ending at positions
// 10^4, 10^5, 10^6, 10^7 (and 10^8 for pi) after the point, counted from 1, with the integer
// part. check_spot_digits() compares every table entry that the computed digits reach: a
// difference raises AlgorithmFailedException "Spot check failed at: " + the position of the
// first wrong digit (0 for a wrong integer part); otherwise it returns the largest position
// checked, or nothing ("Not Available") when no entry is in reach or the constant has none.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qv {

struct SpotDigits {
    const char* key;  // "pi", "e", "sqrt2", "golden", "log2", "log3", "log10", "zeta3", ...
    uint64_t integer_part;
    uint64_t position;  // of the last of the 20 digits
    const char* digits;
};

const std::vector<SpotDigits>& spot_digit_table();

// The table key of a catalog constant with its argument; "" when the table has none.
std::string spot_check_key(const std::string& constant, int64_t argument);

// `read_digits(raw, index, count)` gives raw decimal digits (values 0..9) at 0-based indices
// after the point; `digits` is how many exist.
using DigitSource = std::function<void(char* raw, uint64_t index, uint64_t count)>;
std::optional<uint64_t> check_spot_digits(const std::string& key, uint64_t integer_part, uint64_t digits,
                                          const DigitSource& read_digits);

}  // namespace qv
