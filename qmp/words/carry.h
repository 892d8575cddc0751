// Carry propagation into word arrays: one carry into a block (add_carry), many carries at
// increasing offsets into one array (bp_add_multi_carry), the carries that come out of blocks
// added independently (bp_add_carry_blocks), and adding one with a parallel search for the
// end of the carry (bp_increment). The bp_ forms split the work over a Parallelizer; a null
// parallelizer or tds < 2 runs on the calling thread. Preconditions are checked before any word
// changes and throw qmp::InvalidParametersException naming the routine, e.g. "add_carry()".
#pragma once

#include <cstdint>

namespace qmp {

class Parallelizer;

// One pending carry of bp_add_multi_carry(): `carry` is added at word `offset`.
template <typename W>
struct CarryInfo {
    uint64_t offset;
    W carry;
};

// T[0, L) += carry, propagated upward. The carry must settle inside the block, else
// "Block is too small: Required = R, Actual = L." with R the words the carry would touch.
template <typename W>
void add_carry(W* T, uint64_t L, W carry);

// T[0, L) += sum of carries[i].carry * 2^(w * carries[i].offset); returns the carry out of the
// top. Offsets must be below L ("CarryInfo has invalid offset.") and strictly increasing
// ("CarryInfo offsets are not increasing.").
template <typename W>
W bp_add_multi_carry(W* T, uint64_t L, const CarryInfo<W>* carries, uint64_t count,
                     Parallelizer* parallelizer, uint64_t tds);

// T[0, L) holds `blocks` blocks added independently: block i is [offsets[i], offsets[i+1]),
// the last one ends at L, and carries[i] came out of the top of block i. Adds every carry but
// the last into the start of the block above it and returns the carry out of T's top plus
// carries[blocks - 1] (a sum that must fit a word; carries of additions are 0 or 1). The
// sequence offsets[0], ..., offsets[blocks - 1], L must be strictly increasing, else
// "Block offsets are not increasing.".
template <typename W>
W bp_add_carry_blocks(W* T, uint64_t L, const uint64_t* offsets, const W* carries,
                      uint64_t blocks, Parallelizer* parallelizer, uint64_t tds);

// T[0, L) += 1; returns the carry out (0 or 1). The words of T are scanned for the first word
// that is not all ones in pieces of `granularity_words` words, in parallel; then the words
// below it are cleared and it is incremented.
template <typename W>
W bp_increment(W* T, uint64_t L, Parallelizer* parallelizer, uint64_t tds, uint64_t granularity_words);

}  // namespace qmp
