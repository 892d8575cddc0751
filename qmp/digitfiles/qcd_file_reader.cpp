#include "qmp/digitfiles/qcd_file_reader.h"

#include "qmp/digitfiles/digit_pack.h"
#include "qmp/exception.h"
#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace qmp {

namespace {

constexpr const char* kConstruct = "BasicQcdFileReader::BasicQcdFileReader()";
constexpr uint64_t kHeaderLimit = uint64_t(1) << 20;
constexpr uint64_t kChunkWords = 8192;

std::string u128_text(unsigned __int128 v) {
    std::string s;
    do {
        s.insert(s.begin(), char('0' + int(v % 10)));
        v /= 10;
    } while (v != 0);
    return s;
}

std::string range_text(uint64_t a, uint64_t b) { return std::to_string(a) + " - " + std::to_string(b); }

}  // namespace

BasicQcdFileReader::BasicQcdFileReader(const std::string& path)
    : file_(path, RawFile::OpenMode::ReadOnly, false) {
    auto fail = [&](const std::string& text) { throw InvalidParametersException(kConstruct, path + "\n" + text); };
    std::string head(std::min(kHeaderLimit, file_.size_bytes()), '\0');
    file_.load(head.data(), 0, head.size());
    const std::optional<uint64_t> offset = parse_qcd_header(head, fields_);
    if (!offset) fail("Read error.");
    data_offset_ = *offset;

    if (fields_.file_version.empty()) fail("No version # found.");
    if (fields_.file_version != "1.0.0" && fields_.file_version != "1.1.0") {
        fail("This .qcd file is of a later format version.\nThis version of the digit viewer is unable to view this file.");
    }
    if (fields_.digits_per_file < 50) fail("Invalid Digits per File");
    const uint64_t total = fields_.total_digits;
    if (total != 0 && total < fields_.digits_per_file) fields_.digits_per_file = total;
    const uint64_t per_file = fields_.digits_per_file;
    const unsigned __int128 start = (unsigned __int128)fields_.file_id * per_file;
    const unsigned __int128 end = start + per_file;
    if ((total != 0 && start >= total) || end > ~uint64_t(0)) {
        fail("This file is out of range.\nStart:        " + u128_text(start) + "\nEnd:          " + u128_text(end) +
             "\nTotal Digits: " + std::to_string(total));
    }
    block_start_ = uint64_t(start);
    block_end_ = total != 0 ? std::min<uint64_t>(uint64_t(end), total) : uint64_t(end);
    if (fields_.radix != 10 && fields_.radix != 16) fail("Unsupported Radix");
    digits_per_word_ = qmp::digits_per_word(uint32_t(fields_.radix));
    words_in_file_ = (block_end_ - block_start_ - 1) / digits_per_word_ + 1;
}

void BasicQcdFileReader::start_access(const void* buffer, uint64_t first_word, uint64_t n_words) const {
    static const char* const place = "BasicQcdFileReader::start_access()";
    if (reinterpret_cast<uintptr_t>(buffer) % alignof(uint64_t) != 0) {
        throw InvalidParametersException(place, "Buffer is misaligned.");
    }
    if (n_words == 0 || first_word >= words_in_file_ || n_words > words_in_file_ - first_word) {
        throw InvalidParametersException(
            place, "Read out of bounds.\nRequested Range: " + range_text(first_word, first_word + n_words) +
                       "\nAvailable Range: " + range_text(0, words_in_file_));
    }
}

void BasicQcdFileReader::read_words(uint64_t* words, uint64_t first_word, uint64_t n_words) {
    start_access(words, first_word, n_words);
    try {
        file_.load(words, data_offset_ + 8 * first_word, 8 * n_words);
    } catch (const FileIO::FileException&) {
        FileIO::throw_file_error("BasicQcdFileReader::read_words()", path(), "Read error.");
    }
}

void BasicQcdFileReader::load_digits(char* raw, uint64_t start, uint64_t count) {
    static const char* const place = "BasicQcdFileReader::load_digits()";
    if (count == 0) return;
    if (start < block_start_ || start >= block_end_ || count > block_end_ - start) {
        throw InvalidParametersException(place, "Read out of bounds.\nRequested Range: " + range_text(start, start + count) +
                                                    "\nAvailable Range: " + range_text(block_start_, block_end_));
    }
    const uint64_t first = (start - block_start_) / digits_per_word_;
    const uint64_t last = (start + count - 1 - block_start_) / digits_per_word_ + 1;
    std::vector<uint64_t> words(std::min(kChunkWords, last - first));
    std::vector<char> digits(words.size() * digits_per_word_);
    const uint64_t largest = max_packed_word(radix());
    for (uint64_t w = first; w < last;) {
        const uint64_t n = std::min(kChunkWords, last - w);
        read_words(words.data(), w, n);
        for (uint64_t i = 0; i < n; ++i) {
            if (words[i] > largest) throw InvalidParametersException(place, path() + "\nInvalid Digit");
        }
        unpack_digits(radix(), words.data(), digits.data(), n);
        // The chunk holds digits [chunk_start, chunk_end); copy its overlap with the request.
        const uint64_t chunk_start = block_start_ + w * digits_per_word_;
        const uint64_t from = std::max(chunk_start, start);
        const uint64_t to = std::min(chunk_start + n * digits_per_word_, start + count);
        std::memcpy(raw + (from - start), digits.data() + (from - chunk_start), to - from);
        w += n;
    }
}

std::string BasicQcdFileReader::describe() const {
    std::string out;
    auto line = [&](const std::string& label, const std::string& value) {
        std::string l = label;
        l.resize(std::max<size_t>(32, l.size()), ' ');
        out += l + value + "\n";
    };
    line("path:", path());
    line("file_version:", fields_.file_version);
    line("radix:", std::to_string(fields_.radix));
    line("first_digits:", fields_.first_digits);
    line("total_digits:", std::to_string(fields_.total_digits));
    line("digits_per_file:", std::to_string(fields_.digits_per_file));
    line("file_id:", std::to_string(fields_.file_id));
    line("digits_per_word:", std::to_string(digits_per_word_));
    line("words_in_this_file:", std::to_string(words_in_file_));
    line("data_offset:", std::to_string(data_offset_));
    return out;
}

}  // namespace qmp
