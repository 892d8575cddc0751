// IoBuffer: a window of a lane file in an aligned buffer, with overrun and dirty checks.
#include "qmp/farmemory/io_buffer.h"

#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/lane_file.h"

#include <cstring>
#include <string>

namespace qmp {

void IoBuffer::overrun(const char* which, size_t at, size_t bytes) const {
    throw DiskRaid0::Raid0Exception(
        std::string("IoBuffer::") + which,
        std::string(which) + " - Detected I/O Buffer Overrun:\n" + "Attempted to Access: [" +
            std::to_string(at) + ", " + std::to_string(at + bytes) + ")\n" +
            "    buffer size: " + std::to_string(capacity_bytes_) + "\n" +
            "    data bytes:  " + std::to_string(data_bytes_));
}

void IoBuffer::fill_from(LaneFile& file, uint64_t file_offset, size_t bytes) {
    invalidate_contents();
    if (bytes > capacity_bytes_) overrun("memory_write()", 0, bytes);
    file.load(memory_, file_offset, bytes);
    file_offset_ = file_offset;
    data_bytes_ = bytes;
}

void IoBuffer::prepare_overwrite(uint64_t file_offset, size_t bytes) {
    invalidate_contents();
    if (bytes > capacity_bytes_) overrun("memory_write()", 0, bytes);
    file_offset_ = file_offset;
    data_bytes_ = bytes;
    dirty_ = true;
}

void IoBuffer::flush_to(LaneFile& file) {
    if (!dirty_) return;
    file.store(memory_, file_offset_, data_bytes_);
    dirty_ = false;
}

void IoBuffer::invalidate_contents() {
    if (dirty_) {
        throw DiskRaid0::Raid0Exception(
            "IoBuffer::invalidate_contents()",
            "Attempted to invalidate a dirty buffer without first flushing to disk.");
    }
    data_bytes_ = 0;
}

void IoBuffer::memory_read(void* out, size_t at, size_t bytes) const {
    if (at > data_bytes_ || bytes > data_bytes_ - at) overrun("memory_read()", at, bytes);
    std::memcpy(out, memory_ + at, bytes);
}

void IoBuffer::memory_write(const void* in, size_t at, size_t bytes) {
    if (at > data_bytes_ || bytes > data_bytes_ - at) overrun("memory_write()", at, bytes);
    std::memcpy(memory_ + at, in, bytes);
    dirty_ = true;
}

}  // namespace qmp
