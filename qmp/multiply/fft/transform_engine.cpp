// Pass structure of the transform. Forward: the reduction levels across the w sub-transforms,
// then each sub-transform's levels; inverse mirrors it. Sub-transforms of more than 128 blocks
// are four-step grids of R rows x 128 blocks: a column pass (reduction + the top log2(R) levels,
// one block-column of every sub-transform at a time: w*R blocks, sized to stay in L2) and a row
// pass (the 7 remaining block levels + 3 in-block levels on 16 KiB rows, in L1). Because each
// level of the reduction-tree transform uses one twiddle per group, columns need no separate
// twiddle pass: the row index alone selects the twiddles. A product runs B's column pass, then
// one row pass doing forward rows, the pointwise product and inverse rows while each row unit is
// in cache (convolve()), then the inverse column pass; the column pass can also produce its
// input on the fly from a BlockSource instead of reading a points buffer, and the inverse
// column pass can write its output back into the work area (out == work), so that a product
// needs no points array at all. Large grids form each row's block-level twiddles from one
// factor per row and a shared 128-entry table, so the tables are 1/6 of the full ones.
#include "qmp/multiply/fft/transform_engine.h"

#include <cmath>
#include <cstring>

namespace qmp::fft {
namespace {

constexpr int kRowBlockLevels = 7;  // rows of 128 blocks
constexpr uint64_t kRowBlocks = uint64_t(1) << kRowBlockLevels;

RootFraction sub_root(int m, int d, int j) {
    if (m == 1) {
        // Node j at depth d-1 of the tree rooted at T^n - i (a quarter turn).
        return RootFraction{1 + 4 * bit_reverse(uint64_t(j), d - 1), uint64_t(4) << (d - 1)};
    }
    // Factor T^(n/m) - zeta_j, zeta_j = exp(2 pi i (1/4 + j)/m).
    return RootFraction{uint64_t(1 + 4 * j), uint64_t(4 * m)};
}

}  // namespace

TransformEngine::TransformEngine(int m, int k) : m_(m), k_(k) {
    const Reduction& red = get_reduction(m, k);
    d_ = red.depth;
    w_ = red.sub_transforms;
    n_ = uint64_t(m) << (k - 1);
    log_l_ = k - d_;
    log_b_ = log_l_ - 3;
    blocks_ = uint64_t(1) << log_b_;
    log_r_ = log_b_ > kRowBlockLevels ? log_b_ - kRowBlockLevels : 0;
    pitch_ = blocks_ + 1 + blocks_ / 128;

    rc_.m = m;
    rc_.depth = d_;
    rc_.w = w_;
    rc_.sub_blocks = blocks_;
    rc_.sub_pitch = pitch_;
    const long double inv_n = 1.0L / static_cast<long double>(n_);
    rc_.inv_n = static_cast<double>(inv_n);
    if (m == 1) {
        for (int d = 0; d + 1 < d_; ++d)
            for (uint64_t g = 0; g < (uint64_t(1) << d); ++g)
                rc_.level_tw[(1 << d) + g] = unit_root_rounded(1 + 4 * bit_reverse(g, d), uint64_t(4) << (d + 1));
    } else {
        for (int r = 0; r < m; ++r) {
            rc_.twist[r] = unit_root_rounded(r, 4 * m);
            const std::complex<long double> inv = unit_root(4 * m - r, 4 * m) * inv_n;
            rc_.inv_twist[r] = Cplx{static_cast<double>(inv.real()), static_cast<double>(inv.imag())};
            for (int q = 0; q < m; ++q) {
                const std::complex<long double> z = unit_root(uint64_t(q) * r, m);
                rc_.cos_qr[q][r] = static_cast<double>(z.real());
                rc_.sin_qr[q][r] = static_cast<double>(z.imag());
            }
        }
    }
    // Large grids factor their rows' straight twiddles: the full table is 2 bytes per complex
    // point, 1/8 of the data it transforms, and streams from memory with it. Below 2^19 complex
    // points (a 1 MiB table, which stays in cache) the full table is faster: forming a row's
    // table cost 3-7 % of a 100k-word product, while from 1M words the factored rows are faster.
    factored_rows_ = log_r_ >= 3 && n_ >= (uint64_t(1) << 19);
    straight_.reserve(w_);
    for (int j = 0; j < w_; ++j) straight_.emplace_back(sub_root(m, d_, j), factored_rows_ ? log_r_ : log_b_);
    if (factored_rows_) {
        const uint64_t rows = uint64_t(1) << log_r_;
        row_sigma_.assign(kRowBlocks, Cplx{0.0, 0.0});
        for (int D = 0; D < kRowBlockLevels; ++D)
            for (uint64_t g = 0; g < (uint64_t(1) << D); ++g)
                row_sigma_[(uint64_t(1) << D) + g] = unit_root_rounded(bit_reverse(g, D), uint64_t(2) << D);
        row_rho_.assign(uint64_t(w_) * rows * 8, Cplx{0.0, 0.0});
        for (int j = 0; j < w_; ++j) {
            const RootFraction root = sub_root(m, d_, j);
            for (uint64_t r = 0; r < rows; ++r) {
                const uint64_t num = root.p + root.q * bit_reverse(r, log_r_);
                for (int D = 0; D < kRowBlockLevels; ++D)
                    row_rho_[(j * rows + r) * 8 + D] = unit_root_rounded(num, root.q << (log_r_ + D + 1));
            }
        }
    }
    if (!four_step()) {
        interleaved_.reserve(w_);
        for (int j = 0; j < w_; ++j) interleaved_.emplace_back(sub_root(m, d_, j), log_b_);
        return;
    }
    // In-block twiddle of block b = r*128 + c at in-block level e, group g (depth log_b_ + e):
    //   s = exp(2 pi i (p + q bitrev(r)) / (q 2^(log_b_+e+1)))      rho: per row and level
    //     * exp(2 pi i (bitrev_7(c) + 128 bitrev_e(g)) / 2^(8+e))     sigma: s(7+e, c 2^e + g)
    //                                                                  of the root exp(0).
    // One rounding more than a full table (~1 ulp), for 1/128 of its memory traffic.
    sigma_.emplace_back(RootFraction{0, 1}, kRowBlockLevels);
    const uint64_t rows = uint64_t(1) << log_r_;
    rho_.resize(uint64_t(w_) * rows);
    for (int j = 0; j < w_; ++j) {
        const RootFraction root = sub_root(m, d_, j);
        for (uint64_t r = 0; r < rows; ++r) {
            Block& rec = rho_[j * rows + r];
            const uint64_t num = root.p + root.q * bit_reverse(r, log_r_);
            const int lanes_of_level[8] = {0, 1, 1, 2, 2, 2, 2, -1};
            for (int l = 0; l < 8; ++l) {
                const int e = lanes_of_level[l];
                const Cplx v = e < 0 ? Cplx{0.0, 0.0} : unit_root_rounded(num, root.q << (log_b_ + e + 1));
                rec.re[l] = v.re;
                rec.im[l] = v.im;
            }
        }
    }
}

void TransformEngine::zero_padding(Block* work) const {
    const uint64_t used = padded_block(blocks_ - 1) + 1;
    for (int j = 0; j < w_; ++j) {
        Block* sub = work + j * pitch_;
        for (uint64_t r = 0; r < blocks_ / 128; ++r) {
            const uint64_t pad = r * 129 + 128;
            if (pad < used) std::memset(sub + pad, 0, sizeof(Block));
        }
        std::memset(sub + used, 0, (pitch_ - used) * sizeof(Block));
    }
    std::memset(work + uint64_t(w_) * pitch_, 0, sizeof(Block));
}

namespace {
inline void prefetch_blocks(const Block* b, uint64_t count, int for_write) {
    const char* p = reinterpret_cast<const char*>(b);
    for (uint64_t l = 0; l < 2 * count; ++l) {
        if (for_write) __builtin_prefetch(p + 64 * l, 1);
        else __builtin_prefetch(p + 64 * l, 0);
    }
}
constexpr uint64_t kPrefetchRows = 4;
// Super-rows of up to 2^4 rows (256 KiB: half of the smaller L2 of the machines we run on).
constexpr int kSuperRowLevels = 4;
}  // namespace

// Four-step grid geometry. Rows of 128 blocks are grouped G = 2^s at a time into super-rows
// (s <= 4) so that the column pass moves G adjacent blocks (G * 128 bytes) per row instead of
// one: DRAM and the TLB see G times fewer, longer strided accesses, and each column group's
// working set (w * R * 128 bytes) is the same as a single column's would be with plain rows. The
// top s levels of a super-row are done in the row pass, on 2^s elements of 128 blocks (<= 256
// KiB: L2); a sub-transform of at most 2^4 rows is a single super-row (one sweep in L2).
//   super-row pitch  P = 128*G + G blocks      (G padding blocks per super-row)
//   column group g   blocks g*G .. g*G+G-1 of every super-row, physically contiguous
// A "row unit" is what the row pass works on: a whole sub-transform in a single sweep, a
// super-row in a four-step grid. Row units are contiguous and independent, which is what lets
// convolve() run forward, pointwise product and inverse on one unit while it sits in cache.
TransformEngine::Grid TransformEngine::grid() const {
    Grid g;
    g.s = log_r_ < kSuperRowLevels ? log_r_ : kSuperRowLevels;
    g.group = uint64_t(1) << g.s;
    g.super_rows = uint64_t(1) << (log_r_ - g.s);
    g.super_blocks = kRowBlocks << g.s;
    g.super_pitch = g.super_blocks + g.group;
    return g;
}

uint64_t TransformEngine::row_units() const { return four_step() ? uint64_t(w_) * grid().super_rows : uint64_t(w_); }

Block* TransformEngine::row_unit(Block* work, uint64_t unit, uint64_t& blocks) const {
    if (!four_step()) {
        blocks = pitch_;
        return work + unit * pitch_;
    }
    const Grid g = grid();
    blocks = g.super_pitch;
    return work + (unit / g.super_rows) * pitch_ + (unit % g.super_rows) * g.super_pitch;
}

void TransformEngine::forward_columns(const KernelSet& ks, const Block* in, Block* work, Parallelizer* p,
                                      uint64_t tds) const {
    zero_padding(work);
    if (!four_step()) {
        run_split(p, tds, blocks_, [&](uint64_t b, uint64_t e) {
            ks.reduce_forward(rc_, in, work, b, e - b, 1);
        });
        return;
    }
    const Grid gr = grid();
    run_split(p, tds, kRowBlocks, [&](uint64_t b, uint64_t e) {
        for (uint64_t g = b; g < e; ++g) {
            const uint64_t c0 = g * gr.group;
            for (uint64_t r = 0; r < gr.super_rows; ++r) {
                if (r + kPrefetchRows < gr.super_rows) {
                    const uint64_t ia = c0 + (r + kPrefetchRows) * gr.super_blocks;
                    for (int j = 0; j < w_; ++j) {
                        prefetch_blocks(in + j * blocks_ + ia, gr.group, 0);
                        prefetch_blocks(work + j * pitch_ + padded_block(ia), gr.group, 1);
                    }
                }
                ks.reduce_forward(rc_, in, work, c0 + r * gr.super_blocks, gr.group, 1);
            }
            for (int j = 0; j < w_; ++j)
                ks.dif_vertical(work + j * pitch_ + padded_block(c0), gr.super_pitch, log_r_ - gr.s, gr.group,
                                straight_[j].data(), 0, 0);
        }
    });
}

// s(D, g) * rho with one rounding of the sum: the error terms of both products are recovered
// with FMA, so an entry is within ~1.5 ulp of the exact root (the full table: 0.5 ulp).
namespace {
inline Cplx accurate_cmul(const Cplx& a, const Cplx& b) {
    const double rr = a.re * b.re, ii = a.im * b.im, ri = a.re * b.im, ir = a.im * b.re;
    const double e_rr = std::fma(a.re, b.re, -rr), e_ii = std::fma(a.im, b.im, -ii);
    const double e_ri = std::fma(a.re, b.im, -ri), e_ir = std::fma(a.im, b.re, -ir);
    return Cplx{(rr - ii) + (e_rr - e_ii), (ri + ir) + (e_ri + e_ir)};
}
}  // namespace

const Cplx* TransformEngine::row_twiddles(int sub, uint64_t row, Cplx* local, int& depth0, uint64_t& node) const {
    if (!factored_rows_) {
        depth0 = log_r_;
        node = row;
        return straight_[sub].data();
    }
    const Cplx* rho = &row_rho_[(uint64_t(sub) * rows() + row) * 8];
    for (int D = 0; D < kRowBlockLevels; ++D)
        for (uint64_t g = uint64_t(1) << D; g < (uint64_t(2) << D); ++g) local[g] = accurate_cmul(rho[D], row_sigma_[g]);
    depth0 = 0;
    node = 0;
    return local;
}

void TransformEngine::forward_row_unit(const KernelSet& ks, Block* work, uint64_t unit) const {
    if (!four_step()) {
        Block* sub = work + unit * pitch_;
        ks.dif_vertical(sub, 1, log_b_, 1, straight_[unit].data(), 0, 0);
        ks.dif_inblock(sub, blocks_, interleaved_[unit].records());
        return;
    }
    const Grid gr = grid();
    const uint64_t j = unit / gr.super_rows, r = unit % gr.super_rows;
    Block* srow = work + j * pitch_ + r * gr.super_pitch;
    ks.dif_vertical(srow, kRowBlocks + 1, gr.s, kRowBlocks, straight_[j].data(), log_r_ - gr.s, r);
    Cplx local[kRowBlocks];
    for (uint64_t u = 0; u < gr.group; ++u) {
        const uint64_t row = (r << gr.s) + u;
        Block* rp = srow + u * (kRowBlocks + 1);
        int depth0;
        uint64_t node;
        const Cplx* tw = row_twiddles(int(j), row, local, depth0, node);
        ks.dif_vertical(rp, 1, kRowBlockLevels, 1, tw, depth0, node);
        ks.dif_inblock_factored(rp, kRowBlocks, sigma_[0].records(), &rho_[(j << log_r_) + row]);
    }
}

void TransformEngine::inverse_row_unit(const KernelSet& ks, Block* work, uint64_t unit) const {
    if (!four_step()) {
        Block* sub = work + unit * pitch_;
        ks.dit_inblock(sub, blocks_, interleaved_[unit].records());
        ks.dit_vertical(sub, 1, log_b_, 1, straight_[unit].data(), 0, 0);
        return;
    }
    const Grid gr = grid();
    const uint64_t j = unit / gr.super_rows, r = unit % gr.super_rows;
    Block* srow = work + j * pitch_ + r * gr.super_pitch;
    Cplx local[kRowBlocks];
    for (uint64_t u = 0; u < gr.group; ++u) {
        const uint64_t row = (r << gr.s) + u;
        Block* rp = srow + u * (kRowBlocks + 1);
        ks.dit_inblock_factored(rp, kRowBlocks, sigma_[0].records(), &rho_[(j << log_r_) + row]);
        int depth0;
        uint64_t node;
        const Cplx* tw = row_twiddles(int(j), row, local, depth0, node);
        ks.dit_vertical(rp, 1, kRowBlockLevels, 1, tw, depth0, node);
    }
    ks.dit_vertical(srow, kRowBlocks + 1, gr.s, kRowBlocks, straight_[j].data(), log_r_ - gr.s, r);
}

// With out == work the reduction writes each block back where it read it (the work layout,
// see work_layout()): every column group reads and writes only its own blocks, so no points
// array is needed.
void TransformEngine::inverse_columns(const KernelSet& ks, Block* work, Block* out, Parallelizer* p,
                                      uint64_t tds) const {
    ReductionConstants rc = rc_;
    rc.out_padded = out == work;
    if (!four_step()) {
        run_split(p, tds, blocks_, [&](uint64_t b, uint64_t e) {
            ks.reduce_inverse(rc, work, out, b, e - b, 1);
        });
        return;
    }
    const Grid gr = grid();
    run_split(p, tds, kRowBlocks, [&](uint64_t b, uint64_t e) {
        for (uint64_t g = b; g < e; ++g) {
            const uint64_t c0 = g * gr.group;
            for (int j = 0; j < w_; ++j)
                ks.dit_vertical(work + j * pitch_ + padded_block(c0), gr.super_pitch, log_r_ - gr.s, gr.group,
                                straight_[j].data(), 0, 0);
            for (uint64_t r = 0; r < gr.super_rows; ++r) {
                if (r + kPrefetchRows < gr.super_rows && !rc.out_padded) {
                    const uint64_t ia = c0 + (r + kPrefetchRows) * gr.super_blocks;
                    for (int j = 0; j < w_; ++j) prefetch_blocks(out + j * blocks_ + ia, gr.group, 1);
                }
                ks.reduce_inverse(rc, work, out, c0 + r * gr.super_blocks, gr.group, 1);
            }
        }
    });
}

void TransformEngine::forward(const Block* in, Block* work, Parallelizer* p, uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    forward_columns(ks, in, work, p, tds);
    run_split(p, tds, row_units(), [&](uint64_t b, uint64_t e) {
        for (uint64_t u = b; u < e; ++u) forward_row_unit(ks, work, u);
    });
}

void TransformEngine::inverse(Block* work, Block* out, Parallelizer* p, uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    run_split(p, tds, row_units(), [&](uint64_t b, uint64_t e) {
        for (uint64_t u = b; u < e; ++u) inverse_row_unit(ks, work, u);
    });
    inverse_columns(ks, work, out, p, tds);
}

bool TransformEngine::streams_input() const { return four_step() && grid().group >= 8; }

// The column pass fed from a source: per column group and super-row, the G input blocks of every
// sub-transform are produced into a small local buffer (w * G blocks, L1) and reduced from there.
// The reduction kernels address their input as in[j * sub_blocks + i]: a copy of the constants
// with sub_blocks = G points them at the local buffer, and since a run of G <= 16 blocks never
// crosses a padding block, work + padded_block(i0) addresses the run's outputs with i = 0 .. G-1.
void TransformEngine::forward_columns(const KernelSet& ks, const BlockSource& in, Block* work, Parallelizer* p,
                                      uint64_t tds) const {
    zero_padding(work);
    const Grid gr = grid();
    ReductionConstants local_rc = rc_;
    local_rc.sub_blocks = gr.group;
    run_split(p, tds, kRowBlocks, [&](uint64_t b, uint64_t e) {
        alignas(128) Block local[7 * 16];
        for (uint64_t g = b; g < e; ++g) {
            const uint64_t c0 = g * gr.group;
            for (uint64_t r = 0; r < gr.super_rows; ++r) {
                const uint64_t i0 = c0 + r * gr.super_blocks;
                if (r + kPrefetchRows < gr.super_rows) {
                    const uint64_t ia = i0 + kPrefetchRows * gr.super_blocks;
                    for (int j = 0; j < w_; ++j) prefetch_blocks(work + j * pitch_ + padded_block(ia), gr.group, 1);
                }
                for (int j = 0; j < w_; ++j) in.fill(j * blocks_ + i0, gr.group, local + j * gr.group);
                ks.reduce_forward(local_rc, local, work + padded_block(i0), 0, gr.group, 1);
            }
            for (int j = 0; j < w_; ++j)
                ks.dif_vertical(work + j * pitch_ + padded_block(c0), gr.super_pitch, log_r_ - gr.s, gr.group,
                                straight_[j].data(), 0, 0);
        }
    });
}

void TransformEngine::forward(const BlockSource& in, Block* work, Parallelizer* p, uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    forward_columns(ks, in, work, p, tds);
    run_split(p, tds, row_units(), [&](uint64_t b, uint64_t e) {
        for (uint64_t u = b; u < e; ++u) forward_row_unit(ks, work, u);
    });
}

void TransformEngine::convolve(const BlockSource& in, Block* work, const Block* other, Block* out, Parallelizer* p,
                               uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    forward_columns(ks, in, work, p, tds);
    product_rows(ks, work, other, p, tds);
    inverse_columns(ks, work, out, p, tds);
}

void TransformEngine::convolve(const Block* in, Block* work, const Block* other, Block* out, Parallelizer* p,
                               uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    forward_columns(ks, in, work, p, tds);
    product_rows(ks, work, other, p, tds);
    inverse_columns(ks, work, out, p, tds);
}

void TransformEngine::product_rows(const KernelSet& ks, Block* work, const Block* other, Parallelizer* p,
                                   uint64_t tds) const {
    run_split(p, tds, row_units(), [&](uint64_t b, uint64_t e) {
        for (uint64_t u = b; u < e; ++u) {
            uint64_t count;
            Block* unit = row_unit(work, u, count);
            forward_row_unit(ks, work, u);
            if (other != nullptr) {
                ks.multiply(unit, other + (unit - work), count);
            } else {
                ks.square(unit, count);
            }
            inverse_row_unit(ks, work, u);
        }
    });
}

void TransformEngine::multiply(Block* a, const Block* b, Parallelizer* p, uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    run_split(p, tds, work_blocks(), [&](uint64_t s, uint64_t e) { ks.multiply(a + s, b + s, e - s); });
}

void TransformEngine::square(Block* a, Parallelizer* p, uint64_t tds) const {
    const KernelSet& ks = active_kernels();
    run_split(p, tds, work_blocks(), [&](uint64_t s, uint64_t e) { ks.square(a + s, e - s); });
}

void TransformEngine::perturb_twiddle(int sub, int depth, uint64_t group, double delta) {
    if (factored_rows_ && depth >= log_r_ && depth < log_b_) {
        // A row-level fault lands on the row factor of the row holding that group.
        const int D = depth - log_r_;
        row_rho_[(uint64_t(sub) * rows() + (group >> D)) * 8 + D].re += delta;
    } else if (depth < log_b_) {
        straight_[sub].perturb(depth, group, delta);
    } else if (!four_step()) {
        interleaved_[sub].perturb(depth, group, delta);
    } else {
        const int e = depth - log_b_;
        const uint64_t row = (group >> e) >> kRowBlockLevels;
        rho_[(uint64_t(sub) << log_r_) + row].re[e == 0 ? 0 : e == 1 ? 1 : 3] += delta;
    }
}

uint64_t TransformEngine::twiddle_bytes() const {
    uint64_t bytes = 0;
    for (const StraightTable& t : straight_) bytes += t.bytes();
    for (const InterleavedTable& t : interleaved_) bytes += t.bytes();
    for (const InterleavedTable& t : sigma_) bytes += t.bytes();
    return bytes + (row_rho_.size() + row_sigma_.size()) * sizeof(Cplx) + rho_.size() * sizeof(Block);
}

}  // namespace qmp::fft
