// BasicQcdSetWriter: the DigitSink of a compressed digit set "<dir>/<base> - <id>.qcd". Digits
// arrive in order; each run is split at file boundaries and handed to the file it belongs to,
// opened when its first digit arrives and closed (renamed to its final name) as soon as its
// last digit is written, so only one file is open at a time. Digits per file 0 means one file
// holding all total_digits ("Single-file is incompatible with unbounded output." when the total
// is 0); a radix other than 10 or 16 is "Invalid Parameters". close_and_get_basic_reader()
// closes what is open and opens the written set for reading ("No files open." when nothing was
// written).
#pragma once

#include "qmp/digitfiles/digit_sink.h"
#include "qmp/digitfiles/qcd_file_writer.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qmp {

class BasicQcdSetReader;

class BasicQcdSetWriter : public DigitSink {
public:
    BasicQcdSetWriter(std::string directory, std::string base_name, std::string first_digits,
                      uint32_t radix, uint64_t digits_per_file, uint64_t total_digits, bool raw_io = false);
    ~BasicQcdSetWriter() override;

    void store_digits(const char* raw_digits, uint64_t position, uint64_t count) override;

    // Closes the open file; returns whether every file written so far is complete.
    bool close();
    std::unique_ptr<BasicQcdSetReader> close_and_get_basic_reader();

    uint64_t digits_per_file() const noexcept { return digits_per_file_; }
    // Final paths of the files begun so far, by id order.
    const std::vector<std::string>& file_paths() const noexcept { return paths_; }

private:
    std::string directory_;
    std::string base_name_;
    std::string first_digits_;
    uint32_t radix_;
    uint64_t digits_per_file_;
    uint64_t total_digits_;
    bool raw_io_;
    uint64_t open_id_ = 0;
    std::unique_ptr<BasicQcdFileWriter> open_;
    std::vector<std::string> paths_;
    bool all_complete_ = true;
};

}  // namespace qmp
