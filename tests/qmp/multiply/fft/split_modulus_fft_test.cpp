// The split-modulus product: exact against Karatsuba (an independent code path) where affordable
// and against residues modulo three primes beyond, for balanced products, squares, a long
// operand that must be cut, products below the minimum size, and the structured operands that
// stress the rounding; the join's checks fire on a corrupted residue; the scratch is about
// two thirds of the single transform's.
#include "qmp/multiply/fft/split_modulus_fft.h"

#include "qmp/exception.h"
#include "qmp/multiply/fft/fftv4.h"
#include "tests/qmp/multiply/multiply_test_support.h"

#include <gtest/gtest.h>

#include <vector>

namespace qmp {
namespace {

using test::Rng;

std::vector<uint64_t> operand(Rng& rng, uint64_t n, int kind) {
    std::vector<uint64_t> a(n);
    for (uint64_t i = 0; i < n; ++i) a[i] = kind == 0 ? rng.next() : kind == 1 ? ~uint64_t(0) : uint64_t(1) << (i % 64);
    return a;
}

std::vector<uint64_t> product(const SplitModulusFFT& sft, const std::vector<uint64_t>& A, const std::vector<uint64_t>& B,
                              bool square) {
    std::vector<uint64_t> C(A.size() + B.size(), 0x5a5a5a5a5a5a5a5aull);
    std::vector<char> scratch(sft.multiply_buffer_bytes(C.size()));
    if (square) sft.square(C.data(), A.data(), A.size(), scratch.data(), scratch.size(), {});
    else sft.multiply(C.data(), A.data(), A.size(), B.data(), B.size(), scratch.data(), scratch.size(), {});
    return C;
}

TEST(SplitModulusFFT, ExactProductsOfEveryShape) {
    SCOPED_TRACE(test::seed_note());
    Rng rng(test::test_seed() + 51);
    const SplitModulusFFT sft(uint64_t(1) << 30);
    struct Shape {
        uint64_t al, bl;
    };
    // Balanced, a square-sized pair, a long A that is cut, tiny products, sizes across transforms.
    const std::vector<Shape> shapes = {{3000, 3000}, {5000, 4999}, {9000, 1100}, {20, 7},
                                       {30001, 29000}, {40000, 3}, {70000, 65536}};
    for (const Shape& s : shapes) {
        for (int kind = 0; kind < 3; ++kind) {
            SCOPED_TRACE("AL=" + std::to_string(s.al) + " BL=" + std::to_string(s.bl) + " kind=" + std::to_string(kind));
            const auto A = operand(rng, s.al, kind), B = operand(rng, s.bl, kind == 2 ? 0 : kind);
            const auto C = product(sft, A, B, false);
            if (s.al * s.bl <= 100000000) {
                ASSERT_EQ(C, test::karatsuba_product(A, B));
            } else {
                ASSERT_TRUE(test::residues_match(A, B, C));
            }
            if (s.al == s.bl) {
                ASSERT_EQ(product(sft, A, A, true), test::karatsuba_product(A, A));
            }
        }
    }
}

std::atomic<int> g_flips{0};
void flip_word(uint64_t* r1, uint64_t words) {
    g_flips.fetch_add(1);
    r1[words / 3] ^= uint64_t(1) << 40;
}

TEST(SplitModulusFFT, JoinChecksFireAndScratchIsSmaller) {
    Rng rng(test::test_seed() + 52);
    const SplitModulusFFT sft(uint64_t(1) << 30);
    const auto A = operand(rng, 20000, 0), B = operand(rng, 19000, 0);
    SplitModulusFFT::set_fault_injector(flip_word);
    try {
        product(sft, A, B, false);
        ADD_FAILURE() << "no exception";
    } catch (const AlgorithmFailedException& e) {
        EXPECT_EQ(e.message(), "Checksum Mismatch. Multiplication Failed.");
        EXPECT_EQ(e.function(), "SFTv4::multiply()");
    }
    SplitModulusFFT::set_fault_injector(nullptr);
    EXPECT_GT(g_flips.load(), 0);
    EXPECT_EQ(product(sft, A, B, false), test::karatsuba_product(A, B));

    // The point of the algorithm: the scratch of large products, against one transform's (at
    // most 0.9 of it: both release in place, and their sizes are quantized differently).
    const FFTv4 fft;
    for (uint64_t P : {uint64_t(1100000), uint64_t(6000000), uint64_t(20000000)})
        EXPECT_LT(double(sft.multiply_buffer_bytes(P)), 0.9 * double(fft.multiply_buffer_bytes(P))) << P;
}

}  // namespace
}  // namespace qmp
