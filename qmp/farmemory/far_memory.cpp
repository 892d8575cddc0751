// The checked entry points of FarMemory: every public access validates its whole range
// (overflow-safe, in 128 bits for strided runs) before the back-end moves a byte, and counts
// the logical traffic. Strided runs that are contiguous on both sides become one transfer.
#include "qmp/farmemory/far_memory.h"

#include "qmp/console.h"

#include <cstdio>
#include <string>

namespace qmp {

FarMemory::FarMemory(std::string name, uint64_t size_bytes)
    : name_(std::move(name)), size_bytes_(size_bytes) {}

void FarMemory::print_description() const {
    char line[64];
    std::snprintf(line, sizeof line, "%-32s", "Name");
    Console::print(line, Console::Colour::Label);
    Console::println(name_, Console::Colour::Value);
    std::snprintf(line, sizeof line, "%-32s", "Bytes");
    Console::print(line, Console::Colour::Label);
    Console::println(std::to_string(size_bytes_), Console::Colour::Value);
}

void FarMemory::check_range(const char* place, uint64_t offset, uint64_t bytes) const {
    if (offset > size_bytes_ || bytes > size_bytes_ - offset) {
        throw FarMemoryOutOfBoundsException(place, name_, offset, bytes, size_bytes_);
    }
}

void FarMemory::check_strided(const char* place, uint64_t offset, uint64_t far_stride,
                              uint64_t block_bytes, uint64_t count) const {
    const unsigned __int128 span = (unsigned __int128)(count - 1) * far_stride + block_bytes;
    // A span beyond 64 bits is reported with the largest length the exception can carry.
    if (span > UINT64_MAX) {
        throw FarMemoryOutOfBoundsException(place, name_, offset, UINT64_MAX, size_bytes_);
    }
    check_range(place, offset, static_cast<uint64_t>(span));
}

void FarMemory::load_checked(void* buffer, uint64_t offset, uint64_t bytes) {
    if (bytes == 0) return;
    do_load(buffer, offset, bytes);
    bytes_loaded_.fetch_add(bytes, std::memory_order_relaxed);
}

void FarMemory::store_checked(const void* buffer, uint64_t offset, uint64_t bytes) {
    if (bytes == 0) return;
    do_store(buffer, offset, bytes);
    bytes_stored_.fetch_add(bytes, std::memory_order_relaxed);
}

void FarMemory::load(void* buffer, uint64_t offset, uint64_t bytes) {
    check_range("FarMemory::load()", offset, bytes);
    load_checked(buffer, offset, bytes);
}

void FarMemory::store(const void* buffer, uint64_t offset, uint64_t bytes) {
    check_range("FarMemory::store()", offset, bytes);
    store_checked(buffer, offset, bytes);
}

namespace {

// True when the run is one contiguous range on both sides, so it can move as one transfer.
bool is_contiguous(int64_t buffer_stride, uint64_t far_stride, uint64_t block_bytes) {
    return buffer_stride >= 0 && uint64_t(buffer_stride) == block_bytes &&
           far_stride == block_bytes;
}

}  // namespace

void FarMemory::gather(void* buffer, int64_t buffer_stride, uint64_t offset, uint64_t far_stride,
                       uint64_t block_bytes, uint64_t count) {
    if (count == 0) return;
    // For a contiguous run the span is count * block_bytes, the same formula.
    check_strided("FarMemory::gather()", offset, far_stride, block_bytes, count);
    if (is_contiguous(buffer_stride, far_stride, block_bytes)) {
        load_checked(buffer, offset, count * block_bytes);
        return;
    }
    char* p = static_cast<char*>(buffer);
    for (uint64_t i = 0; i < count; ++i) {
        load_checked(p, offset, block_bytes);
        offset += far_stride;
        p += buffer_stride;
    }
}

void FarMemory::scatter(const void* buffer, int64_t buffer_stride, uint64_t offset,
                        uint64_t far_stride, uint64_t block_bytes, uint64_t count) {
    if (count == 0) return;
    check_strided("FarMemory::scatter()", offset, far_stride, block_bytes, count);
    if (is_contiguous(buffer_stride, far_stride, block_bytes)) {
        store_checked(buffer, offset, count * block_bytes);
        return;
    }
    const char* p = static_cast<const char*>(buffer);
    for (uint64_t i = 0; i < count; ++i) {
        store_checked(p, offset, block_bytes);
        offset += far_stride;
        p += buffer_stride;
    }
}

}  // namespace qmp
