// Twiddle tables, built once per transform and immutable afterwards. Accuracy: every entry is a
// product of at most three long-double values, each computed from an exact fraction with its
// argument reduced to [0, pi/4]; long double carries 11 more bits than double, so the rounded
// entries are within ~0.5 ulp (a naive cos(2*pi*t/N) in double roughly doubles the rounding
// error of the whole product; recurrences are worse still). Debug builds re-check every entry
// against the direct formula.
#include "qmp/multiply/fft/twiddle_tables.h"

#include "qmp/exception.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

namespace qmp::fft {
namespace {

constexpr long double kQuarterPi = 0.785398163397448309615660845819875721L;

[[noreturn]] void throw_too_deep(const char* function, int k, uint64_t vindex) {
    throw InvalidParametersException(function, "Twiddle factor is too deep for this table.\n    k = " +
                                                   std::to_string(k) + "\n    vindex = " +
                                                   std::to_string(vindex));
}

Cplx round_root(std::complex<long double> z) {
    return Cplx{static_cast<double>(z.real()), static_cast<double>(z.imag())};
}

// Debug-only: the entry must match the direct formula within one ulp.
void verify_entry([[maybe_unused]] RootFraction root, [[maybe_unused]] int depth,
                  [[maybe_unused]] uint64_t group, [[maybe_unused]] Cplx value) {
#ifndef NDEBUG
    const Cplx ref = unit_root_rounded(root.p + root.q * bit_reverse(group, depth),
                                       root.q << (depth + 1));
    const double ulp = std::ldexp(1.0, -52);
    if (std::fabs(ref.re - value.re) > ulp || std::fabs(ref.im - value.im) > ulp) {
        throw AlgorithmFailedException("FFTv4::verify_twiddles()",
                                       "Twiddle table entry differs from the direct formula.");
    }
#endif
}

}  // namespace

uint64_t bit_reverse(uint64_t value, int bits) {
    uint64_t r = 0;
    for (int b = 0; b < bits; ++b) r |= ((value >> b) & 1) << (bits - 1 - b);
    return r;
}

std::complex<long double> unit_root(uint64_t num, uint64_t den) {
    num %= den;
    // Octant o of the angle 2*pi*num/den and the exact remainder, in integers.
    const unsigned __int128 x8 = static_cast<unsigned __int128>(num) * 8;
    const uint64_t octant = static_cast<uint64_t>(x8 / den);
    const uint64_t rem = static_cast<uint64_t>(x8 % den);
    long double c, s;
    uint64_t quarter;
    if ((octant & 1) == 0) {
        const long double phi = static_cast<long double>(rem) / den * kQuarterPi;
        c = cosl(phi);
        s = sinl(phi);
        quarter = octant / 2;
    } else {
        // Measure from the next multiple of pi/2 so the reduced angle stays in [0, pi/4].
        const uint64_t back = den - rem;
        const long double psi = static_cast<long double>(back) / den * kQuarterPi;
        c = cosl(psi);
        s = -sinl(psi);
        quarter = (octant + 1) / 2;
    }
    switch (quarter & 3) {
        case 0: return {c, s};
        case 1: return {-s, c};
        case 2: return {-c, -s};
        default: return {s, -c};
    }
}

Cplx unit_root_rounded(uint64_t num, uint64_t den) { return round_root(unit_root(num, den)); }

LevelRoots::LevelRoots(RootFraction root, int max_depth)
    : root_(root), max_bits_(max_depth + 1), low_bits_((max_depth + 2) / 2) {
    const uint64_t full = uint64_t(1) << max_bits_;
    low_.resize(uint64_t(1) << low_bits_);
    high_.resize(uint64_t(1) << (max_bits_ - low_bits_));
    for (uint64_t i = 0; i < low_.size(); ++i) low_[i] = unit_root(i, full);
    for (uint64_t i = 0; i < high_.size(); ++i) high_[i] = unit_root(i << low_bits_, full);
    level_offset_.resize(max_bits_);
    for (int d = 0; d < max_bits_; ++d) level_offset_[d] = unit_root(root.p, root.q << (d + 1));
}

std::complex<long double> LevelRoots::operator()(int depth, uint64_t group) const {
    // s(D, g) = exp(2 pi i p / (q 2^(D+1))) * exp(2 pi i r / 2^(D+1)), r = bitrev_D(g).
    const uint64_t r = bit_reverse(group, depth) << (max_bits_ - depth - 1);
    const uint64_t low_mask = (uint64_t(1) << low_bits_) - 1;
    return level_offset_[depth] * (high_[r >> low_bits_] * low_[r & low_mask]);
}

StraightTable::StraightTable(RootFraction root, int levels) : levels_(levels) {
    if (levels < 3) throw InvalidParametersException("FFTv4::StraightTable()", "Table is below minimum size.");
    entries_.assign(uint64_t(1) << levels, Cplx{0.0, 0.0});
    const LevelRoots roots(root, levels - 1);
    for (int d = 0; d < levels; ++d) {
        for (uint64_t g = 0; g < (uint64_t(1) << d); ++g) {
            const Cplx v = round_root(roots(d, g));
            verify_entry(root, d, g, v);
            entries_[(uint64_t(1) << d) + g] = v;
        }
    }
}

Cplx StraightTable::twiddle(int k, uint64_t vindex) const {
    if (k < 0 || k >= levels_ || vindex >= (uint64_t(1) << k))
        throw_too_deep("FFTv4::StraightTable::twiddle()", k, vindex);
    return entries_[(uint64_t(1) << k) + vindex];
}

void StraightTable::perturb(int k, uint64_t vindex, double delta) {
    twiddle(k, vindex);  // range check
    entries_[(uint64_t(1) << k) + vindex].re += delta;
}

InterleavedTable::InterleavedTable(RootFraction root, int block_levels)
    : block_levels_(block_levels), records_(nullptr) {
    if (block_levels < 3)
        throw InvalidParametersException("FFTv4::InterleavedTable()", "Table is below minimum size.");
    const uint64_t count = uint64_t(1) << block_levels;
    records_ = static_cast<Block*>(std::aligned_alloc(128, count * sizeof(Block)));
    if (records_ == nullptr)
        throw MemoryAllocationFailedException("FFTv4::InterleavedTable()", "Unable to allocate memory.");
    std::memset(records_, 0, count * sizeof(Block));
    const LevelRoots roots(root, block_levels + 2);
    const int d0 = block_levels;
    for (uint64_t b = 0; b < count; ++b) {
        const struct { int depth; uint64_t group; } slots[7] = {
            {d0, b}, {d0 + 1, 2 * b}, {d0 + 1, 2 * b + 1}, {d0 + 2, 4 * b},
            {d0 + 2, 4 * b + 1}, {d0 + 2, 4 * b + 2}, {d0 + 2, 4 * b + 3}};
        for (int s = 0; s < 7; ++s) {
            const Cplx v = round_root(roots(slots[s].depth, slots[s].group));
            verify_entry(root, slots[s].depth, slots[s].group, v);
            records_[b].re[s] = v.re;
            records_[b].im[s] = v.im;
        }
    }
}

InterleavedTable::~InterleavedTable() { std::free(records_); }

InterleavedTable::InterleavedTable(InterleavedTable&& other) noexcept
    : block_levels_(other.block_levels_), records_(other.records_) {
    other.records_ = nullptr;
}

namespace {
// Record slot of s(k, vindex) for a table whose in-block levels start at depth d0.
int record_slot(int k, uint64_t vindex, int d0) {
    const int rel = k - d0;
    return (1 << rel) - 1 + static_cast<int>(vindex & ((uint64_t(1) << rel) - 1));
}
}  // namespace

Cplx InterleavedTable::twiddle(int k, uint64_t vindex) const {
    if (k < block_levels_ || k >= block_levels_ + 3 || vindex >= (uint64_t(1) << k))
        throw_too_deep("FFTv4::InterleavedTable::twiddle()", k, vindex);
    const Block& r = records_[vindex >> (k - block_levels_)];
    const int slot = record_slot(k, vindex, block_levels_);
    return Cplx{r.re[slot], r.im[slot]};
}

void InterleavedTable::perturb(int k, uint64_t vindex, double delta) {
    twiddle(k, vindex);  // range check
    records_[vindex >> (k - block_levels_)].re[record_slot(k, vindex, block_levels_)] += delta;
}

}  // namespace qmp::fft
