#include "qmp/digitfiles/text_reader.h"

#include "qmp/digitfiles/digit_chars.h"
#include "qmp/exception.h"

#include <algorithm>
#include <vector>

namespace qmp {

namespace {

constexpr uint64_t kPointWindow = 63;
constexpr uint64_t kDetectBytes = uint64_t(1) << 20;

}  // namespace

BasicTextReader::BasicTextReader(const std::string& path, uint32_t radix)
    : file_(path, RawFile::OpenMode::ReadOnly, false), file_bytes_(file_.size_bytes()), radix_(radix) {
    if (radix != 0 && radix != 10 && radix != 16) {
        throw InvalidParametersException("BasicTextReader::BasicTextReader()", "Invalid radix.");
    }
    std::string head(std::min(kPointWindow, file_bytes_), '\0');
    file_.load(head.data(), 0, head.size());
    const size_t point = head.find('.');
    if (point != std::string::npos) {
        data_offset_ = point + 1;
        integer_part_ = head.substr(0, point + 1);
    }
    if (radix_ == 0) {
        radix_ = 10;
        if (path.find(" - Hex - ") != std::string::npos) radix_ = 16;
        if (radix_ == 10 && has_decimal_point()) {
            std::string sample(std::min(kDetectBytes, file_bytes_ - data_offset_), '\0');
            file_.load(sample.data(), data_offset_, sample.size());
            const bool letters = std::any_of(sample.begin(), sample.end(), [](char c) {
                return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
            });
            if (letters) radix_ = 16;
        }
    }
}

void BasicTextReader::process_txt() const {
    if (!has_decimal_point()) {
        throw InvalidParametersException("BasicTextReader::process_txt()",
                                         "A decimal place was not found within the first 63 bytes of the file.");
    }
}

std::string BasicTextReader::first_digits() const {
    process_txt();
    return integer_part_;
}

uint64_t BasicTextReader::total_digits() const {
    process_txt();
    return file_bytes_ - data_offset_;
}

void BasicTextReader::load_digits(char* raw, uint64_t start, uint64_t count) {
    static const char* const place = "BasicTextReader::load_digits()";
    const uint64_t total = total_digits();
    if (start > total || count > total - start) throw InvalidParametersException(place, "Out of range.");
    try {
        file_.load(raw, data_offset_ + start, count);
    } catch (const FileIO::FileException&) {
        throw InvalidParametersException(place, "Incomplete read.");
    }
    if (chars_to_digits(radix_, raw, raw, count)) throw InvalidParametersException(place, "Invalid Digit");
}

}  // namespace qmp
