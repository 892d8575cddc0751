// Stripe-block checksums against an independent oracle: the block read as a big integer of
// 32-bit digits (first word most significant) with the seed appended as one more digit,
// reduced by plain Horner steps modulo 2^31 - 1. Every kernel this processor can run is
// compared on random blocks, on all-zero and all-one blocks, and on sizes of 1 to 1000 steps.
#include "qmp/cpu_features.h"
#include "qmp/farmemory/block_checksum.h"
#include "tests/qmp/farmemory/test_support.h"

#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace qmp {
namespace {

uint32_t oracle(const std::vector<unsigned char>& block, uint32_t seed) {
    uint64_t r = 0;
    for (size_t i = 0; i < block.size(); i += 4) {
        uint32_t w;
        std::memcpy(&w, &block[i], 4);
        r = ((r << 32) | w) % checksum_prime;
    }
    return uint32_t(((r << 32) | seed) % checksum_prime);
}

std::vector<SimdLevel> runnable_levels() {
    std::vector<SimdLevel> levels = {SimdLevel::Portable};
    if (detected_simd_level() >= SimdLevel::AVX2) levels.push_back(SimdLevel::AVX2);
    if (detected_simd_level() >= SimdLevel::AVX512) levels.push_back(SimdLevel::AVX512);
    return levels;
}

TEST(BlockChecksum, EveryKernelMatchesTheBigIntegerOracle) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed());
    std::vector<std::vector<unsigned char>> blocks;
    for (size_t steps : {1, 2, 3, 7, 64, 1000}) {
        blocks.push_back(test::random_bytes(rng, 64 * steps));
        blocks.push_back(std::vector<unsigned char>(64 * steps, 0x00));
        blocks.push_back(std::vector<unsigned char>(64 * steps, 0xff));
    }
    // Words equal to p and 2^32 - 1 around the fold boundaries, in every column.
    std::vector<unsigned char> edge(64 * 33);
    for (size_t i = 0; i < edge.size(); i += 4) {
        const uint32_t w = (i / 4) % 3 == 0 ? checksum_prime : (i / 4) % 3 == 1 ? 0xffffffffu : 0x80000000u;
        std::memcpy(&edge[i], &w, 4);
    }
    blocks.push_back(edge);
    for (SimdLevel level : runnable_levels()) {
        SCOPED_TRACE(simd_level_name(level));
        for (const auto& block : blocks) {
            for (uint32_t seed : {0u, 1u, 0x7ffffffeu, 0xffffffffu, uint32_t(rng())}) {
                const uint32_t got = block_checksum(block.data(), block.size(), seed, level);
                ASSERT_EQ(got, oracle(block, seed)) << "bytes " << block.size() << " seed " << seed;
                ASSERT_LT(got, checksum_prime);
            }
        }
    }
}

TEST(BlockChecksum, OneFlippedBitOrSwappedWordsChangeIt) {
    std::mt19937_64 rng(test::test_seed() + 1);
    std::vector<unsigned char> block = test::random_bytes(rng, 65536);
    const uint32_t seed = 12345;
    const uint32_t clean = block_checksum(block.data(), block.size(), seed);
    for (int trial = 0; trial < 200; ++trial) {
        const size_t at = rng() % block.size();
        const unsigned char bit = static_cast<unsigned char>(1u << (rng() % 8));
        block[at] ^= bit;
        EXPECT_NE(block_checksum(block.data(), block.size(), seed), clean) << at;
        block[at] ^= bit;
    }
    // Word order matters: the two halves of a 64-bit value are different digits.
    std::swap_ranges(block.begin(), block.begin() + 4, block.begin() + 4);
    if (std::memcmp(block.data(), block.data() + 4, 4) != 0) {
        EXPECT_NE(block_checksum(block.data(), block.size(), seed), clean);
    }
    EXPECT_NE(block_checksum(block.data(), block.size(), seed + 1), block_checksum(block.data(), block.size(), seed));
}

}  // namespace
}  // namespace qmp
