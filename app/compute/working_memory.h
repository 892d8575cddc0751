// The one working block of a computation, aligned to AlignedBufferC::ALIGNMENT and released
// with the object. Allocators: "mmap" (anonymous mapping, transparent huge pages advised),
// "mmap-largepages" (explicit huge pages, falling back to "mmap" when the system has none:
// the failure goes to the event log as "Allocation Error: ..." and the run goes on) and
// "malloc" (aligned heap block). A block that cannot be had at all is
// MemoryAllocationFailedException at "WorkingMemory::allocate()" with the size.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/numbers/aligned_buffer.h"

namespace qv {

class WorkingMemory {
public:
    WorkingMemory() = default;
    WorkingMemory(const WorkingMemory&) = delete;
    WorkingMemory& operator=(const WorkingMemory&) = delete;
    ~WorkingMemory();

    // Replaces any block held. Returns whether an allocation error was logged on the way.
    bool allocate(uint64_t size_bytes, const std::string& allocator);
    void release() noexcept;

    qmp::AlignedBufferC buffer() const { return qmp::AlignedBufferC(data_, size_bytes_); }
    uint64_t size_bytes() const noexcept { return size_bytes_; }

private:
    void* data_ = nullptr;
    uint64_t size_bytes_ = 0;
    uint64_t mapped_bytes_ = 0;  // nonzero for a mapping
};

// "123,456,789 bytes ( 117.7 MiB )"
std::string format_bytes(uint64_t bytes);

}  // namespace qv
