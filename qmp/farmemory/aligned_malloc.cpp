// Power-of-two aligned heap blocks on posix_memalign, released with free().
#include "qmp/farmemory/aligned_malloc.h"

#include "qmp/exception.h"

#include <cstdlib>
#include <string>

namespace qmp {

void* aligned_malloc(size_t bytes, size_t alignment) {
    if (alignment == 0 || (alignment & (alignment - 1)) != 0) {
        throw InvalidParametersException("aligned_malloc()", "Alignment must be a power of two.");
    }
    // posix_memalign needs a multiple of sizeof(void*); a smaller power of two is satisfied by
    // that stronger alignment.
    if (alignment < sizeof(void*)) alignment = sizeof(void*);
    void* block = nullptr;
    if (posix_memalign(&block, alignment, bytes == 0 ? 1 : bytes) != 0) {
        throw MemoryAllocationFailedException(
            "aligned_malloc()", "Unable to allocate " + std::to_string(bytes) +
                                    " bytes aligned to " + std::to_string(alignment) + ".");
    }
    return block;
}

void aligned_free(void* block) noexcept { std::free(block); }

}  // namespace qmp
