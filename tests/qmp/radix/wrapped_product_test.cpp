// The wrapped stored-transform product that the power table uses, against the schoolbook
// product of the number-type tests reduced by hand: with V = A * B, L = V mod 2^N and
// H = floor(V / 2^N), the kept words are those of L - H, or of L - H + 1 when L < H (the wrap
// adds 2^N + 1, and 2^N vanishes below N).
#include "qmp/multiply/fft/wrapped_product.h"

#include <gtest/gtest.h>

#include <random>

#include "qmp/console.h"
#include "tests/qmp/multiply/fft/fft_test_support.h"
#include "tests/qmp/radix/radix_test_support.h"

namespace qmp::test {
namespace {

// Bits [from, to) of a magnitude (32-bit halves), as a magnitude.
Mag bit_range(const Mag& a, uint64_t from, uint64_t to) {
    Mag r((to - from + 31) / 32, 0);
    for (uint64_t i = from; i < to; ++i)
        if (i / 32 < a.size() && ((a[i / 32] >> (i % 32)) & 1)) r[(i - from) / 32] |= uint32_t(1) << ((i - from) % 32);
    return trimmed(r);
}

TEST(WrappedProduct, KeptWordsMatchTheReducedSchoolbookProduct) {
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed());
    const size_t events = EventLog::entries().size();
    for (auto [a_words, b_words] : {std::pair<uint64_t, uint64_t>{20, 9}, {200, 99}, {1000, 480}, {3000, 2990}}) {
        const fft::WrappedProduct product(a_words, b_words, a_words + 1);
        const uint64_t N = uint64_t(product.size().bits) * product.size().real_points();
        ASSERT_GE(N, 64 * (a_words + 2));
        Scratch scratch(product.scratch_bytes()), T(product.transform_bytes());
        for (int round = 0; round < 4; ++round) {
            std::vector<uint64_t> A = random_operand<uint64_t>(rng, a_words - round % 3);
            std::vector<uint64_t> B = random_operand<uint64_t>(rng, b_words);
            if (round == 2 && a_words == 3000) {
                // Both operands aligned to the default dither: the first attempt fails and the
                // redo with fresh digits for A is exact.
                A = fft::test::dither_aligned_words(A.size(), product.size().bits);
                B = fft::test::dither_aligned_words(B.size(), product.size().bits);
            }
            if (round == 3) {
                // Only top words: V = a b 2^(64 (AL + BL - 2)) lies above N, so L = 0 < H.
                std::fill(A.begin(), A.end() - 1, 0);
                std::fill(B.begin(), B.end() - 1, 0);
            }
            product.forward_stored(T.buffer.data(), B.data(), B.size(), scratch.buffer.data(), nullptr, 1);
            std::vector<uint64_t> C(a_words + 2, 0xAAAAAAAAAAAAAAAAull);
            product.multiply(C.data(), A.data(), A.size(), T.buffer.data(), scratch.buffer.data(), nullptr, 1);
            EXPECT_EQ(C[a_words + 1], 0xAAAAAAAAAAAAAAAAull) << "write past the kept words";

            const Mag V = mag_mul(to_mag(A.data(), A.size()), to_mag(B.data(), B.size()));
            const Mag L = bit_range(V, 0, N), H = bit_range(V, N, std::max<uint64_t>(N, 32 * V.size()));
            const uint64_t kept_bits = 64 * (a_words + 1);
            // Modulo 2^kept_bits: L - H, plus one when it is negative (add 2^kept_bits first).
            Mag expected;
            if (mag_cmp(L, H) >= 0) {
                expected = bit_range(mag_add(L, H, true), 0, kept_bits);
            } else {
                Mag big = bit_range(L, 0, kept_bits);
                big.resize(kept_bits / 32 + 1, 0);
                big.back() = 1;
                expected = bit_range(mag_add(mag_add(big, {1}), H, true), 0, kept_bits);
            }
            EXPECT_EQ(to_mag(C.data(), a_words + 1), expected) << "a=" << a_words << " round " << round;
        }
    }
    EXPECT_EQ(EventLog::entries().size(), events + 1);
}

// Operands split inside the column pass and released from the work area give the words of
// the points-array path (exact above) on a four-step transform.
TEST(WrappedProduct, StreamedOperandsGiveTheWordsOfThePointsPath) {
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 1);
    const uint64_t a_words = 120000, b_words = 60000;
    const fft::WrappedProduct plain(a_words, b_words, a_words + 1, fft::DigitMode::Dithered, ~uint64_t(0));
    const fft::WrappedProduct streamed(a_words, b_words, a_words + 1, fft::DigitMode::Dithered, 0);
    ASSERT_LT(streamed.scratch_bytes(), plain.scratch_bytes());
    const std::vector<uint64_t> A = random_operand<uint64_t>(rng, a_words), B = random_operand<uint64_t>(rng, b_words);
    std::vector<uint64_t> words[2];
    for (const fft::WrappedProduct* product : {&plain, &streamed}) {
        Scratch scratch(product->scratch_bytes()), T(product->transform_bytes());
        product->forward_stored(T.buffer.data(), B.data(), B.size(), scratch.buffer.data(), nullptr, 1);
        std::vector<uint64_t>& C = words[product == &streamed];
        C.assign(a_words + 1, 0);
        product->multiply(C.data(), A.data(), A.size(), T.buffer.data(), scratch.buffer.data(), nullptr, 1);
    }
    EXPECT_EQ(words[0], words[1]);
}

}  // namespace
}  // namespace qmp::test
