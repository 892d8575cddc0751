// DirectConvertB: plan and driver of an in-memory radix conversion. Built for an upper bound of
// output words W (19 decimal digits each) and a task count, it fixes the conversion block (from
// a third of the largest product below the table's FFT, 32..512 words, up to the next size
// that halves W exactly, so that the tree is balanced), the power-table levels
// (block * 2^j while below W), which levels multiply through stored wrapped FFT products, and
// the scratch. run() converts a fraction into out[0, W); "Input size is too large for
// conversion plan." above the bound. FFT levels whose sub-transforms (m of 2^k real points)
// carry less than a block are refused: "Sub-transform length is smaller than the conversion
// block size.".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/multiply/fft/plan.h"
#include "qmp/multiply/fft/wrapped_product.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/radix/power_table.h"

namespace qmp {

class Parallelizer;

class DirectConvertB {
public:
    static constexpr uint64_t kGuardWords = 2;

    // block_words = 0 derives the block from the table and balances it for max_output_words.
    DirectConvertB(const AlgorithmTableB& table, uint64_t max_output_words, uint64_t tds = 1,
                   uint64_t block_words = 0);

    static uint64_t derive_block_words(const AlgorithmTableB& table);
    // ceil(W / 2^K) for the K that puts it in [base, 2 base) (base itself for W <= base).
    static uint64_t balanced_block_words(uint64_t base_words, uint64_t output_words);
    // Throws the sub-transform message when m 2^k b < 64 block_words.
    static void check_sub_transform(const fft::TransformSize& size, uint64_t block_words);

    // Scratch of run() for `output_words` words (at most the plan's bound).
    uint64_t scratch_bytes(uint64_t output_words) const;
    uint64_t scratch_bytes() const { return scratch_bytes(max_output_words_); }

    // out[0, output_words) = the first words of frac, the fraction sum f[i] 2^(64 (i - f_words)),
    // truncated to output_words + kGuardWords words (zero-padded when shorter).
    void run(const uint64_t* fraction, uint64_t fraction_words, uint64_t* out, uint64_t output_words,
             AlignedBufferC scratch, Parallelizer* parallelizer) const;

    uint64_t block_words() const noexcept { return block_words_; }
    uint64_t max_output_words() const noexcept { return max_output_words_; }
    const std::vector<PowerLevel>& levels() const noexcept { return levels_; }
    // One line per level: block, power words, product words, algorithm.
    std::string print() const;

private:
    const AlgorithmTableB* table_;
    uint64_t max_output_words_;
    uint64_t tds_;
    uint64_t block_words_;
    std::vector<PowerLevel> levels_;
    std::vector<std::shared_ptr<const fft::WrappedProduct>> products_;  // the levels' FFT products
};

}  // namespace qmp
