// The I/O buffer of one disk worker: an aligned block of capacity_bytes that holds a window of
// its lane's file, [file_offset, file_offset + data_bytes), and knows whether it holds writes
// not yet on disk (dirty). Reads and writes of the buffer's memory are checked against the
// data it holds: an access outside it raises qmp::DiskRaid0::Raid0Exception
//     "memory_read() - Detected I/O Buffer Overrun:\nAttempted to Access: [a, b)\n"
//     "    buffer size: N\n    data bytes:  M"
// (memory_write() likewise). Dropping a dirty window without flushing it is an error
// ("Attempted to invalidate a dirty buffer without first flushing to disk.").
#pragma once

#include <cstddef>
#include <cstdint>

namespace qmp {

class LaneFile;

class IoBuffer {
public:
    // The memory is owned by the caller (the disk array allocates all buffers at once);
    // `memory` must be aligned for direct I/O.
    IoBuffer(char* memory, size_t capacity_bytes) : memory_(memory), capacity_bytes_(capacity_bytes) {}

    size_t capacity_bytes() const noexcept { return capacity_bytes_; }
    size_t data_bytes() const noexcept { return data_bytes_; }
    uint64_t file_offset() const noexcept { return file_offset_; }
    bool dirty() const noexcept { return dirty_; }
    char* data() noexcept { return memory_; }

    // Reads [file_offset, file_offset + bytes) of `file` into the buffer; the buffer must not
    // be dirty. bytes <= capacity_bytes().
    void fill_from(LaneFile& file, uint64_t file_offset, size_t bytes);
    // Makes the buffer hold `bytes` bytes for [file_offset, ...) without reading (a window
    // that is about to be overwritten whole). Marks it dirty.
    void prepare_overwrite(uint64_t file_offset, size_t bytes);
    // Writes the window back if dirty.
    void flush_to(LaneFile& file);
    // Forgets the window ("Attempted to invalidate a dirty buffer without first flushing to
    // disk." when it is dirty).
    void invalidate_contents();
    // Forgets the window, dirty or not: after a failed transfer whose error has already been
    // raised, so the next command starts clean.
    void abandon() noexcept { data_bytes_ = 0; dirty_ = false; }

    // Copies [at, at + bytes) of the window out / in; in marks the buffer dirty.
    void memory_read(void* out, size_t at, size_t bytes) const;
    void memory_write(const void* in, size_t at, size_t bytes);

private:
    [[noreturn]] void overrun(const char* which, size_t at, size_t bytes) const;

    char* memory_;
    size_t capacity_bytes_;
    size_t data_bytes_ = 0;
    uint64_t file_offset_ = 0;
    bool dirty_ = false;
};

}  // namespace qmp
