// LaneFile on open/pread/pwrite/preadv/pwritev/ftruncate/unlink.
#include "qmp/farmemory/lane_file.h"

#include "qmp/console.h"
#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qmp {

namespace {

constexpr uint64_t max_call_bytes = uint64_t(1) << 30;
constexpr size_t max_call_pieces = IOV_MAX;

// Moves `bytes` with `call(pointer_offset, ask)`, resuming after short transfers and EINTR.
template <class Call>
void transfer_all(Call&& call, uint64_t bytes, const char* place, const std::string& path,
                  const char* incomplete) {
    uint64_t done = 0;
    while (done < bytes) {
        const uint64_t ask = std::min(bytes - done, max_call_bytes);
        const ssize_t moved = call(done, ask);
        if (moved < 0) {
            if (errno == EINTR) continue;
            FileIO::throw_system_error(place, path, errno);
        }
        if (moved == 0) FileIO::throw_file_error(place, path, incomplete + std::to_string(done));
        done += uint64_t(moved);
    }
}

// Vectored transfer of `pieces` starting at `offset`, continuing after short transfers.
template <class Call>
void transfer_vector(Call&& call, std::vector<iovec> pieces, uint64_t offset, const char* place,
                     const std::string& path, const char* incomplete) {
    size_t first = 0;
    uint64_t done = 0;
    while (first < pieces.size()) {
        const size_t count = std::min(pieces.size() - first, max_call_pieces);
        const ssize_t moved = call(&pieces[first], int(count), off_t(offset + done));
        if (moved < 0) {
            if (errno == EINTR) continue;
            FileIO::throw_system_error(place, path, errno);
        }
        if (moved == 0) FileIO::throw_file_error(place, path, incomplete + std::to_string(done));
        done += uint64_t(moved);
        // Skip the pieces moved whole and trim the one moved in part.
        uint64_t left = uint64_t(moved);
        while (first < pieces.size() && left >= pieces[first].iov_len) left -= pieces[first++].iov_len;
        if (left > 0) {
            pieces[first].iov_base = static_cast<char*>(pieces[first].iov_base) + left;
            pieces[first].iov_len -= left;
        }
    }
}

}  // namespace

LaneFile::LaneFile(std::string path, uint64_t size_bytes, bool raw_io)
    : BaseFile(std::move(path)), raw_io_(raw_io) {
    static const char* const place = "LaneFile()";
    const int flags = O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC;
    fd_ = ::open(this->path().c_str(), flags | (raw_io_ ? O_DIRECT : 0), 0644);
    if (fd_ < 0 && raw_io_ && errno == EINVAL) {
        Console::warning("Raw I/O is not supported by the file system of: " + this->path() +
                         "\nFalling back to buffered I/O.");
        raw_io_ = false;
        fd_ = ::open(this->path().c_str(), flags, 0644);
    }
    if (fd_ < 0) FileIO::throw_system_error(place, this->path(), errno, "Unable to create file.");
    set_open(true);
    if (::ftruncate(fd_, off_t(size_bytes)) != 0) {
        const int errnum = errno;
        remove();
        FileIO::throw_system_error(place, this->path(), errnum,
                                   "ftruncate() failed. Size: " + std::to_string(size_bytes));
    }
}

LaneFile::~LaneFile() {
    try {
        close();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

void LaneFile::reopen() {
    fd_ = ::open(path().c_str(), O_RDWR | O_CLOEXEC | (raw_io_ ? O_DIRECT : 0));
    if (fd_ < 0) FileIO::throw_system_error("LaneFile::rename()", path(), errno, "Unable to reopen file.");
    set_open(true);
}

void LaneFile::close() {
    if (!is_open()) return;
    const int fd = fd_;
    fd_ = -1;
    set_open(false);
    if (::close(fd) != 0) FileIO::throw_system_error("LaneFile::close()", path(), errno);
}

void LaneFile::remove() {
    close();
    if (::unlink(path().c_str()) != 0 && errno != ENOENT) {
        FileIO::throw_system_error("LaneFile::remove()", path(), errno, "Unable to delete file.");
    }
}

void LaneFile::load(void* buffer, uint64_t offset, uint64_t bytes) {
    static const char* const place = "LaneFile::load()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    char* p = static_cast<char*>(buffer);
    transfer_all([&](uint64_t done, uint64_t ask) { return ::pread(fd_, p + done, ask, off_t(offset + done)); },
                 bytes, place, path(), "Incomplete Read: ");
}

void LaneFile::store(const void* buffer, uint64_t offset, uint64_t bytes) {
    static const char* const place = "LaneFile::store()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    const char* p = static_cast<const char*>(buffer);
    transfer_all([&](uint64_t done, uint64_t ask) { return ::pwrite(fd_, p + done, ask, off_t(offset + done)); },
                 bytes, place, path(), "Incomplete Write: ");
}

void LaneFile::load_vector(const std::vector<iovec>& pieces, uint64_t offset) {
    static const char* const place = "LaneFile::load()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    transfer_vector([&](const iovec* v, int n, off_t at) { return ::preadv(fd_, v, n, at); }, pieces,
                    offset, place, path(), "Incomplete Read: ");
}

void LaneFile::store_vector(const std::vector<iovec>& pieces, uint64_t offset) {
    static const char* const place = "LaneFile::store()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    transfer_vector([&](const iovec* v, int n, off_t at) { return ::pwritev(fd_, v, n, at); }, pieces,
                    offset, place, path(), "Incomplete Write: ");
}

uint64_t LaneFile::size_bytes() const {
    static const char* const place = "LaneFile::size_bytes()";
    if (!is_open()) FileIO::throw_file_error(place, path(), "File isn't open.");
    struct stat info;
    if (::fstat(fd_, &info) != 0) FileIO::throw_system_error(place, path(), errno);
    return uint64_t(info.st_size);
}

}  // namespace qmp
