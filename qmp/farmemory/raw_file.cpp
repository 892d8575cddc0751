// RawFile on open/pread/pwrite/ftruncate/fdatasync/close. Transfers are split into calls of
// at most 1 GiB and resumed after short transfers and EINTR; a descriptor is never closed
// twice, even when close() reports an error.
#include "qmp/farmemory/raw_file.h"

#include "qmp/farmemory/posix_errors.h"

#include <cerrno>
#include <exception>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qmp {

namespace {
// Linux moves at most 0x7ffff000 bytes per read or write; asking for 1 GiB at a time keeps each
// call whole and keeps O_DIRECT transfers sector-aligned (1 GiB is a multiple of any sector).
constexpr uint64_t max_call_bytes = uint64_t(1) << 30;
}  // namespace

int RawFile::open_flags(bool first_open) const {
    int flags = O_CLOEXEC;
    if (raw_io_) flags |= O_DIRECT;
    switch (mode_) {
        case OpenMode::Create:
            // A reopen (after a rename) must keep what was written.
            flags |= O_RDWR | (first_open ? O_CREAT | O_TRUNC : 0);
            break;
        case OpenMode::OpenExisting: flags |= O_RDWR; break;
        case OpenMode::ReadOnly: flags |= O_RDONLY; break;
    }
    return flags;
}

RawFile::RawFile(std::string path, OpenMode mode, bool raw_io)
    : BaseFile(std::move(path)), mode_(mode), raw_io_(raw_io) {
    fd_ = ::open(this->path().c_str(), open_flags(true), 0644);
    if (fd_ < 0) {
        FileIO::throw_system_error("RawFile()", this->path(), errno, "Unable to open file.");
    }
    set_open(true);
}

RawFile::~RawFile() {
    try {
        close();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

void RawFile::reopen() {
    fd_ = ::open(path().c_str(), open_flags(false));
    if (fd_ < 0) FileIO::throw_system_error("RawFile::rename()", path(), errno, "Unable to reopen file.");
    set_open(true);
}

void RawFile::close() {
    if (!is_open()) return;
    const int fd = fd_;
    fd_ = -1;
    set_open(false);
    // On Linux the descriptor is released even when close() reports an error (EINTR
    // included), so it is never retried.
    if (::close(fd) != 0) FileIO::throw_system_error("RawFile::close()", path(), errno);
}

void RawFile::load(void* buffer, uint64_t offset, uint64_t bytes) {
    static const char* const place = "RawFile::load()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    char* p = static_cast<char*>(buffer);
    uint64_t done = 0;
    while (done < bytes) {
        const uint64_t ask = bytes - done < max_call_bytes ? bytes - done : max_call_bytes;
        const ssize_t got = ::pread(fd_, p + done, ask, off_t(offset + done));
        if (got < 0) {
            if (errno == EINTR) continue;
            FileIO::throw_system_error(place, path(), errno);
        }
        if (got == 0) {
            FileIO::throw_file_error(place, path(), "Incomplete Read: " + std::to_string(done));
        }
        done += uint64_t(got);
    }
}

void RawFile::store(const void* buffer, uint64_t offset, uint64_t bytes) {
    static const char* const place = "RawFile::store()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    const char* p = static_cast<const char*>(buffer);
    uint64_t done = 0;
    while (done < bytes) {
        const uint64_t ask = bytes - done < max_call_bytes ? bytes - done : max_call_bytes;
        const ssize_t put = ::pwrite(fd_, p + done, ask, off_t(offset + done));
        if (put < 0) {
            if (errno == EINTR) continue;
            FileIO::throw_system_error(place, path(), errno);
        }
        // A write that makes no progress without an error would loop forever.
        if (put == 0) {
            FileIO::throw_file_error(place, path(), "Incomplete Write: " + std::to_string(done));
        }
        done += uint64_t(put);
    }
}

void RawFile::set_size(uint64_t size_bytes) {
    static const char* const place = "RawFile::set_size()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    if (::ftruncate(fd_, off_t(size_bytes)) != 0) {
        FileIO::throw_system_error(place, path(), errno,
                                   "ftruncate() failed. Size: " + std::to_string(size_bytes));
    }
}

void RawFile::close_and_set_size(uint64_t size_bytes) {
    static const char* const place = "RawFile::close_and_set_size()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    if (::ftruncate(fd_, off_t(size_bytes)) != 0) {
        FileIO::throw_system_error(place, path(), errno, "ftruncate() failed.");
    }
    const int fd = fd_;
    fd_ = -1;
    set_open(false);
    if (::close(fd) != 0) {
        FileIO::throw_system_error(place, path(), errno,
                                   "RawFile::close_and_set_size(): Unable to close file.");
    }
}

void RawFile::sync() {
    static const char* const place = "RawFile::sync()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    if (::fdatasync(fd_) != 0) FileIO::throw_system_error(place, path(), errno);
}

uint64_t RawFile::size_bytes() const {
    static const char* const place = "RawFile::size_bytes()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    struct stat info;
    if (::fstat(fd_, &info) != 0) FileIO::throw_system_error(place, path(), errno);
    return uint64_t(info.st_size);
}

}  // namespace qmp
