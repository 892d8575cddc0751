// The Newton functions give the same words whatever runs their products: every SIMD path this
// machine has (the FFT kernels differ per path), and one thread against two (at a size where the
// FFT splits its transforms over the tasks); and at that size they still meet their bound.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "qmp/cpu_features.h"
#include "qmp/functions/division.h"
#include "qmp/functions/invsqrt.h"
#include "qmp/functions/reciprocal.h"
#include "qmp/parallel/parallel_framework.h"
#include "tests/qmp/functions/functions_test_support.h"

namespace qmp::test {
namespace {

using Words = std::vector<uint64_t>;

// Reciprocal, division and inverse square root of fixed operands at p words, as one word list.
Words run_all(uint64_t p, Parallelizer* parallelizer, uint64_t tds) {
    const auto& table = default_table();
    std::mt19937_64 rng(test_seed());
    const TestFloat<uint64_t> a(rng, p + 5, -int64_t(p)), b(rng, p + 2, 3);
    const Reciprocal_BigFloatR<uint64_t> recip(table, p, tds);
    const Division_BigFloatR<uint64_t> div(table, p, tds);
    const InvsqrtFloat_BigFloatR<uint64_t> inv(table, p, tds);
    GuardedScratch scratch(std::max({recip.scratch_bytes(), div.scratch_bytes(), inv.scratch_bytes()}));
    Words all;
    auto keep = [&](const BigFloat<uint64_t>& y) {
        all.insert(all.end(), y.T, y.T + y.L);
        all.push_back(uint64_t(y.exp));
    };
    Result<uint64_t> r(p);
    recip.run(r.y, a.x, p, scratch.buffer, parallelizer, tds);
    keep(r.y);
    div.run(r.y, a.x, b.x, p, scratch.buffer, parallelizer, tds);
    keep(r.y);
    inv.run(r.y, b.x, p, scratch.buffer, parallelizer, tds);
    keep(r.y);
    return all;
}

TEST(DeterminismTest, EverySimdPathGivesTheSameWords) {
    const SimdLevel saved = active_simd_level();
    const uint64_t p = 20000;
    force_simd_level(SimdLevel::Portable);
    const Words portable = run_all(p, nullptr, 1);
    for (SimdLevel level : {SimdLevel::AVX2, SimdLevel::AVX512}) {
        if (int(level) > int(detected_simd_level())) continue;
        force_simd_level(level);
        SCOPED_TRACE(simd_level_name(level));
        EXPECT_TRUE(run_all(p, nullptr, 1) == portable);
    }
    force_simd_level(saved);
}

// z (exact) lies within B^(1-p) of 1: its words from position 1 - p to 0 read 1, 0, ..., 0 or
// 0, all-ones, ..., all-ones.
bool near_one(const std::vector<uint64_t>& z, int64_t z_exp, uint64_t p) {
    auto word = [&](int64_t position) {
        const int64_t i = position - z_exp;
        return i >= 0 && i < int64_t(z.size()) ? z[size_t(i)] : 0;
    };
    for (int64_t position = 1; position < int64_t(z.size()) + z_exp; ++position)
        if (word(position) != 0) return false;
    const bool over = word(0) == 1;
    if (!over && word(0) != 0) return false;
    for (int64_t position = -1; position >= 1 - int64_t(p); --position)
        if (word(position) != (over ? 0 : ~uint64_t(0))) return false;
    return true;
}

// At 400k words the steps run on transforms whose operands are streamed into the column pass;
// the results are checked with the library's own products: x y and x y^2 within B^(1-p) of 1.
TEST(DeterminismTest, LargeResultsMeetTheBound) {
    const auto& table = default_table();
    const uint64_t p = 400000;
    std::mt19937_64 rng(test_seed() + 5);
    const TestFloat<uint64_t> x(rng, p + 5, -int64_t(p));
    const Reciprocal_BigFloatR<uint64_t> recip(table, p);
    const InvsqrtFloat_BigFloatR<uint64_t> inv(table, p);
    Result<uint64_t> r(p), s(p);
    GuardedScratch scratch(std::max({recip.scratch_bytes(), inv.scratch_bytes(),
                                     BigFloat<uint64_t>::mul_scratch_bytes(table, 2 * p + 8, p + 5)}));
    recip.run(r.y, x.x, p, scratch.buffer);
    inv.run(s.y, x.x, p, scratch.buffer);
    std::vector<uint64_t> yy(2 * p + 8), z(3 * p + 16);
    BigFloat<uint64_t> Y(yy.data(), yy.size()), Z(z.data(), z.size());
    Z.set_mul(x.x, r.y, BigFloat<uint64_t>::full_precision, table, scratch.buffer);
    EXPECT_TRUE(near_one(std::vector<uint64_t>(Z.T, Z.T + Z.L), Z.exp, p));
    Y.set_sqr(s.y, BigFloat<uint64_t>::full_precision, table, scratch.buffer);
    Z.set_mul(x.x, Y, BigFloat<uint64_t>::full_precision, table, scratch.buffer);
    EXPECT_TRUE(near_one(std::vector<uint64_t>(Z.T, Z.T + Z.L), Z.exp, p));
}

TEST(DeterminismTest, TwoThreadsGiveTheSameWordsAsOne) {
    ConfigObject settings = find_parallel_framework("pushpool").default_config();
    settings.get("WorkerThreads", "DeterminismTest") = ConfigObject::make_integer(2);
    const std::unique_ptr<ParallelFramework> framework = make_parallel_framework(settings);
    // 400k words: the top products use transforms of 2^20 complex points and more, which the
    // FFT splits over the tasks.
    const uint64_t p = 400000;
    EXPECT_TRUE(run_all(p, framework.get(), 2) == run_all(p, nullptr, 1));
}

}  // namespace
}  // namespace qmp::test
