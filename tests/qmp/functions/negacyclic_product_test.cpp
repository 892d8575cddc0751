// The negacyclic product (qmp/multiply/fft/negacyclic_product.h) against the schoolbook product reduced
// modulo B^N + 1 in the test: operands up to N - 1 words, products that wrap and products that
// do not, all-ones operands (the largest coefficients), and three results of one stored
// transform (two partners and the square).
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "qmp/multiply/fft/negacyclic_product.h"
#include "qmp/console.h"
#include "tests/qmp/functions/functions_test_support.h"
#include "tests/qmp/multiply/fft/fft_test_support.h"

namespace qmp::test {
namespace {

// (A B) mod (B^N + 1) as N + 1 words: the product's words L + H B^N give L - H.
std::vector<uint64_t> reference(const std::vector<uint64_t>& a, const std::vector<uint64_t>& b, uint64_t N) {
    Mag P = mag_mul(to_mag(a.data(), a.size()), to_mag(b.data(), b.size()));
    Mag M = mag_add(shift_left(Mag{1}, 64 * N), Mag{1});
    // P < M^2 here, so one division step by comparison-and-subtract of shifted M would be slow;
    // use P = L + H B^N with H < B^N: L - H (+ M when negative).
    Mag L(P.begin(), P.begin() + std::min<size_t>(P.size(), 2 * N)), H;
    if (P.size() > 2 * N) H.assign(P.begin() + 2 * N, P.end());
    L = trimmed(L);
    H = trimmed(H);
    Mag R = mag_cmp(L, H) >= 0 ? mag_add(L, H, true) : mag_add(mag_add(L, M), H, true);
    std::vector<uint64_t> words(N + 1, 0);
    for (size_t i = 0; i < R.size(); ++i) words[i / 2] |= uint64_t(R[i]) << (32 * (i % 2));
    return words;
}

TEST(NegacyclicProductTest, MatchesTheReducedExactProduct) {
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 7);
    for (uint64_t min_words : {300, 2000, 9000}) {
        const fft::NegacyclicProduct wp(min_words);
        const uint64_t N = wp.modulus_words();
        ASSERT_GE(N, min_words);
        GuardedScratch stored(wp.stored_bytes()), scratch(wp.scratch_bytes());
        for (int trial = 0; trial < 3; ++trial) {
            SCOPED_TRACE("N=" + std::to_string(N) + " trial=" + std::to_string(trial));
            const uint64_t al = trial == 0 ? N - 1 : 1 + rng() % (N - 1), bl = trial == 1 ? N / 3 : 1 + rng() % (N - 1);
            std::vector<uint64_t> a = random_operand<uint64_t>(rng, al), b = random_operand<uint64_t>(rng, bl);
            if (trial == 0) std::fill(a.begin(), a.end(), ~uint64_t(0));
            wp.forward(stored.buffer.data(), a.data(), al, scratch.buffer.data(), nullptr, 1);
            std::vector<uint64_t> c(N + 1);
            wp.multiply(c.data(), stored.buffer.data(), b.data(), bl, scratch.buffer.data(), nullptr, 1);
            EXPECT_TRUE(c == reference(a, b, N));
            // The stored transform is intact: a second partner gives its own product.
            std::vector<uint64_t> d = random_operand<uint64_t>(rng, 1 + rng() % 40), e(N + 1);
            wp.multiply(e.data(), stored.buffer.data(), d.data(), d.size(), scratch.buffer.data(), nullptr, 1);
            EXPECT_TRUE(e == reference(a, d, N));
            if (N < 5000 || al < 3000) {  // keeps the schoolbook reference short
                wp.square(e.data(), stored.buffer.data(), scratch.buffer.data(), nullptr, 1);
                EXPECT_TRUE(e == reference(a, a, N));
            }
            EXPECT_TRUE(stored.intact() && scratch.intact());
        }
    }
}

// Operands aligned to the default dither defeat the first attempt; the redo (fresh digits for the
// partner, or for the operand taken back from its transform in a square) is exact, and the
// stored transform keeps working.
TEST(NegacyclicProductTest, DitherAlignedOperandsAreRedoneExactly) {
    const fft::NegacyclicProduct wp(2000);
    const uint64_t N = wp.modulus_words();
    const std::vector<uint64_t> a = fft::test::dither_aligned_words(N - 1, wp.size().bits);
    GuardedScratch stored(wp.stored_bytes()), scratch(wp.scratch_bytes());
    wp.forward(stored.buffer.data(), a.data(), a.size(), scratch.buffer.data(), nullptr, 1);
    std::vector<uint64_t> c(N + 1);
    const size_t events = EventLog::entries().size();
    wp.multiply(c.data(), stored.buffer.data(), a.data(), a.size(), scratch.buffer.data(), nullptr, 1);
    const auto a2 = reference(a, a, N);
    EXPECT_TRUE(c == a2);
    wp.square(c.data(), stored.buffer.data(), scratch.buffer.data(), nullptr, 1);
    EXPECT_TRUE(c == a2);
    EXPECT_EQ(EventLog::entries().size(), events + 2);
    std::mt19937_64 rng(test_seed() + 8);
    const std::vector<uint64_t> b = random_operand<uint64_t>(rng, N / 2);
    wp.multiply(c.data(), stored.buffer.data(), b.data(), b.size(), scratch.buffer.data(), nullptr, 1);
    EXPECT_TRUE(c == reference(a, b, N));
    EXPECT_TRUE(stored.intact() && scratch.intact());
}

}  // namespace
}  // namespace qmp::test
