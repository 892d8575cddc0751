// Filling a word array with one value in parallel. T must start on a 64-byte boundary (the
// widest SIMD block and the cache line), else qmp::InvalidParametersException "T is
// misaligned." naming "bp_fill()": the array is cut into pieces whose starts are multiples of
// 64 bytes, so no two tasks ever write the same cache line.
#pragma once

#include <cstdint>

namespace qmp {

class Parallelizer;

inline constexpr uint64_t simd_block_bytes = 64;

template <typename W>
void bp_fill(W* T, uint64_t L, W x, Parallelizer* parallelizer, uint64_t tds);

}  // namespace qmp
