// StagedFileWriter: window writes, the padded tail, and the two ways of ending a file.
#include "qmp/digitfiles/staged_file_writer.h"

#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace qmp {

StagedFileWriter::StagedFileWriter(std::string final_path, std::string working_path, bool raw_io,
                                   uint64_t window_bytes)
    : final_path_(std::move(final_path)),
      working_path_(std::move(working_path)),
      file_(working_path_, RawFile::OpenMode::Create, raw_io),
      block_(make_aligned_block(std::max(kBlockBytes, window_bytes / kBlockBytes * kBlockBytes),
                                kBlockBytes)),
      window_(static_cast<char*>(block_.get())),
      window_bytes_(std::max(kBlockBytes, window_bytes / kBlockBytes * kBlockBytes)) {}

StagedFileWriter::~StagedFileWriter() {
    try {
        close_incomplete();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

void StagedFileWriter::advance(uint64_t bytes) {
    fill_ += bytes;
    if (fill_ == window_bytes_) {
        write_window(window_bytes_);
        window_offset_ += window_bytes_;
        fill_ = 0;
    }
}

void StagedFileWriter::append(const void* data, uint64_t bytes) {
    const char* p = static_cast<const char*>(data);
    while (bytes != 0) {
        uint64_t room;
        char* out = free_space(room);
        const uint64_t n = std::min(room, bytes);
        std::memcpy(out, p, n);
        advance(n);
        p += n;
        bytes -= n;
    }
}

void StagedFileWriter::write_window(uint64_t bytes) {
    if (!open_) FileIO::throw_file_error("StagedFileWriter::write_window()", working_path_, "File isn't open.");
    file_.store(window_, window_offset_, bytes);
}

void StagedFileWriter::write_through() {
    const uint64_t padded = (fill_ + kBlockBytes - 1) / kBlockBytes * kBlockBytes;
    std::memset(window_ + fill_, 0, padded - fill_);
    if (padded != 0) write_window(padded);
}

void StagedFileWriter::end_file() {
    write_through();
    file_.set_size(size_bytes());
}

void StagedFileWriter::finish() {
    if (!open_) return;
    end_file();
    file_.rename(final_path_);
    open_ = false;
    file_.close();
}

void StagedFileWriter::close_incomplete() {
    if (!open_) return;
    // Close even when the last write fails, so that no descriptor is left behind.
    try {
        end_file();
    } catch (...) {
        open_ = false;
        file_.close();
        throw;
    }
    open_ = false;
    file_.close();
}

}  // namespace qmp
