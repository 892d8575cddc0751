// Allocation of the working block.
#include "app/compute/working_memory.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/exception.h"

namespace qv {

WorkingMemory::~WorkingMemory() { release(); }

void WorkingMemory::release() noexcept {
    if (data_ == nullptr) return;
    if (mapped_bytes_ != 0) munmap(data_, mapped_bytes_);
    else std::free(data_);
    data_ = nullptr;
    size_bytes_ = mapped_bytes_ = 0;
}

bool WorkingMemory::allocate(uint64_t size_bytes, const std::string& allocator) {
    release();
    const uint64_t size = qmp::AlignedBufferC::round_up(std::max<uint64_t>(size_bytes, 1));
    bool logged_error = false;
    if (allocator == "mmap-largepages") {
        constexpr uint64_t kHugePage = uint64_t(2) << 20;
        const uint64_t mapped = (size + kHugePage - 1) / kHugePage * kHugePage;
        void* p = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_HUGETLB, -1, 0);
        if (p != MAP_FAILED) {
            data_ = p;
            mapped_bytes_ = mapped;
            size_bytes_ = size;
            return false;
        }
        qmp::EventLog::append("Allocation Error: large pages for " + format_bytes(size) + ": " + std::strerror(errno));
        logged_error = true;
    }
    if (allocator == "malloc") {
        data_ = std::aligned_alloc(qmp::AlignedBufferC::ALIGNMENT, size);
        if (data_ == nullptr)
            throw qmp::MemoryAllocationFailedException("WorkingMemory::allocate()",
                                                       "Unable to allocate " + format_bytes(size) + ".");
        size_bytes_ = size;
        return logged_error;
    }
    void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED)
        throw qmp::MemoryAllocationFailedException("WorkingMemory::allocate()",
                                                   "Unable to allocate " + format_bytes(size) + ": " + std::strerror(errno));
    if (size >= (uint64_t(8) << 20)) madvise(p, size, MADV_HUGEPAGE);
    data_ = p;
    mapped_bytes_ = size_bytes_ = size;
    return logged_error;
}

std::string format_bytes(uint64_t bytes) {
    char text[64];
    const char* unit = "KiB";
    double value = double(bytes) / 1024;
    if (value >= 1024) { value /= 1024; unit = "MiB"; }
    if (value >= 1024) { value /= 1024; unit = "GiB"; }
    std::snprintf(text, sizeof text, " ( %.1f %s )", value, unit);
    return qmp::format_with_commas(bytes) + " bytes" + text;
}

}  // namespace qv
