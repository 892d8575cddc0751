// The vector kernels of the transform, one set per instruction-set level, all computing the same
// butterflies on 128-byte blocks (they differ in vector width only, so products agree exactly
// after rounding; intermediate doubles may differ in the last bits where FMA is used).
//   reduce_*:   the reduction levels (radix-m with its twist, or up to two radix-2 levels) over
//               block index i, across the w sub-transforms; inverse also scales by 1/n.
//   *_vertical: 2^levels elements of `width` consecutive blocks at a pitch, the levels whose
//               halves are whole blocks; twiddle of relative depth D, group g is
//               tw[2^(depth0+D) + node*2^D + g] (StraightTable), shared by the whole element.
//   *_inblock:  the three levels inside each block, twiddles from InterleavedTable records;
//               the _factored forms take each record as sigma[b] * rho lane by lane (rows of a
//               four-step grid: a shared 128-record table times one record per row), so rows do
//               not stream a table as large as the data.
// Kernels never allocate and never throw; pointers are 128-byte aligned blocks.
#pragma once

#include <cstdint>

#include "qmp/multiply/fft/transform.h"
#include "qmp/multiply/fft/twiddle_tables.h"

namespace qmp::fft {

struct ReductionConstants {
    int m = 1;
    int depth = 1;                // d; m = 1 has d - 1 radix-2 levels
    int w = 1;                    // sub-transforms
    uint64_t sub_blocks = 0;      // B = L / 8 logical blocks per sub-transform
    uint64_t sub_pitch = 0;       // physical blocks per sub-transform in the work area
    Cplx level_tw[4] = {};        // m = 1: s(D, g) of the reduction tree at index 2^D + g
    Cplx twist[7] = {};           // m > 1: exp(2 pi i r / (4m)), r < m
    Cplx inv_twist[7] = {};       // m > 1: conj(twist[r]) / n
    double cos_qr[7][7] = {};     // m > 1: cos(2 pi qr / m)
    double sin_qr[7][7] = {};     // m > 1: sin(2 pi qr / m)
    double inv_n = 1.0;           // 1/n
    bool out_padded = false;      // inverse writes out[j*pitch + padded_block(i)]: in place over work
};

// Physical block of logical block i of a sub-transform: one padding block per 128.
inline uint64_t padded_block(uint64_t i) { return i + (i >> 7); }

struct KernelSet {
    const char* name;
    // Block indices i = i0 + c*step, c < count. Forward reads in[j*B + i], writes
    // work[j*pitch + padded_block(i)]; inverse the other way round (or, with rc.out_padded, back
    // to the same padded positions, so that out may be work itself).
    void (*reduce_forward)(const ReductionConstants& rc, const Block* in, Block* work, uint64_t i0,
                           uint64_t count, uint64_t step);
    void (*reduce_inverse)(const ReductionConstants& rc, const Block* work, Block* out,
                           uint64_t i0, uint64_t count, uint64_t step);
    void (*dif_vertical)(Block* base, uint64_t pitch, int levels, uint64_t width, const Cplx* tw,
                         int depth0, uint64_t node);
    void (*dit_vertical)(Block* base, uint64_t pitch, int levels, uint64_t width, const Cplx* tw,
                         int depth0, uint64_t node);
    void (*dif_inblock)(Block* blocks, uint64_t count, const Block* records);
    void (*dit_inblock)(Block* blocks, uint64_t count, const Block* records);
    void (*dif_inblock_factored)(Block* blocks, uint64_t count, const Block* sigma, const Block* rho);
    void (*dit_inblock_factored)(Block* blocks, uint64_t count, const Block* sigma, const Block* rho);
    void (*multiply)(Block* a, const Block* b, uint64_t count);
    void (*square)(Block* a, uint64_t count);
};

const KernelSet& portable_kernels();
const KernelSet& avx2_kernels();
const KernelSet& avx512_kernels();
// The set for active_simd_level() (QMP_SIMD or force_simd_level() lower it).
const KernelSet& active_kernels();

}  // namespace qmp::fft
