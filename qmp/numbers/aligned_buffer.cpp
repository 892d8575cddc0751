// Carving of AlignedBufferC views; see the header for the contract.
#include "qmp/numbers/aligned_buffer.h"

#include "qmp/exception.h"

namespace qmp {

AlignedBufferC::AlignedBufferC(void* ptr, uint64_t size_bytes) {
    if (reinterpret_cast<uintptr_t>(ptr) % ALIGNMENT != 0)
        throw InvalidParametersException("AlignedBufferC::AlignedBufferC()", "Pointer is misaligned.");
    ptr_ = ptr;
    size_bytes_ = size_bytes / ALIGNMENT * ALIGNMENT;
}

void* AlignedBufferC::take(uint64_t size_bytes, const char* function) {
    if (size_bytes % ALIGNMENT != 0) throw InvalidParametersException(function, "Size is misaligned.");
    if (size_bytes > size_bytes_) throw BufferTooSmallException(function, size_bytes_, size_bytes);
    void* piece = ptr_;
    ptr_ = static_cast<char*>(ptr_) + size_bytes;
    size_bytes_ -= size_bytes;
    return piece;
}

AlignedBufferC AlignedBufferC::spawn(uint64_t size_bytes) {
    void* piece = take(size_bytes, "AlignedBufferC::spawn()");
    AlignedBufferC child;
    child.ptr_ = piece;
    child.size_bytes_ = size_bytes;
    return child;
}

void* AlignedBufferC::extract(uint64_t size_bytes) { return take(size_bytes, "AlignedBufferC::extract()"); }

}  // namespace qmp
