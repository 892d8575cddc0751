// The transform against a naive negacyclic product (every multiplier, every reduction row, both
// execution shapes), impulses, linearity, agreement of every kernel path and thread split, the
// precision guard at the table's bits per point, and a perturbed twiddle being caught.
#include "qmp/multiply/fft/transform.h"

#include "qmp/cpu_features.h"
#include "qmp/multiply/fft/limit_table.h"
#include "qmp/multiply/fft/transform_engine.h"
#include "tests/qmp/multiply/fft/fft_test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace qmp::fft {
namespace {

using test::Digits;

// Runs every task on its own thread (the caller takes task 0), so splits really run concurrently.
class ThreadPerTask final : public Parallelizer {
public:
    void run_in_parallel(uint64_t count, TaskFunction task) override {
        std::vector<std::thread> threads;
        for (uint64_t i = 1; i < count; ++i) threads.emplace_back([&task, i] { task(i); });
        if (count > 0) task(0);
        for (auto& t : threads) t.join();
    }
    std::string description() const override { return "thread per task (test)"; }
};

// Restores the detected instruction-set level when a test that forces one ends.
struct SimdGuard {
    ~SimdGuard() { force_simd_level(detected_simd_level()); }
};

// Exact against the oracle: every coefficient when the naive product is cheap, else 256 sampled
// ones; in both cases the rounding distance of all coefficients stays small.
void expect_exact(const test::ProductResult& r, const Digits& x, const Digits& y,
                  std::mt19937_64& rng) {
    const uint64_t count = x.size();
    ASSERT_LT(r.max_distance, 0.25);
    EXPECT_TRUE(r.guard_intact);
    if (count <= 4096) {
        const Digits c = test::negacyclic_naive(x, y);
        for (uint64_t t = 0; t < count; ++t)
            ASSERT_EQ(int64_t(std::rint(r.coef[t])), c[t]) << "coefficient " << t;
    } else {
        for (int s = 0; s < 256; ++s) {
            const uint64_t t = s < 2 ? (s == 0 ? 0 : count - 1) : rng() % count;
            ASSERT_EQ(int64_t(std::rint(r.coef[t])), int64_t(test::negacyclic_at(x, y, t)))
                << "coefficient " << t;
        }
    }
}

TEST(FftTransform, ProductsMatchNaiveForEveryMultiplierAndReductionRow) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed());
    struct Size { int m, k_first, k_last; };
    // m = 1 covers all three reduction rows (k = 7; 8, 10, 11; 9, 12+) and the four-step shape
    // from k = 14; m = 3, 5, 7 reach the four-step shape at k = 12.
    // From 2^19 complex points (m = 1, k = 20; m = 3, k = 19) the rows' twiddles are factored.
    for (const Size s : {Size{1, 7, 15}, Size{3, 7, 12}, Size{5, 7, 12}, Size{7, 7, 12}, Size{1, 20, 20},
                         Size{3, 19, 19}}) {
        for (int k = s.k_first; k <= s.k_last; ++k) {
            SCOPED_TRACE("m=" + std::to_string(s.m) + " k=" + std::to_string(k));
            const Transform& t = get_transform(s.m, k, 0);
            const uint64_t count = 2 * t.complex_points();
            const Digits x = test::random_digits(rng, count, count, 10);
            const Digits y = test::random_digits(rng, count, count, 10);
            expect_exact(test::transform_product(t, x, &y), x, y, rng);
            expect_exact(test::transform_product(t, x, nullptr), x, x, rng);
        }
    }
}

TEST(FftTransform, OutputMayAliasInputBufferOrWork) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed() + 1);
    for (const int m : {1, 5}) {
        const Transform& t = get_transform(m, 11, 0);
        const uint64_t count = 2 * t.complex_points();
        const Digits x = test::random_digits(rng, count, count, 12);
        const Digits y = test::random_digits(rng, count, count, 12);
        expect_exact(test::transform_product(t, x, &y, nullptr, 1, true), x, y, rng);
    }
    // An in-place inverse leaves every point, bit for bit, where work_layout() says: single-sweep
    // and four-step shapes, each reduction row.
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (const auto& [m, k] : {std::pair{1, 9}, std::pair{5, 11}, std::pair{1, 15}, std::pair{3, 12}}) {
        SCOPED_TRACE("m=" + std::to_string(m) + " k=" + std::to_string(k));
        const Transform& t = get_transform(m, k, 0);
        const uint64_t blocks = t.complex_points() / 8, work_blocks = t.work_bytes() / sizeof(Block);
        std::vector<Block> in(blocks), out(blocks), work(work_blocks), in_place(work_blocks);
        for (Block& b : in)
            for (int j = 0; j < 8; ++j) b.re[j] = value(rng), b.im[j] = value(rng);
        t.forward(in.data(), work.data(), nullptr, nullptr, 1);
        in_place = work;
        t.inverse(work.data(), out.data(), nullptr, nullptr, 1);
        t.inverse(in_place.data(), in_place.data(), nullptr, nullptr, 1);
        const PointLayout layout = t.work_layout();
        for (uint64_t b = 0; b < blocks; ++b)
            ASSERT_EQ(0, std::memcmp(&out[b], &in_place[layout.block(b)], sizeof(Block))) << "block " << b;
    }
}

