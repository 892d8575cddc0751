// A file reached through a POSIX file descriptor with positioned reads and writes. With raw
// I/O requested it is opened with O_DIRECT: transfers bypass the page cache and need buffers,
// offsets and lengths aligned to the device's sector (callers keep to AlignedAccessFile's
// rules). No O_SYNC: far memory is scratch, and files that must survive call sync().
// load()/store() loop over short transfers and EINTR; only a transfer that stops early (end of
// file, a write that makes no progress) is "Incomplete Read: "/"Incomplete Write: " + bytes
// moved. Every system-call failure is a qmp::FileIO::FileException with the path, the place
// and the errno text (posix_errors.h). A failed access leaves the file open.
#pragma once

#include "qmp/farmemory/base_file.h"

#include <cstdint>
#include <string>

namespace qmp {

class RawFile : public BaseFile {
public:
    enum class OpenMode {
        Create,        // read and write; created if missing, truncated to 0 if present
        OpenExisting,  // read and write; must exist, contents kept
        ReadOnly,      // read only; must exist
    };

    // Opens the file ("RawFile()" on failure).
    RawFile(std::string path, OpenMode mode, bool raw_io);
    // Closes the file; an error on the way is reported, never thrown.
    ~RawFile() override;

    bool raw_io() const noexcept { return raw_io_; }
    OpenMode mode() const noexcept { return mode_; }

    // Reads bytes [offset, offset + bytes) into buffer ("RawFile::load()").
    virtual void load(void* buffer, uint64_t offset, uint64_t bytes);
    // Writes buffer to bytes [offset, offset + bytes) ("RawFile::store()").
    virtual void store(const void* buffer, uint64_t offset, uint64_t bytes);

    // Truncates or extends the file to size_bytes ("File isn't open.", "ftruncate() failed.
    // Size: N").
    void set_size(uint64_t size_bytes);
    // Sets the final size and closes, as after direct I/O whose last write was padded to a
    // sector ("ftruncate() failed.", "RawFile::close_and_set_size(): Unable to close file.").
    void close_and_set_size(uint64_t size_bytes);
    // Forces written data to the device (fdatasync).
    void sync();

    uint64_t size_bytes() const override;
    void close() override;

protected:
    void reopen() override;

private:
    int open_flags(bool first_open) const;

    OpenMode mode_;
    bool raw_io_;
    int fd_ = -1;
};

}  // namespace qmp
