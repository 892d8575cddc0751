// Word-array routines on arrays in far memory, streamed through a caller-supplied work buffer
// in chunks. A far array is a FarMemory object, a byte offset and a length in words; the
// buffer's capacity in words is its byte size divided by the word size. A buffer too small for
// one word (or for the piece a routine must hold at once) throws qmp::BufferTooSmallException
// with the byte sizes, before any far word changes. Exceptions name the routine, e.g.
// "fm_add_ir()". In-buffer work runs on ctx.parallelizer with ctx.tds tasks (null: sequential).
#pragma once

#include <cstdint>

#include "qmp/words/shoup_divider.h"

namespace qmp {

class FarMemory;
class Parallelizer;

struct FarWorkContext {
    void* buffer = nullptr;  // at least word-aligned; contents are scratch
    uint64_t buffer_bytes = 0;
    Parallelizer* parallelizer = nullptr;
    uint64_t tds = 1;
};

// T[0, TL) += A[0, AL) + carry_in; returns the carry out of the top. AL <= TL, else
// "T is smaller than A."; the buffer must hold max(AL, 1) words. The words above AL are read
// only while a carry remains, in chunks of 64 words doubling up to the buffer's capacity.
template <typename W>
W fm_add_ir(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t TL, const W* A, uint64_t AL,
            W carry_in);

// T[0, TL) += carry, propagated with the same growing chunks; returns the carry out.
template <typename W>
W fm_add_carry_t(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t TL, W carry);

// The far counterpart of bp_add_carry_blocks(): T[0, L) holds blocks added independently,
// block i starting at word offsets[i] with carries[i] out of its top; adds each carry into the
// block above and returns the carry out of T plus carries[blocks - 1]. L = 0 throws
// "Length cannot be zero."; offsets, L not strictly increasing "Block offsets are not increasing.".
template <typename W>
W fm_ksr_carry_t(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, const uint64_t* offsets,
                 const W* carries, uint64_t blocks);

// Far forms of bp_div_ex() and both bp_div_np(); chunks run from the top down, each divided in
// the buffer in parallel with the block self-check. T and A may be the same far range, and in
// the (TL, AL) form T may also start above A in the same object (T + TL - AL == A in place).
template <typename W>
W fm_div_ex(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, const ShoupDivider<W>& divider,
            W r);
template <typename W>
W fm_div_np(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, FarMemory& A, uint64_t a_offset, uint64_t L,
            const ShoupDivider<W>& divider, W r);
template <typename W>
W fm_div_np(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t TL, FarMemory& A, uint64_t a_offset,
            uint64_t AL, const ShoupDivider<W>& divider, W r);

template <typename W>
void fm_setzero(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L);
template <typename W>
void fm_fill(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, W x);
// Copies L words; T and A may be the same object with overlapping ranges in either direction.
template <typename W>
void fm_copy(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, FarMemory& A, uint64_t a_offset, uint64_t L);

// The length of T[0, L) without its top words equal to `value`.
template <typename W>
uint64_t fm_strip_leading(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L, W value);

// The value of T[0, L) as an integer modulo 2^61 - 1 (the same number as mod_m61() of the
// array in memory; it depends on the bytes only, not on the word width).
template <typename W>
uint64_t fm_hash(const FarWorkContext& ctx, FarMemory& T, uint64_t t_offset, uint64_t L);

}  // namespace qmp
