// Products of magnitudes held as arrays of W words (W = uint32_t or uint64_t), for the number
// types. mul_words(): C[0, AL + BL) = A * B; sqr_words(): C[0, 2 AL) = A^2; AL, BL >= 1; C must
// not overlap A or B. The table routes 64-bit-word products; a 32-bit-word operand is read as
// the same bytes taken as 64-bit words. An odd length (or a pointer that is not 8-byte
// aligned) is first copied into the scratch with a zero word on top, and a product whose
// 64-bit length does not fit C exactly is formed in the scratch and copied out.
// Scratch: an AlignedBufferC of at least mul_words_scratch_bytes() / sqr_words_scratch_bytes();
// a shorter one throws qmp::BufferTooSmallException naming the caller's `function`.
// mul_words_basecase() is the schoolbook product on W words: no table and no scratch.
#pragma once

#include <cstdint>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"

namespace qmp {

class Parallelizer;

template <typename W>
uint64_t mul_words_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL);
template <typename W>
uint64_t sqr_words_scratch_bytes(const AlgorithmTableB& table, uint64_t AL);

template <typename W>
void mul_words(const AlgorithmTableB& table, W* C, const W* A, uint64_t AL, const W* B, uint64_t BL,
               AlignedBufferC scratch, Parallelizer* parallelizer, uint64_t tds, const char* function);
template <typename W>
void sqr_words(const AlgorithmTableB& table, W* C, const W* A, uint64_t AL, AlignedBufferC scratch,
               Parallelizer* parallelizer, uint64_t tds, const char* function);

// C[0, AL + BL) = A * B by rows of addmul_1; AL, BL >= 1, C disjoint from A and B.
template <typename W>
void mul_words_basecase(W* C, const W* A, uint64_t AL, const W* B, uint64_t BL);

}  // namespace qmp
