// Plan-time behaviour of the transforms: the reduction table, the construction checks and their
// order and texts, the twiddle tables' checks and their accuracy against long double.
#include "qmp/multiply/fft/plan.h"
#include "qmp/multiply/fft/reduction.h"
#include "qmp/multiply/fft/transform.h"
#include "qmp/multiply/fft/twiddle_tables.h"

#include "qmp/exception.h"
#include "tests/test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

namespace qmp::fft {
namespace {

using qmp::test::expect_throw;

TEST(FftReduction, TableRows) {
    struct Row { int m, k, d, w; };
    const Row rows[] = {{1, 2, 1, 1},  {1, 7, 1, 1},  {1, 8, 2, 2},  {1, 9, 3, 4},
                        {1, 10, 2, 2}, {1, 11, 2, 2}, {1, 12, 3, 4}, {1, 30, 3, 4},
                        {3, 7, 1, 3},  {3, 25, 1, 3}, {5, 9, 1, 5},  {7, 20, 1, 7}};
    for (const Row r : rows) {
        const Reduction& red = get_reduction(r.m, r.k);
        EXPECT_EQ(red.depth, r.d) << "m=" << r.m << " k=" << r.k;
        EXPECT_EQ(red.sub_transforms, r.w) << "m=" << r.m << " k=" << r.k;
        EXPECT_EQ(red.sub_transforms, r.m << (r.d - 1));
        EXPECT_EQ(red.scale, 1.0 / r.m);
    }
    for (const int m : {0, 2, 4, 6, 9, -1})
        expect_throw<InvalidParametersException>([m] { get_reduction(m, 12); },
                                                 "FFTv4::get_reduction()", "Invalid multiplier.");
}

TEST(FftTransformChecks, MessagesAndOrder) {
    using IPE = InvalidParametersException;
    const std::string small = "FFTv4::SmallTransform()", large = "FFTv4::LargeTransform()";
    // The multiplier is checked first, then the minimum length, then the block size.
    expect_throw<IPE>([] { SmallTransform(2, 5, 30); }, "FFTv4::get_reduction()", "Invalid multiplier.");
    expect_throw<IPE>([] { SmallTransform(1, 6, 30); }, small, "Transform length is below minimum size.");
    expect_throw<IPE>([] { LargeTransform(3, 6, 30); }, large, "Transform length is below minimum size.");
    // k - d = 5 at m = 1, k = 6; k = 7, 8 and 9 reach exactly 6 through the irregular rows.
    for (const int k : {7, 8, 9}) EXPECT_NO_THROW(SmallTransform(1, k, 0)) << k;
    expect_throw<IPE>([] { SmallTransform(1, 10, 11); }, small,
                      "Transform length is not divisible by conversion block size.");
    EXPECT_NO_THROW(SmallTransform(1, 10, 10));
    // m = 1, k = 12: d = 3, sub-transforms of 2^9.
    expect_throw<IPE>([] { LargeTransform(1, 12, 10); }, large,
                      "Sub-transform length is smaller than the conversion block size.");
    EXPECT_NO_THROW(LargeTransform(1, 12, 9));
    expect_throw<IPE>([] { get_transform(1, 6, 0); }, small, "Transform length is below minimum size.");
}

TEST(FftTransformChecks, SharedTransformsAreBuiltOnce) {
    const Transform& a = get_transform(5, 12, 0);
    EXPECT_EQ(&a, &get_transform(5, 12, 0));
    EXPECT_EQ(a.complex_points(), 5u << 11);
    // 5 sub-transforms of 2^11 points = 256 blocks, each padded by 1 + 256/128 blocks, + 1.
    EXPECT_EQ(a.work_bytes(), (5 * (256 + 1 + 2) + 1) * 128u);
    EXPECT_EQ(a.scratch_bytes(4), 0u);
    // Buffer sizing reads the same figures from the shape alone, without building a transform.
    int streaming = 0;
    for (int m : {1, 3, 5, 7}) {
        for (int k = minimum_k(m); k <= 17; ++k) {
            const Transform& t = get_transform(m, k, 0);
            EXPECT_EQ(transform_work_bytes(m, k), t.work_bytes()) << m << " " << k;
            EXPECT_EQ(transform_streams_input(m, k), t.streams_input()) << m << " " << k;
            EXPECT_EQ(transform_scratch_bytes(m, k, 4), t.scratch_bytes(4));
            streaming += t.streams_input();
        }
    }
    EXPECT_GT(streaming, 0);
}

TEST(FftTwiddleTables, ChecksAndMessages) {
    using IPE = InvalidParametersException;
    const RootFraction root{1, 4};
    expect_throw<IPE>([&] { StraightTable(root, 2); }, "FFTv4::StraightTable()", "Table is below minimum size.");
    expect_throw<IPE>([&] { InterleavedTable(root, 2); }, "FFTv4::InterleavedTable()",
                      "Table is below minimum size.");
    const StraightTable s(root, 4);
    const InterleavedTable t(root, 3);
    EXPECT_NO_THROW(s.twiddle(3, 7));
    expect_throw<IPE>([&] { s.twiddle(4, 3); }, "FFTv4::StraightTable::twiddle()",
                      "Twiddle factor is too deep for this table.\n    k = 4\n    vindex = 3");
    EXPECT_NO_THROW(t.twiddle(5, 31));
    expect_throw<IPE>([&] { t.twiddle(6, 9); }, "FFTv4::InterleavedTable::twiddle()",
                      "Twiddle factor is too deep for this table.\n    k = 6\n    vindex = 9");
}

// Every entry within one ulp (of 1) of exp(2 pi i (p + q*bitrev_D(g)) / (q 2^(D+1))) computed
// directly in long double, for the roots the transforms use (quarter turn, the m = 1 sub-roots,
// and a radix-7 sub-root).
TEST(FftTwiddleTables, EntriesWithinOneUlpOfLongDouble) {
    const long double two_pi = 6.283185307179586476925286766559005768L;
    const double ulp = std::ldexp(1.0, -53);
    const RootFraction roots[] = {{1, 4}, {5, 16}, {13, 28}};
    for (const RootFraction root : roots) {
        const int levels = 12;
        const StraightTable s(root, levels);
        const InterleavedTable t(root, levels);
        auto check = [&](int d, uint64_t g, Cplx v) {
            const long double a = two_pi * (root.p + root.q * (long double)bit_reverse(g, d)) /
                                  (long double)(root.q << (d + 1));
            ASSERT_LE(std::fabs((double)(cosl(a) - v.re)), ulp) << d << " " << g;
            ASSERT_LE(std::fabs((double)(sinl(a) - v.im)), ulp) << d << " " << g;
        };
        for (int d = 0; d < levels; ++d)
            for (uint64_t g = 0; g < (uint64_t(1) << d); ++g) check(d, g, s.twiddle(d, g));
        for (int d = levels; d < levels + 3; ++d)
            for (uint64_t g = 0; g < (uint64_t(1) << d); ++g) check(d, g, t.twiddle(d, g));
    }
}

}  // namespace
}  // namespace qmp::fft
