// Powers of B = 10^19 that the scaled remainder tree splits by: level j holds P_j = B^(m_j),
// m_j = block * 2^j, as words (P_0 by repeated products with B, the others by squaring) and,
// where the table routes the level's products to the FFT, as the stored transform of a wrapped
// product keeping the level's largest remainder (2 m_j + guards) and one word above: the product
// part above, discarded anyway, folds onto the bottom. Remainder * P_j then costs one forward
// transform, a pointwise product and an inverse at two thirds of a full product's size. Built
// once (make_tables()) in a caller's buffer, read-only afterwards. Errors: "Table isn't large
// enough." (perform_split()), "Transforms are incompatible." (PowerTransform::replace()).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"

namespace qmp {

class Parallelizer;
namespace fft {
class WrappedProduct;
}

// The radix of the output words: 10^19, the largest power of ten below 2^64.
inline constexpr uint64_t kDecimalWordBase = 10000000000000000000ull;
inline constexpr uint64_t kDigitsPerDecimalWord = 19;

// Words of B^m: floor(19 m log2(10) / 64) + 1, an upper bound (exact or one above).
uint64_t decimal_power_words(uint64_t m);

// One power as the products of one level use it.
class PowerTransform {
public:
    const uint64_t* words = nullptr;  // P, normalized (top word non-zero)
    uint64_t length = 0;              // words of P
    const fft::WrappedProduct* fft = nullptr;  // null: products go through the table
    void* transform = nullptr;                 // forward transform of P (fft != null)
    uint64_t transform_bytes = 0;

    // Words that multiply() writes for an AL-word A: AL + length through the table; the
    // wrapped product's kept words (the low words of A * P mod 2^N + 1) through the FFT.
    uint64_t product_words(uint64_t AL) const;
    // C[0, product_words(AL)) = A * P (see above). Scratch: the level's multiply scratch.
    void multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const AlgorithmTableB& table, void* scratch,
                  uint64_t scratch_bytes, Parallelizer* parallelizer, uint64_t tds) const;
    // Copies `other`'s transform bytes over this one's, in place. Both must be transforms of
    // the same wrapped product, else "Transforms are incompatible.".
    void replace(const PowerTransform& other);
};

// Sizes of one level, fixed by the plan.
struct PowerLevel {
    uint64_t block_words = 0;         // m_j: the words a split at this level hands to the left half
    uint64_t power_words = 0;         // room for P_j
    uint64_t max_product_words = 0;   // room for the product of the largest remainder * P_j
    const fft::WrappedProduct* fft = nullptr;  // the FFT product when the table routes there
    uint64_t transform_bytes = 0;     // 0 without FFT
    uint64_t multiply_scratch_bytes = 0;
};

class ReadyTableB {
public:
    ReadyTableB() = default;
    ReadyTableB(const std::vector<PowerLevel>& levels, const AlgorithmTableB& table);

    // Bytes make_tables() keeps for the powers and transforms, and the temporary bytes it needs
    // on top of them while building.
    uint64_t table_bytes() const noexcept { return table_bytes_; }
    uint64_t build_scratch_bytes() const noexcept { return build_scratch_bytes_; }

    // Builds every power into `memory` (at least table_bytes() + build_scratch_bytes()); the
    // first table_bytes() of it must stay untouched while the table is in use.
    void make_tables(AlignedBufferC memory, Parallelizer* parallelizer, uint64_t tds);

    // The level to split a node of n words (n > level 0's block): the highest level whose block
    // is smaller than n. Throws "Table isn't large enough." when n exceeds twice the top block.
    uint64_t perform_split(uint64_t n_words) const;

    uint64_t level_count() const noexcept { return levels_.size(); }
    const PowerLevel& level(uint64_t j) const { return levels_[j]; }
    const PowerTransform& power(uint64_t j) const { return powers_[j]; }
    PowerTransform& power_for_test(uint64_t j) { return powers_[j]; }
    const AlgorithmTableB& table() const { return *table_; }

private:
    std::vector<PowerLevel> levels_;
    std::vector<PowerTransform> powers_;
    const AlgorithmTableB* table_ = nullptr;
    uint64_t table_bytes_ = 0;
    uint64_t build_scratch_bytes_ = 0;
};

}  // namespace qmp
