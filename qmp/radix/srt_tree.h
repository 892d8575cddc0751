// SRTv2: the scaled remainder tree that turns a fraction f in [0, 1) into n words of base
// B = 10^19, out[0] the most significant (the first 19 digits after the point).
//
//   node(r, n):  r = f * B^offset mod 1 to n + g words (g guard words)
//     n <= block:  convert_block()            words by repeated r *= B
//     else:        m = the block of the highest table level below n
//       left  = node(top m + g words of r, m)            -> out[0, m)
//       right = node(frac(r * B^m), window of n - m + g)  -> out[m, n)
//       fixup: the left half must equal floor(r * B^m), compared modulo 2^64; a difference
//              of one unit is mended by add1() / sub1() through a run of 9s / 0s.
//
// Truncation only lowers a remainder, so a half differs from the exact words by at most one
// unit in its last word; the left halves are made exact by fixup(). Weak spot: the last word of
// the whole output has no right neighbour, so when the exact digits run on in zeros past the
// guard words it may come out one unit low (9s back to the last non-zero digit); writers
// compute words beyond the digits they output. Children of a node run as two parallel tasks in
// convertP(); convertL() is serial. Scratch per node: node_scratch_bytes().
#pragma once

#include <cstdint>

#include "qmp/numbers/aligned_buffer.h"
#include "qmp/radix/remainder_float.h"

namespace qmp {

class Parallelizer;
class ReadyTableB;

namespace SRTv2 {

struct TreeContext {
    const ReadyTableB* table = nullptr;
    uint64_t block_words = 0;
    uint64_t guard_words = 0;
    uint64_t parallel_min_words = 0;  // nodes below this size never fork
    Parallelizer* parallelizer = nullptr;
};

// Scratch bytes of a node of n words converted with `tds` tasks.
uint64_t node_scratch_bytes(const TreeContext& context, uint64_t n, uint64_t tds);

// The base case: out[0, n) = the first n words of r (precision n + guard words), exact for r.
// Destroys r's words.
void convert_block(RemainderFloatB r, uint64_t* out, uint64_t n);

void convertL(const TreeContext& context, RemainderFloatB r, uint64_t* out, uint64_t n, AlignedBufferC scratch,
              uint64_t tds);
void convertP(const TreeContext& context, RemainderFloatB r, uint64_t* out, uint64_t n, AlignedBufferC scratch,
              uint64_t tds);

// out[0, m) holds the left half; `expected` is what it must be, read as one integer in base
// 10^19, modulo 2^64 (words_mod_2_64()): one unit off is mended, more is "Overlap Mismatch".
void fixup(uint64_t* out, uint64_t m, uint64_t expected);
uint64_t words_mod_2_64(const uint64_t* out, uint64_t m);
// One unit added to / subtracted from the m-word number out[0, m) (out[m - 1] least
// significant); a carry or borrow out of out[0] is "Impossible carryout.".
void add1(uint64_t* out, uint64_t m);
void sub1(uint64_t* out, uint64_t m);

// How many fix-ups mended a half since start-up (add1, sub1): diagnostics for logs and tests.
uint64_t add1_count();
uint64_t sub1_count();

}  // namespace SRTv2
}  // namespace qmp
