// BasicQcdFileWriter: block arithmetic, packing through a scratch block of words (the words'
// place in the file window is not 8-byte aligned, as the header length is arbitrary), and the
// partial word carried between calls.
#include "qmp/digitfiles/qcd_file_writer.h"

#include "qmp/console.h"
#include "qmp/digitfiles/digit_pack.h"
#include "qmp/digitfiles/qcd_header.h"
#include "qmp/exception.h"
#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace qmp {

namespace {

constexpr const char* kConstruct = "BasicQcdFileWriter::BasicQcdFileWriter()";
constexpr const char* kStore = "BasicQcdFileWriter::store_digits_B()";
constexpr uint64_t kScratchWords = 8192;

std::string range_text(uint64_t a, uint64_t b) { return std::to_string(a) + " - " + std::to_string(b); }

[[noreturn]] void out_of_bounds(const char* place, uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
    throw InvalidParametersException(place, "Write out of bounds.\nRequested Range: " + range_text(a, b) +
                                                "\nAvailable Range: " + range_text(c, d));
}

struct Block {
    uint64_t per_file, start, end;
};

// Checks the arguments before any file is created and works out the block.
Block checked_block(uint32_t radix, uint64_t digits_per_file, uint64_t total, uint64_t id) {
    if (radix != 10 && radix != 16) throw InvalidParametersException(kConstruct, "Unsupported Radix");
    if (digits_per_file == 0) {
        if (total == 0) {
            throw InvalidParametersException(kConstruct, "Single-file is incompatible with unbounded output.");
        }
        digits_per_file = total;
    }
    const unsigned __int128 start = (unsigned __int128)id * digits_per_file;
    const unsigned __int128 end = start + digits_per_file;
    if ((total != 0 && start >= total) || end > ~uint64_t(0)) {
        throw InvalidParametersException(kConstruct, "File ID is out of range.");
    }
    return {digits_per_file, uint64_t(start), total != 0 ? std::min<uint64_t>(uint64_t(end), total) : uint64_t(end)};
}

std::string checked_final_path(const std::string& path, uint32_t radix, uint64_t digits_per_file,
                               uint64_t total, uint64_t id) {
    checked_block(radix, digits_per_file, total, id);
    return path + ".qcd";
}

}  // namespace

Region::Region(uint64_t s, uint64_t e) : start(s), end(e) {
    if (!(s < e)) throw InvalidParametersException("Region::Region()", "Invalid Range - Failed: s < e");
}

BasicQcdFileWriter::BasicQcdFileWriter(const std::string& path, const std::string& first_digits,
                                       uint32_t radix, uint64_t digits_per_file, uint64_t total_digits,
                                       uint64_t file_id, bool raw_io)
    : radix_(radix),
      digits_per_word_(digits_per_word(radix)),
      file_(checked_final_path(path, radix, digits_per_file, total_digits, file_id),
            path + " (incomplete).qcd", raw_io),
      scratch_(make_aligned_block(kScratchWords * 8, 64)) {
    const Block b = checked_block(radix, digits_per_file, total_digits, file_id);
    start_ = b.start;
    end_ = b.end;
    next_digit_ = start_;
    words_per_file_ = (b.per_file - 1) / digits_per_word_ + 1;
    const std::string header = build_qcd_header(radix, first_digits, total_digits, b.per_file, file_id);
    data_offset_ = header.size();
    file_.append(header.data(), header.size());
    file_.write_through();
}

BasicQcdFileWriter::~BasicQcdFileWriter() {
    try {
        close();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

void BasicQcdFileWriter::start_access(const void* buffer, uint64_t first_word, uint64_t n_words) const {
    static const char* const place = "BasicQcdFileWriter::start_access()";
    if (reinterpret_cast<uintptr_t>(buffer) % alignof(uint64_t) != 0) {
        throw InvalidParametersException(place, "Buffer is misaligned.");
    }
    const Region r(first_word, first_word + n_words);
    if (r.end > words_per_file_) out_of_bounds(place, r.start, r.end, 0, words_per_file_);
}

void BasicQcdFileWriter::append_words(const uint64_t* words, uint64_t n_words) {
    start_access(words, next_word_, n_words);
    file_.append(words, n_words * 8);
    next_word_ += n_words;
}

void BasicQcdFileWriter::store_words(const uint64_t* words, uint64_t first_word, uint64_t n_words) {
    start_access(words, first_word, n_words);
    if (first_word != next_word_ || pending_count_ != 0) {
        throw InvalidParametersException("BasicQcdFileWriter::store_words()", "Digits must be stored in order.");
    }
    const uint64_t largest = max_packed_word(radix_);
    for (uint64_t i = 0; i < n_words; ++i) {
        if (words[i] > largest) throw InvalidParametersException("BasicQcdFileWriter::store_words()", "Invalid Digit");
    }
    append_words(words, n_words);
    next_digit_ = std::min(end_, next_digit_ + n_words * digits_per_word_);
}

void BasicQcdFileWriter::store_digits_B(const char* raw, uint64_t position, uint64_t count) {
    const Region r(position, position + count);
    if (r.start < start_ || r.end > end_) out_of_bounds(kStore, r.start, r.end, start_, end_);
    if (position != next_digit_) throw InvalidParametersException(kStore, "Digits must be stored in order.");
    if (!file_.is_open()) throw InvalidParametersException(kStore, "File is closed.");
    uint64_t* words = static_cast<uint64_t*>(scratch_.get());
    if (pending_count_ != 0) {
        const uint64_t take = std::min<uint64_t>(digits_per_word_ - pending_count_, count);
        std::memcpy(pending_ + pending_count_, raw, take);
        pending_count_ += uint32_t(take);
        raw += take;
        count -= take;
        next_digit_ += take;
        if (pending_count_ == digits_per_word_) {
            if (pack_digits(radix_, pending_, words, 1)) throw InvalidParametersException(kStore, "Invalid Digit");
            pending_count_ = 0;
            append_words(words, 1);
        }
    }
    while (count >= digits_per_word_) {
        const uint64_t n = std::min(count / digits_per_word_, kScratchWords);
        if (pack_digits(radix_, raw, words, n)) throw InvalidParametersException(kStore, "Invalid Digit");
        append_words(words, n);
        raw += n * digits_per_word_;
        count -= n * digits_per_word_;
        next_digit_ += n * digits_per_word_;
    }
    std::memcpy(pending_ + pending_count_, raw, count);
    pending_count_ += uint32_t(count);
    next_digit_ += count;
}

bool BasicQcdFileWriter::close() {
    if (!file_.is_open()) return complete();
    if (complete()) {
        if (pending_count_ != 0) {
            std::memset(pending_ + pending_count_, 0, digits_per_word_ - pending_count_);
            uint64_t* words = static_cast<uint64_t*>(scratch_.get());
            if (pack_digits(radix_, pending_, words, 1)) {
                file_.close_incomplete();
                throw InvalidParametersException("BasicQcdFileWriter::close()", "Invalid Digit");
            }
            pending_count_ = 0;
            append_words(words, 1);
        }
        file_.finish();
        return true;
    }
    Console::warning("Warning, closing incomplete file");
    file_.close_incomplete();
    return false;
}

}  // namespace qmp