// x^a * x^b = x^(a+b), and = -x^(a+b-2n) when it wraps: catches ordering, sign and scale errors
// that random data could average out.
TEST(FftTransform, ImpulsesLandOnTheirSumWithTheWrapSign) {
    for (const int m : {1, 3, 7}) {
        const Transform& t = get_transform(m, 13, 0);
        const uint64_t count = 2 * t.complex_points();
        const uint64_t pairs[][2] = {{0, 0}, {1, 2}, {count - 1, 1}, {count / 2, count / 2 + 3},
                                     {count / 3, 5}, {7, count - 8}};
        for (const auto& pr : pairs) {
            SCOPED_TRACE("m=" + std::to_string(m) + " a=" + std::to_string(pr[0]) +
                         " b=" + std::to_string(pr[1]));
            Digits x(count, 0), y(count, 0);
            x[pr[0]] = 3;
            y[pr[1]] = 5;
            const auto r = test::transform_product(t, x, &y);
            const uint64_t s = pr[0] + pr[1];
            const uint64_t at = s % count;
            const double expect = s < count ? 15.0 : -15.0;
            for (uint64_t i = 0; i < count; ++i)
                ASSERT_NEAR(r.coef[i], i == at ? expect : 0.0, 1e-9) << "coefficient " << i;
        }
    }
}

TEST(FftTransform, ForwardIsLinear) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed() + 2);
    for (const int m : {1, 5}) {
        const Transform& t = get_transform(m, 15, 0);
        const uint64_t count = 2 * t.complex_points(), wb = t.work_bytes() / sizeof(Block);
        const Digits x = test::random_digits(rng, count, count, 16);
        const Digits y = test::random_digits(rng, count, count, 16);
        Digits s(count);
        for (uint64_t i = 0; i < count; ++i) s[i] = 3 * x[i] - y[i];
        std::vector<Block> fx(wb), fy(wb), fs(wb);
        t.forward(test::pack(x).data(), fx.data(), nullptr, nullptr, 1);
        t.forward(test::pack(y).data(), fy.data(), nullptr, nullptr, 1);
        t.forward(test::pack(s).data(), fs.data(), nullptr, nullptr, 1);
        double worst = 0, norm = 0;
        for (uint64_t b = 0; b < wb; ++b)
            for (int l = 0; l < 8; ++l) {
                worst = std::max(worst, std::fabs(fs[b].re[l] - (3 * fx[b].re[l] - fy[b].re[l])));
                worst = std::max(worst, std::fabs(fs[b].im[l] - (3 * fx[b].im[l] - fy[b].im[l])));
                norm = std::max(norm, std::fabs(fs[b].re[l]));
            }
        EXPECT_GT(norm, 0.0);
        EXPECT_LT(worst, norm * 1e-12) << "m=" << m;
    }
}

// Every kernel path this machine can run gives the same rounded product, and within one path
// every task split gives bit-identical doubles.
TEST(FftTransform, KernelPathsAndThreadSplitsAgree) {
    SCOPED_TRACE(test::seed_note());
    SimdGuard guard;
    std::mt19937_64 rng(test::test_seed() + 3);
    ThreadPerTask threads;
    const int top = static_cast<int>(detected_simd_level());
    struct Size { int m, k; };
    for (const Size s : {Size{1, 9}, Size{3, 10}, Size{1, 16}, Size{7, 13}}) {
        SCOPED_TRACE("m=" + std::to_string(s.m) + " k=" + std::to_string(s.k));
        const Transform& t = get_transform(s.m, s.k, 0);
        const uint64_t count = 2 * t.complex_points();
        const int bits = bits_per_point(s.m, s.k, DigitMode::Dithered);
        const Digits x = test::random_digits(rng, count, count / 2, bits);
        const Digits y = test::random_sign_digits(rng, count, count / 2, bits);
        std::vector<double> reference;
        for (int level = 0; level <= top; ++level) {
            force_simd_level(static_cast<SimdLevel>(level));
            SCOPED_TRACE(simd_level_name(active_simd_level()));
            const auto base = test::transform_product(t, x, &y);
            ASSERT_LT(base.max_distance, 0.125);
            std::vector<double> rounded(base.coef.size());
            for (size_t i = 0; i < rounded.size(); ++i) rounded[i] = std::rint(base.coef[i]);
            if (reference.empty()) reference = rounded;
            ASSERT_EQ(rounded, reference);
            for (const uint64_t tds : {2u, 3u, 8u, 200u}) {
                const auto split = test::transform_product(t, x, &y, &threads, tds);
                ASSERT_EQ(0, std::memcmp(split.coef.data(), base.coef.data(),
                                         base.coef.size() * sizeof(double)))
                    << "tds=" << tds;
            }
        }
        for (int s2 = 0; s2 < 64; ++s2) {
            const uint64_t i = rng() % count;
            ASSERT_EQ(int64_t(reference[i]), int64_t(test::negacyclic_at(x, y, i))) << i;
        }
    }
}

