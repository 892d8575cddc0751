// The right-angle (negacyclic) complex transform behind the FFT product. A transform of size
// (m, k) has m * 2^k real points, packed as n = m * 2^(k-1) complex points z_t = x_t + i*x_{t+n}.
// forward() reduces z modulo T^n - i into w independent sub-transforms (the reduction record) and
// transforms each down to single points; pointwise products of two forward transforms followed by
// inverse() give z_c = c_t + i*c_{t+n}, c = x*y mod (T^(2n) + 1), scaled exactly by 1/n.
// Transforms are immutable after construction and shared: every member is const and thread-safe.
//
// Interface notes for the conversion side (agreed changes are listed here, newest first):
//   - scratch_bytes() is 0 for every shape today; callers should still ask.
//   - work buffers must be 128-byte aligned; forward() writes every block of `work`, padding
//     included (padding blocks are zero), so pointwise products never see stale memory.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/parallel/parallelizer.h"

namespace qmp::fft {

// Eight complex doubles: point j of the block is (re[j], im[j]). Exactly two cache lines and, on
// AVX-512, exactly two zmm registers.
struct alignas(128) Block {
    double re[8];
    double im[8];
};
static_assert(sizeof(Block) == 128);

// Where natural block b of a transform's output lives: at b (sub_blocks == 0: a points array),
// or in the work layout an in-place inverse leaves behind: sub-transform b / B at a pitch of P
// blocks, one padding block after every 128 (B = sub_blocks, a power of two, P = sub_pitch).
struct PointLayout {
    uint64_t sub_blocks = 0;
    uint64_t sub_pitch = 0;
    uint64_t block(uint64_t b) const {
        if (sub_blocks == 0) return b;
        const uint64_t i = b & (sub_blocks - 1);
        return (b / sub_blocks) * sub_pitch + i + (i >> 7);
    }
};

class TransformEngine;

// Input produced on demand: fill() writes blocks [first_block, first_block + count) of the
// natural-order input (what forward()'s `input` would hold there) into `out`. first_block and
// count are multiples of 8. Called concurrently from several tasks for disjoint ranges.
class BlockSource {
public:
    virtual ~BlockSource() = default;
    virtual void fill(uint64_t first_block, uint64_t count, Block* out) const = 0;
};

class Transform {
public:
    virtual ~Transform();
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;

    int multiplier() const { return multiplier_; }
    int k() const { return k_; }
    // n = m * 2^(k-1).
    uint64_t complex_points() const { return complex_points_; }
    // Bytes of one transformed operand in the internal (padded) layout; a multiple of 128.
    uint64_t work_bytes() const;
    // Extra scratch that forward()/inverse() need with `tds` tasks (0 today).
    uint64_t scratch_bytes(uint64_t tds) const;
    // Where an inverse with output == work leaves the points.
    PointLayout work_layout() const;

    // Forward transform. `input`: n/8 blocks in natural order, point t holds x_t + i*x_{t+n}.
    // `work` (work_bytes(), 128-aligned) receives the transform in internal order. `input` and
    // `work` must not overlap. `p` may be null (runs on the calling thread).
    void forward(const Block* input, Block* work, void* scratch, Parallelizer* p,
                 uint64_t tds) const;
    // a *= b pointwise (both forward transforms of this transform). a == b is allowed.
    void pointwise_multiply(Block* a, const Block* b, Parallelizer* p, uint64_t tds) const;
    // a *= a pointwise.
    void pointwise_square(Block* a, Parallelizer* p, uint64_t tds) const;
    // Inverse transform, scaled by 1/n (1/m folded in). `work` is consumed (overwritten);
    // `output` (n/8 blocks, natural order) gets point t = c_t + i*c_{t+n}. `output` may alias an
    // input buffer; it must not overlap `work` unless it is `work` itself: the points then stay
    // in the work area, block b at work_layout().block(b), and a product needs no points array.
    void inverse(Block* work, Block* output, void* scratch, Parallelizer* p,
                 uint64_t tds) const;

    // The product transform in one call: forward(input -> work), work *= other pointwise (work
    // *= work when `other` is null: a square), inverse(work -> output). The pointwise product
    // runs inside the row pass while each row is in cache, which saves two sweeps over the work
    // area. `other` is a forward transform of this transform (it may be `work` of another
    // operand, not `work` itself); `output` may alias `input`, or be `work` (as for inverse()).
    // Same values as the three calls.
    void convolve(const Block* input, Block* work, const Block* other, Block* output, void* scratch,
                  Parallelizer* p, uint64_t tds) const;

    // Whether forward() and convolve() can read their input from a BlockSource: four-step
    // shapes whose column pass takes whole 8-block runs. The source is then read once, inside
    // the column pass, and no points buffer is written or read.
    bool streams_input() const;
    void forward(const BlockSource& input, Block* work, void* scratch, Parallelizer* p, uint64_t tds) const;
    void convolve(const BlockSource& input, Block* work, const Block* other, Block* output, void* scratch,
                  Parallelizer* p, uint64_t tds) const;

    // One line for logs and reports, e.g. "FFT 3*2^18 real: 3 x 2^17, four-step 1024 x 128, avx2".
    std::string description() const;

    const TransformEngine& engine() const { return *engine_; }

protected:
    Transform(int m, int k, const TransformEngine* engine);

private:
    int multiplier_;
    int k_;
    uint64_t complex_points_;
    const TransformEngine* engine_;  // owned
};

// What get_transform(m, k, ...).work_bytes(), .scratch_bytes() and .streams_input() return, from the
// shape alone: sizing a buffer must not build a transform (its twiddle tables stay in memory).
uint64_t transform_work_bytes(int m, int k);
uint64_t transform_scratch_bytes(int m, int k, uint64_t tds);
bool transform_streams_input(int m, int k);

// Bytes of the twiddle tables of every transform built so far (get_transform() builds each
// shape once, on first use, and keeps it).
uint64_t twiddle_bytes_built();

// The single-level shape: each sub-transform is swept whole (sub-transforms of at most 128
// blocks, which stay in L1/L2). Construction checks, in order: reduction lookup, k - d >= 6,
// 2^k >= 2^conversion_block_exponent. All throw qmp::InvalidParametersException.
class SmallTransform final : public Transform {
public:
    SmallTransform(int m, int k, int conversion_block_exponent);
};

// The two-level (four-step) shape: each sub-transform is a grid of rows of 128 blocks with a
// padded pitch of 129 blocks; column passes walk the grid, rows are done in L1.
// Construction checks: reduction lookup, k - d >= 6, 2^(k-d) >= 2^conversion_block_exponent.
class LargeTransform final : public Transform {
public:
    LargeTransform(int m, int k, int conversion_block_exponent);
};

// The shared, immutable transform of size (m, k), built on first use (twiddles once) and kept
// for the life of the process; thread-safe. Picks the shape by size. Throws as the constructors.
const Transform& get_transform(int m, int k, int conversion_block_exponent);

// Asks the kernel for transparent huge pages on a large buffer (rounded inward to 2 MiB pages);
// a hint only, never fails. Worth it for buffers of several MiB walked by column passes.
void advise_huge_pages(void* buffer, uint64_t size_bytes);

}  // namespace qmp::fft
