// Far memory: storage of a fixed size in bytes reached by explicit load and store calls rather
// than by pointers (RAM, mapped memory, files striped over disks). Every access is checked
// against the object's size before any byte moves; a violation raises
// qmp::FarMemoryOutOfBoundsException naming the place, the object, the offset and the length.
// Back-ends implement do_load()/do_store(); the public calls check and then forward, so no
// back-end can forget the check. Buffers passed in never alias the object's own storage.
#pragma once

#include "qmp/exception.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace qmp {

class FarMemory {
public:
    FarMemory(std::string name, uint64_t size_bytes);
    virtual ~FarMemory() = default;
    FarMemory(const FarMemory&) = delete;
    FarMemory& operator=(const FarMemory&) = delete;

    const std::string& name() const noexcept { return name_; }
    uint64_t size_bytes() const noexcept { return size_bytes_; }

    // Prints "Name" and "Bytes", each label padded to 32 columns, with the name and byte count.
    virtual void print_description() const;

    // Reads bytes [offset, offset + bytes) into buffer.
    void load(void* buffer, uint64_t offset, uint64_t bytes);
    // Writes buffer to bytes [offset, offset + bytes).
    void store(const void* buffer, uint64_t offset, uint64_t bytes);

    // Strided access: count blocks of block_bytes, the i-th at far offset + i * far_stride and
    // at buffer + i * buffer_stride. When the block length equals both strides the run is one
    // transfer. A count of 0 does nothing. Otherwise the last block's end is checked before any
    // transfer, and blocks move in increasing order of i (a back-end may overlap them as long as
    // the result is the same; overlapping far blocks in scatter make the later block win).
    virtual void gather(void* buffer, int64_t buffer_stride, uint64_t offset, uint64_t far_stride,
                        uint64_t block_bytes, uint64_t count);
    virtual void scatter(const void* buffer, int64_t buffer_stride, uint64_t offset,
                         uint64_t far_stride, uint64_t block_bytes, uint64_t count);

    // Logical traffic through this object since its creation (for the run's report).
    uint64_t bytes_loaded() const noexcept { return bytes_loaded_.load(std::memory_order_relaxed); }
    uint64_t bytes_stored() const noexcept { return bytes_stored_.load(std::memory_order_relaxed); }

protected:
    virtual void do_load(void* buffer, uint64_t offset, uint64_t bytes) = 0;
    virtual void do_store(const void* buffer, uint64_t offset, uint64_t bytes) = 0;

    // Throws FarMemoryOutOfBoundsException at `place` unless [offset, offset + bytes) lies
    // within the object (overflow-safe).
    void check_range(const char* place, uint64_t offset, uint64_t bytes) const;
    // The same for a strided run of count >= 1 blocks: its far range ends at
    // offset + (count - 1) * far_stride + block_bytes (computed without overflow). Back-ends
    // that override gather()/scatter() call it before their first transfer.
    void check_strided(const char* place, uint64_t offset, uint64_t far_stride,
                       uint64_t block_bytes, uint64_t count) const;

private:
    // The checked, counted transfers that every public entry point ends in.
    void load_checked(void* buffer, uint64_t offset, uint64_t bytes);
    void store_checked(const void* buffer, uint64_t offset, uint64_t bytes);

    std::string name_;
    uint64_t size_bytes_;
    std::atomic<uint64_t> bytes_loaded_{0};
    std::atomic<uint64_t> bytes_stored_{0};
};

}  // namespace qmp
