// Heap blocks aligned to a power of two, for direct I/O buffers (sector alignment) and far
// memory held in RAM. aligned_malloc() refuses an alignment that is not a power of two with
// qmp::InvalidParametersException "Alignment must be a power of two." at "aligned_malloc()",
// and a failed allocation with qmp::MemoryAllocationFailedException. A block is released with
// aligned_free() (never free() or delete); AlignedBlock owns one.
#pragma once

#include <cstddef>
#include <memory>

namespace qmp {

// Returns bytes of storage aligned to `alignment`; 0 bytes gives a valid, distinct pointer.
void* aligned_malloc(size_t bytes, size_t alignment);
// Releases a block from aligned_malloc(); nullptr is allowed.
void aligned_free(void* block) noexcept;

struct AlignedFree {
    void operator()(void* block) const noexcept { aligned_free(block); }
};
using AlignedBlock = std::unique_ptr<void, AlignedFree>;

inline AlignedBlock make_aligned_block(size_t bytes, size_t alignment) {
    return AlignedBlock(aligned_malloc(bytes, alignment));
}

}  // namespace qmp
