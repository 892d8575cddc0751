// The settings of the compressed digit writer in a job: "DigitsPerFile" (0 = one file, else at
// least 1,000,000; anything else is InvalidParametersException "DigitsPerFile must be at least
// 1,000,000 digits.") and "RawIO" (write through unbuffered direct I/O). Both members are
// optional when read; missing ones keep their defaults (0 and false).
#pragma once

#include "config/config_object.h"

#include <cstdint>

namespace qmp {

struct DigitFileSettings {
    static constexpr uint64_t kMinDigitsPerFile = 1000000;

    uint64_t digits_per_file = 0;
    bool raw_io = false;

    // Checks and sets the digits per file.
    void set_digits_per_file(int64_t digits);
    void load(const ConfigObject& config);
    // Adds "DigitsPerFile" and "RawIO" to an Object node.
    void store(ConfigObject& config) const;
};

}  // namespace qmp
