// SwapFloat<W>: a BigFloat<W> whose magnitude lives in far memory. The words occupy a region of
// a FarMemory object: word i (little-endian, in the machine's byte order) at byte
// offset_bytes + i * sizeof(W), and the region holds capacity_words words. Value, L, exp and
// sign mean what they mean in BigFloat: +-sum T[i] * B^(exp + i), L = 0 is zero (then exp = 0,
// sign true), and the top stored word is never zero. The region is checked against the object's
// size at construction (FarMemoryOutOfBoundsException "SwapFloat::SwapFloat()"), so a number
// can never spill into a neighbouring region of the same object. Like BigFloat it is a view:
// copies name the same region, and the far-memory object (owned by the job) must outlive them.
#pragma once

#include <cstdint>
#include <type_traits>

#include "qmp/numbers/big_float.h"

namespace qmp {

class FarMemory;

template <typename W>
class SwapFloat {
    static_assert(std::is_same_v<W, uint32_t> || std::is_same_v<W, uint64_t>);

public:
    // Transfers are split into pieces of at most this many bytes, so that a large number never
    // becomes one request the size of the whole number for the disk lanes to queue.
    static constexpr uint64_t piece_bytes = uint64_t(1) << 20;

    // An empty region (the value zero).
    SwapFloat(FarMemory& memory, uint64_t offset_bytes, uint64_t capacity_words);
    // A number already stored in the region by another far-memory routine. L > capacity_words
    // throws BufferTooSmallException "SwapFloat::SwapFloat()". The words are not read here;
    // the top word is checked when the number is loaded.
    SwapFloat(FarMemory& memory, uint64_t offset_bytes, uint64_t capacity_words, uint64_t L, int64_t exp,
              bool sign);

    FarMemory& memory() const noexcept { return *memory_; }
    uint64_t offset_bytes() const noexcept { return offset_bytes_; }
    uint64_t capacity_words() const noexcept { return capacity_words_; }
    uint64_t L() const noexcept { return L_; }
    int64_t exp() const noexcept { return exp_; }
    bool sign() const noexcept { return sign_; }
    int64_t top() const noexcept { return exp_ + int64_t(L_); }

    // Writes x's words into the region and takes its L, exp and sign. More than capacity_words
    // words throws BufferTooSmallException "SwapFloat::store_from()" before anything is written.
    void store_from(const BigFloat<W>& x);
    // out[0, n_words) = stored words [index, index + n_words), in pieces from the top down. A
    // range past L throws InvalidParametersException "Range is past the end of the number.".
    void load_words(W* out, uint64_t index, uint64_t n_words) const;

private:
    FarMemory* memory_;
    uint64_t offset_bytes_;
    uint64_t capacity_words_;
    uint64_t L_ = 0;
    int64_t exp_ = 0;
    bool sign_ = true;
};

extern template class SwapFloat<uint32_t>;
extern template class SwapFloat<uint64_t>;

}  // namespace qmp
