// Digit text files. TextWriter puts characters into a file front to back (through a
// StagedFileWriter, so raw I/O works too). BasicTextWriter is the DigitSink of a ".txt" digit
// file: the integer part and the point taken from the caller's first digits (which must hold a
// '.', else "No decimal place was found."), then the fractional digits as characters, '0'-'9'
// and lower-case 'a'-'f', with nothing after them. Digits arrive in order from position 0
// ("Digits must be stored in order." otherwise); a digit outside the radix is "Invalid Digit";
// use after close() is "File is closed."; only radix 10 and 16 ("Invalid Radix"). The file is
// written as "<name> (incomplete).txt" and renamed when closed with all total_digits written
// (total 0: whatever was written counts as complete); an early close warns and keeps the
// working name. All failures are qmp::InvalidParametersException unless a file call fails.
#pragma once

#include "qmp/digitfiles/digit_sink.h"
#include "qmp/digitfiles/staged_file_writer.h"

#include <cstdint>
#include <memory>
#include <string>

namespace qmp {

class TextWriter {
public:
    TextWriter(const std::string& path, bool raw_io);
    static std::string working_path_for(const std::string& path);

    StagedFileWriter& file() noexcept { return file_; }
    const StagedFileWriter& file() const noexcept { return file_; }
    void write(const std::string& text) { file_.append(text.data(), text.size()); }

private:
    StagedFileWriter file_;
};

class BasicTextWriter : public DigitSink {
public:
    BasicTextWriter(const std::string& path, const std::string& first_digits, uint32_t radix,
                    uint64_t total_digits, bool raw_io = false);
    ~BasicTextWriter() override;

    void store_digits(const char* raw_digits, uint64_t position, uint64_t count) override;
    // Ends the file; returns whether it was complete (and renamed to its final name).
    bool close();

    uint64_t digits_written() const noexcept { return next_; }
    const std::string& path() const noexcept { return writer_.file().final_path(); }

private:
    TextWriter writer_;
    uint32_t radix_;
    uint64_t total_digits_;
    uint64_t next_ = 0;
    bool closed_ = false;
};

}  // namespace qmp
