// The execution plan of one transform size: geometry, the reduction constants, the twiddle tables
// of every sub-transform, and the pass structure (single sweep or four-step). Work layout: w
// sub-transforms of B = 2^(k-d-3) logical blocks, each stored at a pitch of B + 1 + B/128 blocks
// (logical block i at i + i/128: one padding block per 128 so that column walks do not alias in
// the caches), then one extra block. Padding blocks are written as zero by forward().
// All passes split into independent tasks with disjoint outputs, so results are identical for
// any task count and any framework.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qmp/multiply/fft/kernel_set.h"
#include "qmp/multiply/fft/reduction.h"
#include "qmp/multiply/fft/twiddle_tables.h"
#include "qmp/parallel/parallelizer.h"

namespace qmp::fft {

class TransformEngine {
public:
    // Assumes the size checks have passed (k - d >= 6).
    TransformEngine(int m, int k);

    int multiplier() const { return m_; }
    int k() const { return k_; }
    int sub_transforms() const { return w_; }
    int sub_exponent() const { return log_l_; }  // k - d
    uint64_t complex_points() const { return n_; }
    uint64_t work_blocks() const { return uint64_t(w_) * pitch_ + 1; }
    // Where an in-place inverse (out == work) leaves natural block b.
    PointLayout work_layout() const { return PointLayout{blocks_, pitch_}; }
    bool four_step() const { return log_r_ > 0; }
    uint64_t rows() const { return uint64_t(1) << log_r_; }

    void forward(const Block* in, Block* work, Parallelizer* p, uint64_t tds) const;
    void inverse(Block* work, Block* out, Parallelizer* p, uint64_t tds) const;
    void multiply(Block* a, const Block* b, Parallelizer* p, uint64_t tds) const;
    void square(Block* a, Parallelizer* p, uint64_t tds) const;
    // forward(in -> work), work *= other (work *= work when other is null), inverse(work -> out),
    // with the product done row unit by row unit inside the row pass. Same values as the
    // separate calls.
    void convolve(const Block* in, Block* work, const Block* other, Block* out, Parallelizer* p,
                  uint64_t tds) const;
    // The same two with the input read from a source inside the column pass (streams_input()).
    bool streams_input() const;
    void forward(const BlockSource& in, Block* work, Parallelizer* p, uint64_t tds) const;
    void convolve(const BlockSource& in, Block* work, const Block* other, Block* out, Parallelizer* p,
                  uint64_t tds) const;

    // Test seam: perturbs one twiddle of sub-transform `sub` at depth `depth` (straight levels
    // below log2(B), in-block levels above; in a four-step grid an in-block fault lands on the
    // row factor of the row holding that group). Only for engines owned by the caller.
    void perturb_twiddle(int sub, int depth, uint64_t group, double delta);
    // Bytes of the twiddle tables this engine holds.
    uint64_t twiddle_bytes() const;

private:
    struct Grid {
        int s;                  // levels per super-row beyond the 128-block row
        uint64_t group;         // G = 2^s rows per super-row
        uint64_t super_rows;    // super-rows per sub-transform
        uint64_t super_blocks;  // logical blocks per super-row (128 G)
        uint64_t super_pitch;   // physical blocks per super-row (128 G + G)
    };
    Grid grid() const;
    uint64_t row_units() const;
    // First block and physical block count of a row unit.
    Block* row_unit(Block* work, uint64_t unit, uint64_t& blocks) const;
    void zero_padding(Block* work) const;
    void forward_columns(const KernelSet& ks, const Block* in, Block* work, Parallelizer* p, uint64_t tds) const;
    void forward_columns(const KernelSet& ks, const BlockSource& in, Block* work, Parallelizer* p,
                         uint64_t tds) const;
    void product_rows(const KernelSet& ks, Block* work, const Block* other, Parallelizer* p, uint64_t tds) const;
    void forward_row_unit(const KernelSet& ks, Block* work, uint64_t unit) const;
    void inverse_row_unit(const KernelSet& ks, Block* work, uint64_t unit) const;
    void inverse_columns(const KernelSet& ks, Block* work, Block* out, Parallelizer* p, uint64_t tds) const;

    int m_, k_, d_, w_;
    uint64_t n_;
    int log_l_, log_b_, log_r_;  // log_r_ = 0: single sweep per sub-transform
    uint64_t blocks_, pitch_;    // B and the padded pitch
    ReductionConstants rc_;
    std::vector<StraightTable> straight_;
    // Single sweep: full in-block records per sub-transform. Four-step: in-block records are
    // sigma_[c] * rho_[row] with sigma_ the 128 records of a plain cyclic table and one rho
    // record per (sub-transform, row), lanes {r0, r1, r1, r2, r2, r2, r2, 0}.
    std::vector<InterleavedTable> interleaved_;
    std::vector<InterleavedTable> sigma_;
    std::vector<Block> rho_;
    // Four-step grids of at least 8 rows: straight_ holds only the column and super-row depths
    // (below log_r_); the 7 block levels of a row take s(log_r_ + D, row 2^D + g) =
    // row_rho_[(sub, row), D] * row_sigma_[2^D + g], formed per row into a 128-entry table.
    bool factored_rows_ = false;
    std::vector<Cplx> row_rho_;    // 8 per (sub-transform, row): D = 0..6, one unused
    std::vector<Cplx> row_sigma_;  // 128: exp(2 pi i bitrev_D(g) / 2^(D+1)) at 2^D + g
    // The row's straight twiddles for the kernels (depth0 = 0, node = 0), or the shared table.
    const Cplx* row_twiddles(int sub, uint64_t row, Cplx* local, int& depth0, uint64_t& node) const;
};

// Test seam: a private transform (not in the shared cache) whose twiddle s(depth, group) of
// sub-transform `sub` is off by `delta` in its real part. Checks as the shapes do.
std::unique_ptr<Transform> make_perturbed_transform(int m, int k, int sub, int depth,
                                                    uint64_t group, double delta);

// Runs body(begin, end) over [0, count) cut into at most `tds` contiguous pieces.
template <typename F>
void run_split(Parallelizer* p, uint64_t tds, uint64_t count, F&& body) {
    uint64_t tasks = tds < count ? tds : count;
    if (tasks == 0) return;
    if (p == nullptr || tasks == 1) {
        body(uint64_t(0), count);
        return;
    }
    auto task = [&](uint64_t t) { body(count * t / tasks, count * (t + 1) / tasks); };
    p->run(tasks, task);
}

}  // namespace qmp::fft
