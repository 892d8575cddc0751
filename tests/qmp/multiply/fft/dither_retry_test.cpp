// Operands built against the default dither: every b-bit digit field equals its threshold, so
// every digit comes out as a large value of one sign and the first attempt of a product fails its
// rounding check. The redo splits with fresh digits and must give the exact product, for fresh
// products at sizes across the limit table's rows and for every stored-transform form (whose
// stored transform must keep working afterwards).
#include "qmp/multiply/fft/fftv4.h"

#include "qmp/multiply/fft/split.h"
#include "tests/qmp/multiply/fft/fft_test_support.h"
#include "tests/qmp/multiply/multiply_test_support.h"

#include <gtest/gtest.h>

#include <vector>

namespace qmp {
namespace {

using fft::test::dither_aligned_words;
using test::Rng;

TEST(DitherRetry, AlignedOperandsMultiplyExactlyAcrossTheRows) {
    const FFTv4 fft;
    // Square sizes from one row of the limit table to the next (the last one is a four-step size).
    for (uint64_t words : {uint64_t(1000), uint64_t(6000), uint64_t(40000), uint64_t(160000)}) {
        SCOPED_TRACE("words=" + std::to_string(words));
        const int bits = fft.plan(2 * words).bits;
        const auto A = dither_aligned_words(words, bits);
        const auto B = dither_aligned_words(words, bits);
        const auto expected = test::karatsuba_product(A, B);
        std::vector<char> scratch(fft.multiply_buffer_bytes(2 * words));
        std::vector<uint64_t> C(2 * words);

        const uint64_t retries = FFTv4::retry_count();
        fft.square(C.data(), A.data(), words, scratch.data(), scratch.size(), {});
        EXPECT_EQ(C, expected);
        // The operand did defeat the default digits: the square needed its redo.
        EXPECT_EQ(FFTv4::retry_count(), retries + 1);
        std::fill(C.begin(), C.end(), 0);
        fft.multiply(C.data(), A.data(), words, B.data(), words, scratch.data(), scratch.size(), {});
        EXPECT_EQ(C, expected);
    }
}

TEST(DitherRetry, StoredTransformsRedoAndKeepWorking) {
    Rng rng(test::test_seed() + 41);
    const FFTv4 fft;
    for (uint64_t words : {uint64_t(1000), uint64_t(20000)}) {
        SCOPED_TRACE("words=" + std::to_string(words));
        const uint64_t max_words = 2 * words;
        const int bits = fft.plan(max_words).bits;
        const auto A = dither_aligned_words(words, bits);
        const auto A2 = test::karatsuba_product(A, A);
        std::vector<char> TA(fft.transform_buffer_bytes(max_words)), TB(fft.transform_buffer_bytes(max_words));
        std::vector<char> scratch(fft.stored_multiply_buffer_bytes(max_words));
        fft.forward_operand(TA.data(), TA.size(), A.data(), words, max_words, scratch.data(), scratch.size(), {});
        fft.forward_operand(TB.data(), TB.size(), A.data(), words, max_words, scratch.data(), scratch.size(), {});
        std::vector<uint64_t> C(2 * words);

        uint64_t retries = FFTv4::retry_count();
        fft.square_transformed(C.data(), TA.data(), scratch.data(), scratch.size(), {});
        EXPECT_EQ(C, A2);
        EXPECT_EQ(FFTv4::retry_count(), retries + 1);
        retries = FFTv4::retry_count();
        fft.multiply_transformed(C.data(), TA.data(), TB.data(), scratch.data(), scratch.size(), {});
        EXPECT_EQ(C, A2);
        EXPECT_EQ(FFTv4::retry_count(), retries + 1);
        retries = FFTv4::retry_count();
        fft.multiply_transformed(C.data(), TA.data(), A.data(), words, scratch.data(), scratch.size(), {});
        EXPECT_EQ(C, A2);
        EXPECT_EQ(FFTv4::retry_count(), retries + 1);

        // The stored transforms still hold their operand: ordinary partners multiply exactly.
        std::vector<uint64_t> R(words * 3 / 4);
        for (auto& w : R) w = rng.next();
        std::vector<uint64_t> D(words + R.size());
        fft.multiply_transformed(D.data(), TA.data(), R.data(), R.size(), scratch.data(), scratch.size(), {});
        EXPECT_EQ(D, test::karatsuba_product(A, R));
        fft.square_transformed(C.data(), TB.data(), scratch.data(), scratch.size(), {});
        EXPECT_EQ(C, A2);
    }
}

}  // namespace
}  // namespace qmp
