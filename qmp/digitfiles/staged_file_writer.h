// A file written front to back through one aligned window, so that every transfer is a whole
// number of 4096-byte blocks at a block-aligned offset, as raw (O_DIRECT) I/O requires; with
// raw I/O off the same transfers go through the page cache. Bytes are appended to the window
// and the window is written out when full. The file lives under its working name until
// finish(), which writes the tail (padded to a block), cuts the file to its exact length and
// renames it to its final name. close_incomplete() (and the destructor of an unfinished
// writer) writes what it holds and leaves the file under the working name. Data is not forced
// to the device: the digit output is checked by reading it back instead.
#pragma once

#include "qmp/farmemory/aligned_access_file.h"
#include "qmp/farmemory/aligned_malloc.h"

#include <cstdint>
#include <string>

namespace qmp {

class StagedFileWriter {
public:
    static constexpr uint64_t kBlockBytes = 4096;

    StagedFileWriter(std::string final_path, std::string working_path, bool raw_io,
                     uint64_t window_bytes = uint64_t(1) << 20);
    ~StagedFileWriter();
    StagedFileWriter(const StagedFileWriter&) = delete;
    StagedFileWriter& operator=(const StagedFileWriter&) = delete;

    const std::string& final_path() const noexcept { return final_path_; }
    const std::string& working_path() const noexcept { return working_path_; }
    bool is_open() const noexcept { return open_; }
    // Bytes appended so far (the file's length when finished).
    uint64_t size_bytes() const noexcept { return window_offset_ + fill_; }

    // The free part of the window; after writing into it, advance() by what was written.
    char* free_space(uint64_t& bytes) noexcept {
        bytes = window_bytes_ - fill_;
        return window_ + fill_;
    }
    void advance(uint64_t bytes);
    void append(const void* data, uint64_t bytes);
    // Writes the partly filled window (padded) without moving on, so the bytes so far are on
    // the file; used to put a header on disk at once.
    void write_through();

    void finish();
    void close_incomplete();

private:
    void write_window(uint64_t bytes);
    void end_file();

    std::string final_path_;
    std::string working_path_;
    AlignedAccessFile file_;
    AlignedBlock block_;
    char* window_;
    uint64_t window_bytes_;
    uint64_t window_offset_ = 0;
    uint64_t fill_ = 0;
    bool open_ = true;
};

}  // namespace qmp
