// The measured bits-per-point limits of the right-angle FFT product, per transform size and
// digit mode. A row gives, for M = 2^r real points, the largest digit width b at which the
// worst of the measured input classes kept the maximum distance of any output coefficient to its
// nearest integer at or below 1/8, i.e. at least one bit per point (4x in error) below failure.
#include "qmp/multiply/fft/limit_table.h"

#include "qmp/exception.h"

#include <array>

namespace qmp::fft {
namespace {

// How the table was obtained. First the harness of the design notes computed the exact
// right-angle transform in scalar double (radix-m DIF first level, radix-2 levels, twiddles
// rounded once from long double), multiplied operands of M/2 digits each and reported max
// |x - rint(x)| over all coefficients and trials, with an exactness check of the rounded
// product modulo 2^61-1:
//     g++ -O2 -march=x86-64-v3 -ffp-contract=off fft_error.cpp -o fft_error
//     python3 sweep.py ./fft_error results_m1.tsv 10 26 1
// Input classes: random balanced; random and all-max unsigned; constant, alternating and
// period-4 max-magnitude balanced digits (the integers 0x8000 8000..., 0xAAAA...); max-magnitude
// random signs; balanced constants just below the carry threshold. Each class is multiplied and
// squared; a column takes the worst (class, operation) pair.
// Then every column was re-measured on this implementation's own kernels, whole products
// through FFTv4::Test_Multiply() at b and b + 1 for the worst-pattern and random operands:
//     [QMP_SIMD=...] build/fft_precision MAX_LOG2 [default|balanced|unsigned] [MIN_LOG2]
// (AMD Zen 5, AVX-512 path, 2026-11-22). Largest distance at the table's b, worst of mul/sqr
// and of the two input classes:
//   log2 M     10    11    12    13    14    15    16    17    18    19    20    21    22    23
//   dithered .031  .063  .021  .038  .055  .070  .027  .043  .078  .025  .039  .055  .086  .031
//   balanced .063  .031  .109  .047  .117  .078  .023  .070  .031  .055  .035  .070  .063  .102
//   unsigned .063  .055  (18)  .039  .063  .063  .020  .063  .031  .055  .039  .086  .063
// dithered 2^24: .047, 2^25: .065, 2^26: .094. The AVX2 and portable kernels (QMP_SIMD),
// measured to 2^20, stay within 1/8 at the same b except the portable path at unsigned 2^12
// (.141 at 18 bits, so that row is 17: the table holds for every kernel path). The portable
// kernels of an unoptimised build (no FMA contraction, -O0) gave .141 on structured 2^14 at 18
// bits, so that row is 17 as well (`QMP_SIMD=portable fft_precision 18 balanced` in the
// sanitizer build; every other row to 2^18 stayed within 1/8 in all three modes). The first measurement found balanced rows 11, 16, 18, 20,
// 22, 24 and unsigned rows 16, 18, 20, 22 at .14 - .22 with one bit more; they were lowered
// (one bit is a factor 4 in the error). The dithered column holds everywhere measured; b + 1
// gives .078 - .31 here, but the harness's wider set of classes is what set those rows, so
// they are not raised on the strength of two classes. In the balanced and unsigned
// columns the constant worst pattern's error doubles with M, so one width holds for two rows
// at most; their rows beyond the measured ones follow that rule.
//   dithered:   balanced digits with the dithered carry, worst class. The default.
//   structured: plain balanced digits, worst class (structured inputs are ~5 bits worse than
//               random ones at 2^23: random-input tables are unsafe and are not kept).
//   unsigned:   unsigned digits, all-max input (the mean of unsigned digits is a DC peak).
// Dithered rows 25 and 26 were measured by the harness; rows 27 and 28 on the built product
// (`fft_precision 28 default 27`, AVX-512, 13.5 min, 9 GiB): at b = 16 the worst distance was
// .039 at 2^27 and .055 at 2^28 (b + 1: .133 and .219), every product exact by its residue.
// Rows 29 and 30 stay disabled until measured (a run at 2^29 would take about 18 GiB, twice the
// 2^28 run, and was not made).
struct Row {
    uint8_t dithered;
    uint8_t structured;
    uint8_t unsigned_max;
};

// Indexed by log2(M) - kLimitMinLog2Points.
constexpr std::array<Row, kLimitMaxLog2Points - kLimitMinLog2Points + 1> kRows = {{
    {21, 20, 19},  // 2^10
    {21, 19, 18},  // 2^11
    {20, 19, 17},  // 2^12 (unsigned: 18 gave .141 on the portable kernels)
    {20, 18, 17},  // 2^13
    {20, 17, 17},  // 2^14 (structured: 18 gave .141 on the portable kernels without FMA contraction)
    {20, 17, 16},  // 2^15
    {19, 16, 15},  // 2^16
    {19, 16, 15},  // 2^17
    {19, 15, 14},  // 2^18
    {18, 15, 14},  // 2^19
    {18, 14, 13},  // 2^20
    {18, 14, 13},  // 2^21
    {18, 13, 12},  // 2^22
    {17, 13, 12},  // 2^23 (unsigned from the doubling rule)
    {17, 12, 11},  // 2^24 (structured: measured at 13, lowered; unsigned from the doubling rule)
    {17, 12, 11},  // 2^25 (structured and unsigned from the doubling rule)
    {17, 11, 10},  // 2^26 (structured and unsigned from the doubling rule)
    {16, 11, 10},  // 2^27 (structured and unsigned from the doubling rule)
    {16, 10, 9},   // 2^28 (dithered measured; structured and unsigned from the doubling rule)
}};

}  // namespace

const char* digit_mode_name(DigitMode mode) {
    switch (mode) {
        case DigitMode::Dithered: return "dithered";
        case DigitMode::Balanced: return "balanced";
        case DigitMode::Unsigned: return "unsigned";
    }
    return "invalid";
}

int ceil_log2_points(int m, int k) {
    // log2(3) = 1.58, log2(5) = 2.32, log2(7) = 2.81: all round up to k + 2 or k + 3.
    switch (m) {
        case 1: return k;
        case 3: return k + 2;
        case 5: return k + 3;
        case 7: return k + 3;
    }
    throw InvalidParametersException("FFTv4::get_reduction()", "Invalid multiplier.");
}

int bits_per_point(int m, int k, DigitMode mode) {
    int r = ceil_log2_points(m, k);
    if (r > kLimitMaxLog2Points) return 0;
    if (r < kLimitMinLog2Points) r = kLimitMinLog2Points;
    const Row& row = kRows[r - kLimitMinLog2Points];
    switch (mode) {
        case DigitMode::Dithered: return row.dithered;
        case DigitMode::Balanced: return row.structured;
        case DigitMode::Unsigned: return row.unsigned_max;
    }
    return 0;
}

uint16_t encode_cbitlen(int m, int k, int bits) {
    return static_cast<uint16_t>((bits * m) | (k << 10));
}

uint64_t decode_cbitlen(uint16_t entry) {
    return static_cast<uint64_t>(entry & 1023) << (entry >> 10);
}

std::vector<uint16_t> cbitlen_entries(int m, DigitMode mode, int k_first, int k_last) {
    std::vector<uint16_t> entries;
    for (int k = k_first; k <= k_last; ++k) {
        const int bits = bits_per_point(m, k, mode);
        if (bits == 0) break;
        entries.push_back(encode_cbitlen(m, k, bits));
    }
    return entries;
}

}  // namespace qmp::fft
