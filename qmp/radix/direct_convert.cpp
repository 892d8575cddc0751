// The in-memory conversion plan and its driver: levels, scratch, top node.
#include "qmp/radix/direct_convert.h"

#include <algorithm>
#include <cstring>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/multiply/fft/fftv4.h"
#include "qmp/multiply/fft/split_modulus_fft.h"
#include "qmp/multiply/multiply.h"
#include "qmp/radix/srt_tree.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

// Nodes from this many blocks up fork their halves when tasks are left: below it the two
// hand-overs cost more than the half-size products gain.
constexpr uint64_t kParallelMinBlocks = 8;

SRTv2::TreeContext tree_context(const ReadyTableB& table, uint64_t block_words, Parallelizer* parallelizer) {
    SRTv2::TreeContext c;
    c.table = &table;
    c.block_words = block_words;
    c.guard_words = DirectConvertB::kGuardWords;
    c.parallel_min_words = kParallelMinBlocks * block_words;
    c.parallelizer = parallelizer;
    return c;
}

}  // namespace

void DirectConvertB::check_sub_transform(const fft::TransformSize& size, uint64_t block_words) {
    // The m sub-transforms of 2^k real points at b bits must together carry one block: the
    // windows that the tree keeps are cut at block granularity.
    if (uint64_t(size.m) * (uint64_t(1) << size.k) * uint64_t(size.bits) < 64 * block_words)
        throw InvalidParametersException("DirectConvertB::DirectConvertB()",
                                         "Sub-transform length is smaller than the conversion block size.");
}

uint64_t DirectConvertB::derive_block_words(const AlgorithmTableB& table) {
    // The base case costs ~block^2 / 2 word products per block; a level-0 product (about three
    // blocks) should land where the FFT starts to win, so the block is a third of the largest
    // product that the table still gives to a quadratic-ish algorithm.
    uint64_t below_fft = 0;
    for (const auto& entry : table.entries()) {
        if (dynamic_cast<const FFTv4*>(entry.second) != nullptr) break;
        below_fft = entry.first;
    }
    if (below_fft == 0 || below_fft == table.max_product_words()) return 64;
    return std::clamp<uint64_t>(below_fft / 3 / 8 * 8, 32, 512);
}

uint64_t DirectConvertB::balanced_block_words(uint64_t base_words, uint64_t output_words) {
    // block = ceil(W / 2^K) in [base, 2 base): the top split then halves W, every node below
    // splits near its middle, and the two halves of a parallel node carry equal work.
    if (output_words <= base_words) return base_words;
    uint64_t K = 0;
    while ((output_words >> (K + 1)) >= base_words) ++K;
    return (output_words + (uint64_t(1) << K) - 1) >> K;
}

DirectConvertB::DirectConvertB(const AlgorithmTableB& table, uint64_t max_output_words, uint64_t tds,
                               uint64_t block_words)
    : table_(&table), max_output_words_(max_output_words), tds_(std::max<uint64_t>(tds, 1)),
      block_words_(block_words != 0 ? block_words
                                    : balanced_block_words(derive_block_words(table), max_output_words)) {
    for (uint64_t m = block_words_; m < max_output_words_; m *= 2) {
        PowerLevel L;
        L.block_words = m;
        L.power_words = decimal_power_words(m);
        // A node of this level has at most 2m words plus the guards.
        const uint64_t remainder_words = 2 * m + kGuardWords;
        L.max_product_words = remainder_words + L.power_words;
        // In the transforms' range (either family) the level keeps its power as a ready transform.
        const BasicAlgorithm& algorithm = table.get_algorithm(L.max_product_words);
        if (dynamic_cast<const FFTv4*>(&algorithm) != nullptr || dynamic_cast<const SplitModulusFFT*>(&algorithm) != nullptr) {
            // The window, then the bottom word of the integer part for the fix-up.
            products_.push_back(std::make_shared<const fft::WrappedProduct>(remainder_words, L.power_words,
                                                                            remainder_words + 1));
            L.fft = products_.back().get();
            check_sub_transform(L.fft->size(), block_words_);
            L.max_product_words = L.fft->kept_words();  // the window and the integer word
            L.transform_bytes = L.fft->transform_bytes();
            L.multiply_scratch_bytes = L.fft->scratch_bytes();
        } else {
            L.multiply_scratch_bytes = multiply_scratch_bytes(table, remainder_words, L.power_words);
        }
        levels_.push_back(L);
    }
}

uint64_t DirectConvertB::scratch_bytes(uint64_t output_words) const {
    ReadyTableB table(levels_, *table_);
    const SRTv2::TreeContext context = tree_context(table, block_words_, nullptr);
    const uint64_t top = AlignedBufferC::round_up((output_words + kGuardWords) * 8);
    const uint64_t tree = node_scratch_bytes(context, output_words, tds_);
    return table.table_bytes() + std::max(table.build_scratch_bytes(), top + tree);
}

void DirectConvertB::run(const uint64_t* fraction, uint64_t fraction_words, uint64_t* out, uint64_t output_words,
                         AlignedBufferC scratch, Parallelizer* parallelizer) const {
    if (output_words > max_output_words_)
        throw InvalidParametersException("DirectConvertB::run()", "Input size is too large for conversion plan.");
    if (output_words == 0) return;
    const uint64_t tds = parallelizer != nullptr ? tds_ : 1;
    ReadyTableB table(levels_, *table_);
    table.make_tables(scratch, parallelizer, tds);
    // The table keeps its bottom table_bytes(); the build area above it is free again.
    scratch.spawn(table.table_bytes());
    const uint64_t precision = output_words + kGuardWords;
    uint64_t* top = scratch.spawn_words<uint64_t>(precision).words<uint64_t>();
    const uint64_t taken = std::min(precision, fraction_words);
    zero_words(top, precision - taken);
    copy_words(top + (precision - taken), fraction + (fraction_words - taken), taken);

    Console::println("Converting...  ");
    const SRTv2::TreeContext context = tree_context(table, block_words_, parallelizer);
    SRTv2::convertP(context, RemainderFloatB(top, precision), out, output_words, scratch, tds);
}

std::string DirectConvertB::print() const {
    std::string s = "SRTv2 block=" + std::to_string(block_words_) + " words, levels=" + std::to_string(levels_.size());
    for (const PowerLevel& L : levels_) {
        s += "\n  m=" + std::to_string(L.block_words) + " power=" + std::to_string(L.power_words) +
             " product=" + std::to_string(L.max_product_words) +
             (L.fft != nullptr ? " wrapped FFT " + fft::describe(L.fft->size()) : " table");
    }
    return s;
}

}  // namespace qmp
