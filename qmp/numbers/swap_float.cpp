// SwapFloat<W>: placement checks, and word transfers between memory and the far-memory region.
// Word i of the number sits at offset_bytes + i * sizeof(W); stores and loads copy the words'
// bytes unchanged, so a number written at one width reads back only at the same width.
// Loads run from the top piece down: callers that keep the top p words read nothing below them.
#include "qmp/numbers/swap_float.h"

#include <algorithm>
#include <limits>

#include "qmp/exception.h"
#include "qmp/farmemory/far_memory.h"

namespace qmp {

namespace {

// True unless [offset, offset + n_words * word_bytes) lies within the object (overflow-safe).
bool region_outside(const FarMemory& memory, uint64_t offset, uint64_t n_words, uint64_t word_bytes) {
    if (offset > memory.size_bytes()) return true;
    return n_words > (memory.size_bytes() - offset) / word_bytes;
}

}  // namespace

template <typename W>
SwapFloat<W>::SwapFloat(FarMemory& memory, uint64_t offset_bytes, uint64_t capacity_words)
    : memory_(&memory), offset_bytes_(offset_bytes), capacity_words_(capacity_words) {
    if (region_outside(memory, offset_bytes, capacity_words, sizeof(W))) {
        // The length saturates where the byte count would overflow; the report stays readable.
        const uint64_t length = capacity_words > std::numeric_limits<uint64_t>::max() / sizeof(W)
                                    ? std::numeric_limits<uint64_t>::max()
                                    : capacity_words * sizeof(W);
        throw FarMemoryOutOfBoundsException("SwapFloat::SwapFloat()", memory.name(), offset_bytes, length,
                                            memory.size_bytes());
    }
}

template <typename W>
SwapFloat<W>::SwapFloat(FarMemory& memory, uint64_t offset_bytes, uint64_t capacity_words, uint64_t L, int64_t exp,
                        bool sign)
    : SwapFloat(memory, offset_bytes, capacity_words) {
    if (L > capacity_words) throw BufferTooSmallException("SwapFloat::SwapFloat()", capacity_words, L);
    L_ = L;
    exp_ = L == 0 ? 0 : exp;
    sign_ = L == 0 ? true : sign;
}

template <typename W>
void SwapFloat<W>::store_from(const BigFloat<W>& x) {
    const char* function = "SwapFloat::store_from()";
    if (x.L > capacity_words_) throw BufferTooSmallException(function, capacity_words_, x.L);
    constexpr uint64_t piece_words = piece_bytes / sizeof(W);
    for (uint64_t i = 0; i < x.L; i += piece_words)
        memory_->store(x.T + i, offset_bytes_ + i * sizeof(W), std::min(piece_words, x.L - i) * sizeof(W));
    L_ = x.L;
    exp_ = x.L == 0 ? 0 : x.exp;
    sign_ = x.L == 0 ? true : x.sign;
}

template <typename W>
void SwapFloat<W>::load_words(W* out, uint64_t index, uint64_t n_words) const {
    if (index > L_ || n_words > L_ - index)
        throw InvalidParametersException("SwapFloat::load_words()", "Range is past the end of the number.");
    constexpr uint64_t piece_words = piece_bytes / sizeof(W);
    for (uint64_t end = n_words; end > 0;) {
        const uint64_t n = std::min(end, piece_words);
        end -= n;
        memory_->load(out + end, offset_bytes_ + (index + end) * sizeof(W), n * sizeof(W));
    }
}

template class SwapFloat<uint32_t>;
template class SwapFloat<uint64_t>;

}  // namespace qmp
