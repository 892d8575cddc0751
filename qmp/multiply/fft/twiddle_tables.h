// Roots of unity for the transforms. A sub-transform whose modulus is T^L - exp(2*pi*i*p/q) is
// split level by level: at depth D the group g (a factor T^(L/2^D) - c) is split by the twiddle
//     s(D, g) = exp(2*pi*i * (p + q*bitrev_D(g)) / (q * 2^(D+1))),
// i.e. (u, v) -> (u + s*v, u - s*v). StraightTable holds s(D, g) for the levels whose halves are
// whole blocks (D < log2(blocks)), at index 2^D + g; InterleavedTable holds, per block, the seven
// twiddles of the three levels inside the block as a 128-byte record re[8], im[8]:
//     { s(D0, b), s(D0+1, 2b), s(D0+1, 2b+1), s(D0+2, 4b) .. s(D0+2, 4b+3), 0 },  D0 = log2(blocks).
// Every entry is computed from its exact fraction in long double (octant reduction; products of
// two small accurate tables, never recurrences) and rounded once. Tables are immutable.
// Throws qmp::InvalidParametersException: "Table is below minimum size." (fewer than 8 blocks)
// and "Twiddle factor is too deep for this table." with the depth and index.
#pragma once

#include <complex>
#include <cstdint>
#include <vector>

#include "qmp/multiply/fft/transform.h"

namespace qmp::fft {

struct Cplx {
    double re;
    double im;
};

// exp(2*pi*i * num/den) in long double, from the exact fraction (any num; den > 0).
std::complex<long double> unit_root(uint64_t num, uint64_t den);
// The same, rounded once to double.
Cplx unit_root_rounded(uint64_t num, uint64_t den);
uint64_t bit_reverse(uint64_t value, int bits);

// Fractions of a full turn, p/q with the sub-transform's modulus T^L - exp(2*pi*i*p/q).
struct RootFraction {
    uint64_t p;
    uint64_t q;
};

class StraightTable {
public:
    // Entries for depths 0 .. levels-1 of a sub-transform of 2^levels blocks.
    StraightTable(RootFraction root, int levels);
    int levels() const { return levels_; }
    // s(D, g) for D = k, g = vindex.
    Cplx twiddle(int k, uint64_t vindex) const;
    const Cplx* data() const { return entries_.data(); }
    uint64_t bytes() const { return entries_.size() * sizeof(Cplx); }
    // Test seam: adds `delta` to the real part of one entry (index 2^k + vindex) of this copy.
    void perturb(int k, uint64_t vindex, double delta);

private:
    int levels_;
    std::vector<Cplx> entries_;  // index 2^D + g; entry 0 unused
};

class InterleavedTable {
public:
    // Records for 2^block_levels blocks of a sub-transform (depths block_levels .. +2).
    InterleavedTable(RootFraction root, int block_levels);
    ~InterleavedTable();
    InterleavedTable(const InterleavedTable&) = delete;
    InterleavedTable& operator=(const InterleavedTable&) = delete;
    InterleavedTable(InterleavedTable&& other) noexcept;

    int block_levels() const { return block_levels_; }
    // s(k, vindex) for block_levels <= k < block_levels + 3.
    Cplx twiddle(int k, uint64_t vindex) const;
    const Block* records() const { return records_; }
    uint64_t bytes() const { return (uint64_t(1) << block_levels_) * sizeof(Block); }
    void perturb(int k, uint64_t vindex, double delta);

private:
    int block_levels_;
    Block* records_;  // 128-byte aligned, 2^block_levels records
};

// Builds the twiddle values s(D, g) for g < 2^D in long double: one accurate root for the level
// offset times one entry of a two-table generator of exp(2*pi*i*r/2^(D+1)).
class LevelRoots {
public:
    LevelRoots(RootFraction root, int max_depth);
    std::complex<long double> operator()(int depth, uint64_t group) const;

private:
    RootFraction root_;
    int max_bits_;  // generator resolution: exp(2*pi*i*r/2^max_bits_)
    int low_bits_;
    std::vector<std::complex<long double>> low_, high_, level_offset_;
};

}  // namespace qmp::fft
