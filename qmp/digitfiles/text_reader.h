// BasicTextReader: the digits of a ".txt" digit file. process_txt() finds the radix point
// within the first 63 bytes ("A decimal place was not found within the first 63 bytes of the
// file." otherwise); the digits after it are the fractional digits, and every one must be a
// digit of the radix ("Invalid Digit" when read). The radix is given, or 0 to detect it: 16
// when the file name holds " - Hex - " or a letter a-f appears among the first megabyte of
// digits, else 10 (a short hexadecimal file without letters reads as decimal). Reading past
// the end is "Out of range.", a short read "Incomplete read.". Failures are
// InvalidParametersException, with FileException for a file that cannot be opened.
#pragma once

#include "qmp/digitfiles/digit_reader.h"
#include "qmp/farmemory/raw_file.h"

#include <cstdint>
#include <string>

namespace qmp {

class BasicTextReader : public DigitReader {
public:
    explicit BasicTextReader(const std::string& path, uint32_t radix = 0);

    const std::string& path() const noexcept { return file_.path(); }
    bool has_decimal_point() const noexcept { return data_offset_ != 0; }
    // Throws when the file has no radix point in its first 63 bytes.
    void process_txt() const;

    uint32_t radix() const override { return radix_; }
    std::string first_digits() const override;
    uint64_t total_digits() const override;
    void load_digits(char* raw, uint64_t start, uint64_t count) override;

private:
    RawFile file_;
    uint64_t file_bytes_;
    uint64_t data_offset_ = 0;  // just after the point; 0 when there is none
    std::string integer_part_;  // up to and including the point
    uint32_t radix_;
};

}  // namespace qmp
