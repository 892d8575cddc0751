// The file that holds one lane of a striped far-memory object. It is a file created afresh
// (truncated), made sparse at its full size, read and written with positioned calls, also
// vectored (one call moves several rows of the lane into memory that is not contiguous), and
// removed when the object is done. With raw I/O it is opened with O_DIRECT; a file system
// that refuses O_DIRECT (EINVAL at open) gets a warning and buffered I/O instead. Transfers
// resume after short counts and EINTR; a transfer that stops early is "Incomplete Read: " /
// "Incomplete Write: " + bytes moved, and system-call failures carry the errno texts of
// posix_errors.h, all as qmp::FileIO::FileException. load/store are virtual so that tests can
// make a lane fail part-way.
#pragma once

#include "qmp/farmemory/base_file.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/uio.h>

namespace qmp {

class LaneFile : public BaseFile {
public:
    // Creates (or truncates) the file at `path` and sets its size (sparse).
    LaneFile(std::string path, uint64_t size_bytes, bool raw_io);
    // Closes the file; removal is separate (remove()).
    ~LaneFile() override;

    bool raw_io() const noexcept { return raw_io_; }

    virtual void load(void* buffer, uint64_t offset, uint64_t bytes);
    virtual void store(const void* buffer, uint64_t offset, uint64_t bytes);
    // Vectored forms: the pieces follow each other in the file from `offset`.
    virtual void load_vector(const std::vector<iovec>& pieces, uint64_t offset);
    virtual void store_vector(const std::vector<iovec>& pieces, uint64_t offset);

    uint64_t size_bytes() const override;
    void close() override;
    // Closes and deletes the file; errors are thrown ("LaneFile::remove()").
    void remove();

protected:
    void reopen() override;

private:
    int fd_ = -1;
    bool raw_io_;
};

}  // namespace qmp
