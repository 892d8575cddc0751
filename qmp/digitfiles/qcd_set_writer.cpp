#include "qmp/digitfiles/qcd_set_writer.h"

#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/exception.h"
#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <exception>

namespace qmp {

namespace {
constexpr const char* kConstruct = "BasicQcdSetWriter::BasicQcdSetWriter()";
}

BasicQcdSetWriter::BasicQcdSetWriter(std::string directory, std::string base_name, std::string first_digits,
                                     uint32_t radix, uint64_t digits_per_file, uint64_t total_digits, bool raw_io)
    : directory_(std::move(directory)),
      base_name_(std::move(base_name)),
      first_digits_(std::move(first_digits)),
      radix_(radix),
      digits_per_file_(digits_per_file),
      total_digits_(total_digits),
      raw_io_(raw_io) {
    if (radix != 10 && radix != 16) throw InvalidParametersException(kConstruct, "Invalid Parameters");
    if (digits_per_file_ == 0) {
        if (total_digits_ == 0) {
            throw InvalidParametersException(kConstruct, "Single-file is incompatible with unbounded output.");
        }
        digits_per_file_ = total_digits_;
    }
}

BasicQcdSetWriter::~BasicQcdSetWriter() {
    try {
        close();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

void BasicQcdSetWriter::store_digits(const char* raw, uint64_t position, uint64_t count) {
    while (count != 0) {
        const uint64_t id = position / digits_per_file_;
        if (!open_ || open_id_ != id) {
            if (open_) all_complete_ &= open_->close();
            open_.reset();
            const std::string stem = join_path(directory_, base_name_ + " - " + std::to_string(id));
            open_ = std::make_unique<BasicQcdFileWriter>(stem, first_digits_, radix_, digits_per_file_,
                                                         total_digits_, id, raw_io_);
            open_id_ = id;
            paths_.push_back(open_->final_path());
        }
        const uint64_t n = std::min(count, open_->get_range().end - position);
        open_->store_digits_B(raw, position, n);
        raw += n;
        position += n;
        count -= n;
        if (open_->complete()) {
            all_complete_ &= open_->close();
            open_.reset();
        }
    }
}

bool BasicQcdSetWriter::close() {
    if (open_) {
        all_complete_ &= open_->close();
        open_.reset();
    }
    return all_complete_;
}

std::unique_ptr<BasicQcdSetReader> BasicQcdSetWriter::close_and_get_basic_reader() {
    if (paths_.empty()) throw InvalidParametersException("BasicQcdSetWriter::close_and_get_basic_reader()", "No files open.");
    close();
    return std::make_unique<BasicQcdSetReader>(paths_.front());
}

}  // namespace qmp
