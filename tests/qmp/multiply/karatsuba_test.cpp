// Karatsuba products and squares against the 32-bit oracle. Small thresholds force deep
// recursion so that every shape rule (balanced, odd splits, the s x t corner product, pieces
// of a long operand) runs on small sizes; the shipped thresholds are tested around their
// cross-overs and at thousands of words. Scratch is filled with garbage and guarded, and the
// exact scratch need of each shape is checked against the bound the tables publish.
#include "qmp/multiply/karatsuba.h"

#include <algorithm>

#include "qmp/multiply/bkt_algorithm.h"
#include "tests/qmp/multiply/multiply_test_support.h"

namespace qmp::test {
namespace {

void check_mul_shape(Rng& rng, uint64_t al, uint64_t bl, Pattern pattern, const KaratsubaThresholds& th) {
    SCOPED_TRACE("AL=" + std::to_string(al) + " BL=" + std::to_string(bl) + " pattern=" +
                 std::to_string(int(pattern)) + " kmin=" + std::to_string(th.mul_min_words) + " tmin=" + std::to_string(th.toom3_mul_min_words));
    auto A = make_operand(rng, al, pattern), B = make_operand(rng, bl, pattern);
    Guarded C(al + bl), S(bkt_mul_itch(al, bl, th));
    bkt_mul(C.data(), A.data(), al, B.data(), bl, S.data(), th);
    ASSERT_TRUE(C.guards_intact());
    ASSERT_TRUE(S.guards_intact());
    ASSERT_EQ(C.contents(), oracle_mul(A, B));
}

void check_sqr_shape(Rng& rng, uint64_t n, Pattern pattern, const KaratsubaThresholds& th) {
    SCOPED_TRACE("AL=" + std::to_string(n) + " pattern=" + std::to_string(int(pattern)) +
                 " smin=" + std::to_string(th.sqr_min_words) + " tmin=" + std::to_string(th.toom3_sqr_min_words));
    auto A = make_operand(rng, n, pattern);
    Guarded C(2 * n), S(bkt_sqr_itch(n, th));
    bkt_sqr(C.data(), A.data(), n, S.data(), th);
    ASSERT_TRUE(C.guards_intact());
    ASSERT_TRUE(S.guards_intact());
    ASSERT_EQ(C.contents(), oracle_mul(A, A));
}

TEST(Karatsuba, DeepRecursionEveryShapeMatchesOracle) {
    SCOPED_TRACE(seed_note());
    Rng rng(test_seed() + 2);
    // (Karatsuba, Toom-3) thresholds; Toom-3 from 3 words reaches its smallest shapes.
    for (auto [kmin, tmin] : std::vector<std::pair<uint64_t, uint64_t>>{{2, ~0ull}, {3, ~0ull}, {5, ~0ull}, {2, 3}, {3, 7}, {4, 12}}) {
        KaratsubaThresholds th{kmin, kmin, tmin, tmin};
        for (uint64_t al = 1; al <= 40; ++al)
            for (uint64_t bl = 1; bl <= al; ++bl)
                check_mul_shape(rng, al, bl, bl % 3 == 0 ? Pattern::Runs : Pattern::Random, th);
        for (uint64_t n = 1; n <= 70; ++n) check_sqr_shape(rng, n, n % 2 ? Pattern::Runs : Pattern::Random, th);
        if (HasFatalFailure()) return;
    }
}

TEST(Karatsuba, ShippedThresholdsAroundCrossoversAndLarge) {
    SCOPED_TRACE(seed_note());
    Rng rng(test_seed() + 3);
    const KaratsubaThresholds th = default_karatsuba_thresholds();
    std::vector<uint64_t> sizes;
    for (uint64_t t : {th.mul_min_words, th.sqr_min_words, 2 * th.mul_min_words, th.toom3_mul_min_words,
                       th.toom3_sqr_min_words})
        for (int64_t d = -2; d <= 2; ++d) sizes.push_back(t + d);
    sizes.push_back(1000);
    sizes.push_back(2500);
    for (uint64_t n : sizes) {
        for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
            check_mul_shape(rng, n, n, pattern, th);
            check_mul_shape(rng, n, (n + 3) / 2, pattern, th);       // just above half: odd corner
            check_mul_shape(rng, 3 * n + 7, n, pattern, th);         // pieces of a long operand
            check_sqr_shape(rng, n, pattern, th);
            if (HasFatalFailure()) return;
        }
    }
}

// The tables size buffers from bkt_itch_bound() without knowing the shape; a shape that needs
// more would overrun a buffer the caller sized correctly.
TEST(Karatsuba, ScratchBoundCoversEveryShape) {
    for (auto [kmin, tmin] : std::vector<std::pair<uint64_t, uint64_t>>{{2, ~0ull}, {3, 3}, {2, 9}, {32, ~0ull}, {32, 100}}) {
        KaratsubaThresholds th{kmin, kmin, tmin, tmin};
        const uint64_t all_shapes_up_to = kmin < 32 ? 300 : 1500;
        for (uint64_t p = 2; p <= all_shapes_up_to; ++p) {
            for (uint64_t bl = 1; bl <= p / 2; ++bl)
                ASSERT_LE(bkt_mul_itch(p - bl, bl, th), bkt_itch_bound(p)) << "P=" << p << " BL=" << bl;
            if (p % 2 == 0) {
                ASSERT_LE(bkt_sqr_itch(p / 2, th), bkt_itch_bound(p)) << "P=" << p;
            }
        }
        for (uint64_t p : {uint64_t(20001), uint64_t(65536), uint64_t(99999)}) {
            for (uint64_t bl : {p / 2, p / 3 + 1, p / 3 - 1, p / 5, kmin, p / 2 - 1})
                ASSERT_LE(bkt_mul_itch(p - bl, bl, th), bkt_itch_bound(p)) << "P=" << p << " BL=" << bl;
        }
    }
}

}  // namespace
}  // namespace qmp::test