// At the bits per point of the limit table, the worst input classes keep every coefficient within
// 1/8 of an integer (products and squares of half-length operands, i.e. full linear products).
TEST(FftTransform, PrecisionGuardHoldsAtTableBitsPerPoint) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed() + 4);
    struct Size { int m, k; };
    const Size sizes[] = {{1, 10}, {1, 13}, {3, 14}, {1, 16}, {5, 16}, {7, 17},
                          {1, 19}, {3, 19}, {1, 22}};
    for (const Size s : sizes) {
        const Transform& t = get_transform(s.m, s.k, 0);
        const uint64_t count = 2 * t.complex_points();
        const int bits = bits_per_point(s.m, s.k, DigitMode::Dithered);
        ASSERT_GT(bits, 0);
        SCOPED_TRACE("m=" + std::to_string(s.m) + " k=" + std::to_string(s.k) +
                     " bits=" + std::to_string(bits));
        const Digits signs = test::random_sign_digits(rng, count, count / 2, bits);
        const Digits uniform = test::random_digits(rng, count, count / 2, bits);
        const auto sq = test::transform_product(t, signs, nullptr);
        const auto mul = test::transform_product(t, signs, &uniform);
        EXPECT_LE(sq.max_distance, 0.125);
        EXPECT_LE(mul.max_distance, 0.125);
        for (int i = 0; i < 16; ++i) {
            const uint64_t at = rng() % count;
            ASSERT_EQ(int64_t(std::rint(sq.coef[at])), int64_t(test::negacyclic_at(signs, signs, at)));
            ASSERT_EQ(int64_t(std::rint(mul.coef[at])), int64_t(test::negacyclic_at(signs, uniform, at)));
        }
    }
}

// One twiddle off by 2^-30 (straight-table levels of the column and row passes and an in-block
// level, in different sub-transforms) must push the product far from integers, while the intact
// transform stays exact. (Odd groups at the second level of a radix-4 pair are i times their even
// neighbour and never read, so the faults sit on even groups.)
TEST(FftTransform, PerturbedTwiddleIsCaughtByTheRoundingDistance) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed() + 5);
    const int m = 1;
    struct Fault { int sub, depth; uint64_t group; };
    // k = 20 is a large grid whose rows form their twiddles from a row factor: its fault sits in
    // one row's factor, at a block level inside the 128-block rows (depth sub_exponent - 6).
    for (const int k : {16, 20}) {
        const Transform& intact = get_transform(m, k, 0);
        const uint64_t count = 2 * intact.complex_points();
        const int bits = bits_per_point(m, k, DigitMode::Dithered);
        const Digits x = test::random_digits(rng, count, count / 2, bits);
        const Digits y = test::random_digits(rng, count, count / 2, bits);
        EXPECT_LE(test::transform_product(intact, x, &y).max_distance, 0.125);
        const int sub_exponent = intact.engine().sub_exponent();  // log2 of points per sub-transform
        const std::vector<Fault> faults = k == 16 ? std::vector<Fault>{{0, 0, 0}, {3, 2, 2}, {1, sub_exponent - 1, 77}}
                                                  : std::vector<Fault>{{0, sub_exponent - 6, 5 << 3}};
        for (const Fault f : faults) {
            SCOPED_TRACE("k=" + std::to_string(k) + " sub=" + std::to_string(f.sub) + " depth=" + std::to_string(f.depth));
            const auto bad = make_perturbed_transform(m, k, f.sub, f.depth, f.group, std::ldexp(1.0, -30));
            const auto r = test::transform_product(*bad, x, &y);
            EXPECT_FALSE(r.max_distance <= 0.3) << "max distance " << r.max_distance;
        }
    }
}

}  // namespace
}  // namespace qmp::fft
