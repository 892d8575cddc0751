// BasicQcdFileWriter: one file of a compressed digit set. File id of a set with P digits per
// file and T digits in all holds the digits [id*P, end), end = min((id+1)*P, T) (or (id+1)*P
// when T is 0, unbounded). The file is created as "<path> (incomplete).qcd" with its header
// (qcd_header.h) on disk at once; digits arrive in order, from the block's start, and are
// packed into words (digit_pack.h) written after the header; a partial last word is filled
// with zero digits. close() renames a complete file to "<path>.qcd"; closing it early prints
// "Warning, closing incomplete file" and leaves the working name, as does destruction without
// close(). Refusals (InvalidParametersException): radix other than 10/16 "Unsupported Radix",
// a block beyond a nonzero total "File ID is out of range.", an empty range "Invalid Range -
// Failed: s < e", a range outside the file "Write out of bounds.\nRequested Range: a - b\n
// Available Range: c - d", a raw digit out of range or a word above the largest packed value
// "Invalid Digit", a word buffer not aligned to 8 bytes "Buffer is misaligned.", digits out of
// order "Digits must be stored in order.".
#pragma once

#include "qmp/digitfiles/staged_file_writer.h"
#include "qmp/farmemory/aligned_malloc.h"

#include <cstdint>
#include <string>

namespace qmp {

// A range [start, end) of digit or word positions; "Invalid Range - Failed: s < e" unless
// start < end.
struct Region {
    Region(uint64_t start, uint64_t end);
    uint64_t start;
    uint64_t end;
};

class BasicQcdFileWriter {
public:
    // digits_per_file 0 means the whole stream in this one file (T must then be nonzero).
    BasicQcdFileWriter(const std::string& path_without_extension, const std::string& first_digits,
                       uint32_t radix, uint64_t digits_per_file, uint64_t total_digits,
                       uint64_t file_id, bool raw_io = false);
    ~BasicQcdFileWriter();
    BasicQcdFileWriter(const BasicQcdFileWriter&) = delete;
    BasicQcdFileWriter& operator=(const BasicQcdFileWriter&) = delete;

    // The digits this file holds.
    Region get_range() const { return Region(start_, end_); }
    uint64_t data_offset() const noexcept { return data_offset_; }
    uint64_t words_per_file() const noexcept { return words_per_file_; }
    const std::string& final_path() const noexcept { return file_.final_path(); }
    const std::string& working_path() const noexcept { return file_.working_path(); }
    bool complete() const noexcept { return next_digit_ == end_; }
    bool is_open() const noexcept { return file_.is_open(); }

    // Raw digits [position, position + count), inside the block and continuing the last call.
    void store_digits_B(const char* raw_digits, uint64_t position, uint64_t count);
    // Packed words [first_word, first_word + n_words) of this file, continuing in order.
    void store_words(const uint64_t* words, uint64_t first_word, uint64_t n_words);
    // The checks of a word transfer: buffer alignment and the range against the file.
    void start_access(const void* buffer, uint64_t first_word, uint64_t n_words) const;

    // Ends the file; returns whether it was complete (and renamed).
    bool close();

private:
    void append_words(const uint64_t* words, uint64_t n_words);

    uint32_t radix_;
    uint32_t digits_per_word_;
    uint64_t start_ = 0, end_ = 0;
    uint64_t words_per_file_ = 0;
    uint64_t data_offset_ = 0;
    StagedFileWriter file_;
    AlignedBlock scratch_;
    uint64_t next_digit_;
    uint64_t next_word_ = 0;
    char pending_[19] = {};
    uint32_t pending_count_ = 0;
};

}  // namespace qmp
