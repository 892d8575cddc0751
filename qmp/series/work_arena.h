// WorkArena: the stack-like scratch of one binary-splitting frame. A copy is a nested frame:
// what a callee takes never moves the caller's arena, so the two halves of a split, the merge
// temporaries and the product scratch are carved in order and given back on return.
// The same recursion runs in two modes: counting (planning: nothing is written, the arena only
// records the peak number of bytes taken) and running (pieces are cut from the caller's
// AlignedBufferC, which throws BufferTooSmallException naming "AlignedBufferC::spawn_words()"
// when the plan was wrong: the audit of every memory bound).
#pragma once

#include <cstdint>
#include <memory>

#include "qmp/numbers/aligned_buffer.h"

namespace qmp::BinarySplitting {

class WorkArena {
public:
    // A counting arena; peak() reports the largest number of bytes in use at once.
    static WorkArena counting() {
        WorkArena a;
        a.peak_ = std::make_shared<uint64_t>(0);
        return a;
    }
    explicit WorkArena(AlignedBufferC buffer) : buffer_(buffer) {}

    bool is_counting() const noexcept { return peak_ != nullptr; }
    uint64_t peak() const noexcept { return peak_ ? *peak_ : 0; }
    uint64_t used_bytes() const noexcept { return used_; }
    uint64_t remaining_bytes() const noexcept { return buffer_.size_bytes(); }

    // n words (rounded up to 128 bytes); null in counting mode.
    uint64_t* take_words(uint64_t n_words) {
        const uint64_t bytes = AlignedBufferC::round_up(n_words * 8);
        if (is_counting()) {
            note(bytes);
            return nullptr;
        }
        used_ += bytes;
        return buffer_.spawn_words<uint64_t>(n_words).words<uint64_t>();
    }
    // Everything left, as product scratch; in counting mode `need_bytes` is recorded.
    AlignedBufferC scratch(uint64_t need_bytes) {
        note_transient(AlignedBufferC::round_up(need_bytes));
        return buffer_;
    }
    // Cuts a frame of `bytes` off the bottom for a parallel task; this keeps the rest.
    // Running mode only (a planner sizes parallel halves with fresh counting arenas).
    WorkArena split_off(uint64_t bytes) {
        WorkArena child(buffer_.spawn(AlignedBufferC::round_up(bytes)));
        used_ += AlignedBufferC::round_up(bytes);
        return child;
    }
    // Counting mode: records `bytes` in use on top of this frame without keeping them.
    void note_transient(uint64_t bytes) {
        if (is_counting() && used_ + bytes > *peak_) *peak_ = used_ + bytes;
    }

private:
    WorkArena() = default;
    void note(uint64_t bytes) {
        used_ += bytes;
        if (used_ > *peak_) *peak_ = used_;
    }

    AlignedBufferC buffer_;
    uint64_t used_ = 0;
    std::shared_ptr<uint64_t> peak_;
};

}  // namespace qmp::BinarySplitting
