// Karatsuba over the transforms, with pieces capped low so that small products take one, two
// and three levels: exact against Karatsuba on words (an independent code path) for balanced,
// unequal and short partners and squares; the default table reaches it beyond the split-modulus
// FFT and its scratch bound is met.
#include "qmp/multiply/fft/karatsuba_transforms.h"

#include "qmp/multiply/fft/fftv4.h"

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "tests/qmp/multiply/multiply_test_support.h"

#include <gtest/gtest.h>

#include <vector>

namespace qmp {
namespace {

using test::Rng;

TEST(KaratsubaTransforms, ExactOverOneToThreeLevels) {
    SCOPED_TRACE(test::seed_note());
    Rng rng(test::test_seed() + 61);
    const KaratsubaTransforms mulb(uint64_t(1) << 30, 10000);
    struct Shape {
        uint64_t al, bl;
    };
    const std::vector<Shape> shapes = {{6000, 5000}, {9001, 9000}, {20000, 3000}, {30000, 29999},
                                       {40000, 7}, {25000, 12600}};
    for (const Shape& s : shapes) {
        for (int kind = 0; kind < 2; ++kind) {
            SCOPED_TRACE("AL=" + std::to_string(s.al) + " BL=" + std::to_string(s.bl) + " kind=" + std::to_string(kind));
            std::vector<uint64_t> A(s.al), B(s.bl);
            for (auto& w : A) w = kind == 0 ? rng.next() : ~uint64_t(0);
            for (auto& w : B) w = kind == 0 ? rng.next() : ~uint64_t(0);
            std::vector<uint64_t> C(s.al + s.bl), scratch(mulb.multiply_buffer_bytes(C.size()) / 8 + 1);
            mulb.multiply(C.data(), A.data(), s.al, B.data(), s.bl, scratch.data(), scratch.size() * 8, {});
            ASSERT_EQ(C, test::karatsuba_product(A, B));
            if (s.al == s.bl + 1) {
                std::vector<uint64_t> S(2 * s.al), sq(mulb.multiply_buffer_bytes(S.size()) / 8 + 1);
                mulb.square(S.data(), A.data(), s.al, sq.data(), sq.size() * 8, {});
                ASSERT_EQ(S, test::karatsuba_product(A, A));
            }
        }
    }
}

TEST(KaratsubaTransforms, DefaultTableServesProductsBeyondTheSplitModulusFFT) {
    AlgorithmRegistry registry;
    register_builtin_algorithms(registry);
    const AlgorithmTableB table = make_default_table(registry);
    const uint64_t beyond = SplitModulusFFT::max_product_words() + 1;
    EXPECT_STREQ(table.get_algorithm(beyond).name(), "MULB");
    EXPECT_STREQ(table.get_algorithm(beyond - 1024).name(), "SFTv4");
    // Its levels' words and one piece's transform: below the three arrays of one transform of
    // the whole product (sizes kept small here: a transform's tables are built on first use).
    const KaratsubaTransforms mulb(uint64_t(1) << 30, 10000);
    EXPECT_LT(mulb.multiply_buffer_bytes(40000), FFTv4().multiply_buffer_bytes(40000));
}

}  // namespace
}  // namespace qmp
