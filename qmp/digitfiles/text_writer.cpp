// The text writer: raw digits to characters straight into the write window.
#include "qmp/digitfiles/text_writer.h"

#include "qmp/console.h"
#include "qmp/digitfiles/digit_chars.h"
#include "qmp/exception.h"
#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <exception>

namespace qmp {

namespace {

constexpr const char* kStorePlace = "BasicTextWriter::store_digits()";

}  // namespace

TextWriter::TextWriter(const std::string& path, bool raw_io)
    : file_(path, working_path_for(path), raw_io) {}

std::string TextWriter::working_path_for(const std::string& path) {
    const std::string ext = ".txt";
    if (path.size() >= ext.size() && path.compare(path.size() - ext.size(), ext.size(), ext) == 0) {
        return path.substr(0, path.size() - ext.size()) + " (incomplete).txt";
    }
    return path + " (incomplete)";
}

namespace {
std::string checked_integer_part(const std::string& first_digits, uint32_t radix) {
    if (radix != 10 && radix != 16) {
        throw InvalidParametersException("BasicTextWriter::BasicTextWriter()", "Invalid Radix");
    }
    const size_t point = first_digits.find('.');
    if (point == std::string::npos) {
        throw InvalidParametersException("BasicTextWriter::BasicTextWriter()", "No decimal place was found.");
    }
    return first_digits.substr(0, point + 1);
}

// Checks the arguments before the file is created, so that a refused writer leaves nothing.
const std::string& checked_path(const std::string& path, const std::string& first_digits, uint32_t radix) {
    checked_integer_part(first_digits, radix);
    return path;
}
}  // namespace

BasicTextWriter::BasicTextWriter(const std::string& path, const std::string& first_digits,
                                 uint32_t radix, uint64_t total_digits, bool raw_io)
    : writer_(checked_path(path, first_digits, radix), raw_io),
      radix_(radix),
      total_digits_(total_digits) {
    writer_.write(checked_integer_part(first_digits, radix));
}

BasicTextWriter::~BasicTextWriter() {
    try {
        close();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

void BasicTextWriter::store_digits(const char* raw_digits, uint64_t position, uint64_t count) {
    if (closed_) throw InvalidParametersException(kStorePlace, "File is closed.");
    if (position != next_) throw InvalidParametersException(kStorePlace, "Digits must be stored in order.");
    if (total_digits_ != 0 && count > total_digits_ - position) {
        throw InvalidParametersException(
            kStorePlace, "Write out of bounds.\nRequested Range: " + std::to_string(position) + " - " +
                             std::to_string(position + count) + "\nAvailable Range: 0 - " +
                             std::to_string(total_digits_));
    }
    StagedFileWriter& file = writer_.file();
    while (count != 0) {
        uint64_t room;
        char* out = file.free_space(room);
        const uint64_t n = std::min(room, count);
        if (digits_to_chars(radix_, raw_digits, out, n)) throw InvalidParametersException(kStorePlace, "Invalid Digit");
        file.advance(n);
        raw_digits += n;
        count -= n;
        next_ += n;
    }
}

bool BasicTextWriter::close() {
    if (closed_) return total_digits_ == 0 || next_ == total_digits_;
    closed_ = true;
    if (total_digits_ == 0 || next_ == total_digits_) {
        writer_.file().finish();
        return true;
    }
    Console::warning("Warning, closing incomplete file");
    writer_.file().close_incomplete();
    return false;
}

}  // namespace qmp
