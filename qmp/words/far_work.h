// Internal helpers of the far-memory word routines: the buffer capacity check and word-sized
// loads and stores at a word index of a far array. Not part of the public interface.
#pragma once

#include <cstdint>

#include "qmp/exception.h"
#include "qmp/farmemory/far_memory.h"
#include "qmp/words/far_words.h"

namespace qmp::detail {

// The buffer's capacity in words; throws BufferTooSmallException naming `function` when it is
// below `required_words`.
template <typename W>
uint64_t far_capacity(const FarWorkContext& ctx, const char* function, uint64_t required_words) {
    const uint64_t capacity = ctx.buffer_bytes / sizeof(W);
    if (capacity < required_words) throw BufferTooSmallException(function, ctx.buffer_bytes, required_words * sizeof(W));
    return capacity;
}

template <typename W>
void far_load(FarMemory& far, uint64_t offset, uint64_t index, W* buffer, uint64_t words) {
    far.load(buffer, offset + index * sizeof(W), words * sizeof(W));
}

template <typename W>
void far_store(FarMemory& far, uint64_t offset, uint64_t index, const W* buffer, uint64_t words) {
    far.store(buffer, offset + index * sizeof(W), words * sizeof(W));
}

}  // namespace qmp::detail
