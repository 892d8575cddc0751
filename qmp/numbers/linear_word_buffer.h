// LinearWordBuffer<W>: a caller-owned array of words from which consecutive pieces are cut off
// the bottom, in order, for the working variables of an operation. It never owns memory and
// never gives a piece back. A request larger than what is left throws
// qmp::BufferTooSmallException naming "LinearWordBuffer::cut_from_bottom()" with the words left
// and the words asked for.
#pragma once

#include <cstdint>

#include "qmp/exception.h"

namespace qmp {

template <typename W>
class LinearWordBuffer {
public:
    LinearWordBuffer() = default;
    LinearWordBuffer(W* words, uint64_t n_words) : ptr_(words), n_words_(n_words) {}

    W* data() const noexcept { return ptr_; }
    uint64_t remaining_words() const noexcept { return n_words_; }

    W* cut_from_bottom(uint64_t n_words) {
        if (n_words > n_words_)
            throw BufferTooSmallException("LinearWordBuffer::cut_from_bottom()", n_words_, n_words);
        W* piece = ptr_;
        ptr_ += n_words;
        n_words_ -= n_words;
        return piece;
    }

private:
    W* ptr_ = nullptr;
    uint64_t n_words_ = 0;
};

}  // namespace qmp
