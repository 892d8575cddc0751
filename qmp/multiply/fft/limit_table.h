// Bits per point of the floating-point FFT product: for a transform of M = m * 2^k real points
// and a digit mode, the largest digit width b (bits) at which every product computed with that
// transform rounds correctly with a margin. The values are measurements (see limit_table.cpp for
// the measured table, the input classes, the margin and the commands); the rows are also
// published as 16-bit "cbitlen" entries (b * M, a 10-bit mantissa b * m and a 6-bit shift k),
// the encoding the algorithm tables use for convolution limits.
#pragma once

#include <cstdint>
#include <vector>

namespace qmp::fft {

// How words are cut into signed points.
//   Dithered: balanced digits whose carry is chosen by a counter-based random threshold, so
//             every digit has mean ~0 whatever the input (the default: no structured worst case).
//   Balanced: digits in [-2^(b-1), 2^(b-1)), carry when the digit reaches 2^(b-1).
//   Unsigned: digits in [0, 2^b), no carries; needs its own, smaller table.
enum class DigitMode : int { Dithered = 0, Balanced = 1, Unsigned = 2 };

const char* digit_mode_name(DigitMode mode);

// Smallest and largest log2(M) with an enabled row. Below the smallest row the smallest row's
// value is used (fewer points only lower the rounding error).
constexpr int kLimitMinLog2Points = 10;
constexpr int kLimitMaxLog2Points = 28;

// Bits per point for m * 2^k real points (m in {1, 3, 5, 7}); 0 when the size is beyond the
// enabled rows. For m = 3, 5, 7 the m = 1 row of ceil(log2(m * 2^k)) is used.
int bits_per_point(int m, int k, DigitMode mode);

// ceil(log2(m * 2^k)) for m in {1, 3, 5, 7}.
int ceil_log2_points(int m, int k);

// Encoded convolution bit-lengths: entry = (b * m) | (k << 10), decoded as (entry & 1023) << (entry >> 10).
uint16_t encode_cbitlen(int m, int k, int bits);
uint64_t decode_cbitlen(uint16_t entry);
// The cbitlen entries of one multiplier for k = k_first .. k_last (every enabled k), increasing.
std::vector<uint16_t> cbitlen_entries(int m, DigitMode mode, int k_first, int k_last);

}  // namespace qmp::fft
