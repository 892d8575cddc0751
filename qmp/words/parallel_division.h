// Division of a word array by one word, cut into blocks that run as parallel tasks. Each
// block's incoming remainder is predicted beforehand from the block residues and powers of the
// base modulo d; after the blocks ran, each block's outgoing remainder must equal the one
// predicted for the block below, else qmp::AlgorithmFailedException "Mismatching block
// residuals." (a hardware or logic fault, never an input error). Preconditions throw
// qmp::InvalidParametersException: r >= d "Top word is too large.", TL < AL "TL < AL", naming
// "bp_div_ex()" or "bp_div_np()". No allocation; per-block state lives on the stack.
#pragma once

#include <cstdint>

#include "qmp/words/shoup_divider.h"

namespace qmp {

class Parallelizer;

// T[0, L) = floor(r * 2^(wL) / d), the expansion of r/d; returns the final remainder.
template <typename W>
W bp_div_ex(W* T, uint64_t L, const ShoupDivider<W>& divider, W r, Parallelizer* parallelizer, uint64_t tds);

// T[0, L) = (r * 2^(wL) + A[0, L)) / d; returns the remainder. T may equal A.
template <typename W>
W bp_div_np(W* T, const W* A, uint64_t L, const ShoupDivider<W>& divider, W r, Parallelizer* parallelizer,
            uint64_t tds);

// The same with a longer output: T[0, TL) = floor((r * 2^(w AL) + A[0, AL)) * 2^(w (TL - AL)) / d),
// i.e. A divided into the top AL words of T and the remainder expanded into the TL - AL words
// below. T and A are disjoint, or A == T + (TL - AL) (in place).
template <typename W>
W bp_div_np(W* T, uint64_t TL, const W* A, uint64_t AL, const ShoupDivider<W>& divider, W r,
            Parallelizer* parallelizer, uint64_t tds);

// The block layout of the parallel division of L words with tds tasks: 0 blocks means the
// sequential loop; otherwise `blocks` blocks of `block_words` words, the top one shorter.
struct DivisionBlocks {
    uint64_t blocks;
    uint64_t block_words;
};
DivisionBlocks division_blocks(uint64_t L, uint64_t tds);

// Test seam for the block self-check: when set, every block task calls the hook with its block
// index and its incoming remainder before dividing, and the hook may change the remainder to
// model a fault. Process-wide; nullptr (the default) clears it. Not for production use.
using DivisionBlockHook = void (*)(uint64_t block, uint64_t& incoming_remainder);
void set_division_block_hook(DivisionBlockHook hook);

}  // namespace qmp
