#include "qmp/farmemory/far_memory.h"

#include <cstdio>
#include <string>

#include "qmp/console.h"

namespace qmp {

FarMemory::FarMemory(std::string name, uint64_t size_bytes)
    : name_(std::move(name)), size_bytes_(size_bytes) {}

void FarMemory::print_description() const {
    char line[128];
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

void FarMemory::load(void* buffer, uint64_t offset, uint64_t bytes) {
    check_range("FarMemory::load()", offset, bytes);
    if (bytes != 0) do_load(buffer, offset, bytes);
}

void FarMemory::store(const void* buffer, uint64_t offset, uint64_t bytes) {
    check_range("FarMemory::store()", offset, bytes);
    if (bytes != 0) do_store(buffer, offset, bytes);
}

namespace {
// The far range touched by a strided run: from offset to the end of the last block.
bool strided_end(uint64_t offset, uint64_t far_stride, uint64_t block_bytes, uint64_t count,
                 uint64_t& span) {
    const unsigned __int128 end = (unsigned __int128)(count - 1) * far_stride + block_bytes;
    if (end > UINT64_MAX) return false;
    span = static_cast<uint64_t>(end);
    (void)offset;
    return true;
}
}  // namespace

void FarMemory::gather(void* buffer, int64_t buffer_stride, uint64_t offset, uint64_t far_stride,
                       uint64_t block_bytes, uint64_t count) {
    if (count == 0) return;
    if (buffer_stride >= 0 && uint64_t(buffer_stride) == block_bytes && far_stride == block_bytes) {
        const unsigned __int128 total = (unsigned __int128)count * block_bytes;
        if (total > UINT64_MAX) {
            throw FarMemoryOutOfBoundsException("FarMemory::gather()", name_, offset, UINT64_MAX,
                                                size_bytes_);
        }
        check_range("FarMemory::gather()", offset, uint64_t(total));
        if (total != 0) do_load(buffer, offset, uint64_t(total));
        return;
    }
    uint64_t span = 0;
    if (!strided_end(offset, far_stride, block_bytes, count, span)) span = UINT64_MAX;
    check_range("FarMemory::gather()", offset, span);
    char* p = static_cast<char*>(buffer);
    for (uint64_t i = 0; i < count; ++i) {
        if (block_bytes != 0) do_load(p, offset, block_bytes);
        offset += far_stride;
        p += buffer_stride;
    }
}

void FarMemory::scatter(const void* buffer, int64_t buffer_stride, uint64_t offset,
                        uint64_t far_stride, uint64_t block_bytes, uint64_t count) {
    if (count == 0) return;
    if (buffer_stride >= 0 && uint64_t(buffer_stride) == block_bytes && far_stride == block_bytes) {
        const unsigned __int128 total = (unsigned __int128)count * block_bytes;
        if (total > UINT64_MAX) {
            throw FarMemoryOutOfBoundsException("FarMemory::scatter()", name_, offset, UINT64_MAX,
                                                size_bytes_);
        }
        check_range("FarMemory::scatter()", offset, uint64_t(total));
        if (total != 0) do_store(buffer, offset, uint64_t(total));
        return;
    }
    uint64_t span = 0;
    if (!strided_end(offset, far_stride, block_bytes, count, span)) span = UINT64_MAX;
    check_range("FarMemory::scatter()", offset, span);
    const char* p = static_cast<const char*>(buffer);
    for (uint64_t i = 0; i < count; ++i) {
        if (block_bytes != 0) do_store(p, offset, block_bytes);
        offset += far_stride;
        p += buffer_stride;
    }
}

}  // namespace qmp
