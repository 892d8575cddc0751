// AlignedBufferC: a view of a caller-owned memory block whose start and size are multiples of
// 128 bytes, from which operations carve their scratch pieces bottom-up. Carving keeps the
// alignment, so every piece (and the rest of the view) stays 128-byte aligned. The view never
// owns or frees memory. Errors: a misaligned pointer "Pointer is misaligned." (constructor), a
// carve size that is not a multiple of 128 "Size is misaligned." (spawn(), extract()), both
// qmp::InvalidParametersException; carving more than remains is qmp::BufferTooSmallException
// naming the operation, with the remaining and the requested byte counts.
#pragma once

#include <cstdint>

namespace qmp {

class AlignedBufferC {
public:
    static constexpr uint64_t ALIGNMENT = 128;

    static constexpr uint64_t round_up(uint64_t size_bytes) {
        return (size_bytes + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    }

    AlignedBufferC() = default;
    // The pointer must be 128-byte aligned. A size that is not a multiple of 128 is rounded down:
    // the tail cannot hold an aligned piece anyway, and callers that allocate with a vector
    // should not have to trim by hand.
    AlignedBufferC(void* ptr, uint64_t size_bytes);

    void* data() const noexcept { return ptr_; }
    uint64_t size_bytes() const noexcept { return size_bytes_; }
    template <typename W>
    W* words() const noexcept { return static_cast<W*>(ptr_); }
    template <typename W>
    uint64_t capacity_words() const noexcept { return size_bytes_ / sizeof(W); }

    // Cuts `size_bytes` (a multiple of 128) off the bottom and returns it as its own view.
    AlignedBufferC spawn(uint64_t size_bytes);
    // The same for `n_words` words of type W, rounded up to the alignment.
    template <typename W>
    AlignedBufferC spawn_words(uint64_t n_words) {
        return spawn(round_up(n_words * sizeof(W)));
    }
    // Cuts `size_bytes` (a multiple of 128) off the bottom and returns its start.
    void* extract(uint64_t size_bytes);
    // Cuts room for `count` objects of type X, rounded up to the alignment.
    template <typename X>
    X* extract_aligned(uint64_t count) {
        return static_cast<X*>(take(round_up(count * sizeof(X)), "AlignedBufferC::extract_aligned()"));
    }

private:
    void* take(uint64_t size_bytes, const char* function);

    void* ptr_ = nullptr;
    uint64_t size_bytes_ = 0;
};

}  // namespace qmp
