// BasicQcdFileReader: one file of a compressed digit set, opened read-only. The constructor
// parses the header (qcd_header.h) and checks it, in this order: a version ("No version #
// found." when absent) of "1.0.0" or "1.1.0" ("This .qcd file is of a later format
// version.\nThis version of the digit viewer is unable to view this file."), digits per file
// at least 50 ("Invalid Digits per File"; lowered to the total when the total is smaller), the
// block inside a nonzero total ("This file is out of range.\nStart: ...\nEnd: ...\nTotal
// Digits: ..."), radix 10 or 16 ("Unsupported Radix"); a header without its end or NUL is
// "Read error.". Each message starts with the file's path on a line of its own, at
// "BasicQcdFileReader::BasicQcdFileReader()", as InvalidParametersException. read_words()
// reads a word range ("Read out of bounds.\n..." outside the file, "Buffer is misaligned." for
// a buffer not aligned to 8 bytes, FileException "Read error." for a short read).
#pragma once

#include "qmp/digitfiles/qcd_header.h"
#include "qmp/farmemory/raw_file.h"

#include <cstdint>
#include <string>

namespace qmp {

class BasicQcdFileReader {
public:
    explicit BasicQcdFileReader(const std::string& path);

    const std::string& path() const noexcept { return file_.path(); }
    const std::string& file_version() const noexcept { return fields_.file_version; }
    uint32_t radix() const noexcept { return uint32_t(fields_.radix); }
    const std::string& first_digits() const noexcept { return fields_.first_digits; }
    uint64_t total_digits() const noexcept { return fields_.total_digits; }
    uint64_t digits_per_file() const noexcept { return fields_.digits_per_file; }
    uint64_t file_id() const noexcept { return fields_.file_id; }
    uint32_t digits_per_word() const noexcept { return digits_per_word_; }
    uint64_t words_in_this_file() const noexcept { return words_in_file_; }
    uint64_t data_offset() const noexcept { return data_offset_; }
    uint64_t block_start() const noexcept { return block_start_; }
    uint64_t block_end() const noexcept { return block_end_; }

    void start_access(const void* buffer, uint64_t first_word, uint64_t n_words) const;
    void read_words(uint64_t* words, uint64_t first_word, uint64_t n_words);
    // Raw digits [start, start + count) of the stream, inside this file's block.
    void load_digits(char* raw, uint64_t start, uint64_t count);

    // The fields, one per line, each label padded to 32 columns.
    std::string describe() const;

private:
    RawFile file_;
    QcdHeaderFields fields_;
    uint32_t digits_per_word_ = 0;
    uint64_t words_in_file_ = 0;
    uint64_t data_offset_ = 0;
    uint64_t block_start_ = 0, block_end_ = 0;
};

}  // namespace qmp
