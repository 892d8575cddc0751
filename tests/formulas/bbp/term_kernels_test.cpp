// The term kernels: the portable one against a slow exact oracle written here (plain % powering
// and bit-by-bit long division), each vector kernel against the portable one on random runs
// across its modulus range and at its edges, and the refusal of runs outside a kernel's range.
#include "formulas/bbp/term_kernels.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "tests/test_support.h"

namespace qv::bbp {
namespace {

uint64_t mul_mod(uint64_t a, uint64_t b, uint64_t m) { return uint64_t(uint128(a) * b % m); }

// floor(frac(2^e / m) * 2^128) by square-and-multiply with % and a long division of the residue.
uint128 slow_fraction(uint64_t e, uint64_t m) {
    uint64_t r = 1 % m, base = 2 % m;
    for (uint64_t x = e; x != 0; x >>= 1, base = mul_mod(base, base, m))
        if (x & 1) r = mul_mod(r, base, m);
    uint128 f = 0;
    for (int bit = 0; bit < 128; ++bit) {
        r <<= 1;  // r < m < 2^63: no overflow
        f <<= 1;
        if (r >= m) {
            r -= m;
            f |= 1;
        }
    }
    return f;
}

uint128 slow_sum(const TermProgression& run) {
    uint128 s = 0;
    for (uint64_t i = 0; i < run.count; ++i) {
        const uint128 f = slow_fraction(run.exponent_first - i * run.exponent_step, run.modulus_first + i * run.modulus_step);
        s = run.negative(i) ? s - f : s + f;
    }
    return s;
}

std::vector<const TermKernel*> vector_kernels() {
    std::vector<const TermKernel*> k = {&avx2_term_kernel()};
    if (avx512_ifma_term_kernel() != nullptr) k.push_back(avx512_ifma_term_kernel());
    return k;
}

// A run whose largest modulus is below `limit`: log-uniform first modulus, small even step.
TermProgression random_run(std::mt19937_64& rng, uint64_t limit, uint64_t max_count) {
    TermProgression run;
    run.count = 1 + rng() % max_count;
    run.modulus_step = 2 * (rng() % 8);
    const int bits = 1 + int(rng() % uint64_t(63 - __builtin_clzll(limit)));
    uint64_t m = (rng() >> (64 - bits)) | 1;
    const uint64_t span = run.modulus_step * (run.count - 1);
    if (m >= limit - span) m = (limit - span - 1) | 1;
    if (m >= limit - span) m -= 2;
    run.modulus_first = m;
    run.exponent_step = rng() % 12;
    run.exponent_first = run.exponent_step * (run.count - 1) + (rng() >> (rng() % 64));
    run.exponent_first &= (uint64_t(1) << 61) - 1;
    if (run.exponent_first < run.exponent_step * (run.count - 1)) run.exponent_first = run.exponent_step * (run.count - 1);
    run.negative_first = rng() & 1;
    run.alternating = rng() & 1;
    return run;
}

TEST(BbpTermKernel, PortableEqualsTheSlowOracle) {
    std::mt19937_64 rng(qmp::test::test_seed());
    SCOPED_TRACE(qmp::test::seed_note());
    for (int trial = 0; trial < 300; ++trial) {
        const TermProgression run = random_run(rng, uint64_t(1) << 63, 6);
        ASSERT_EQ(sum_terms(portable_term_kernel(), run), slow_sum(run))
            << "m0=" << run.modulus_first << " dm=" << run.modulus_step << " e0=" << run.exponent_first;
    }
    // Known values: 2^0/3 = 0.5555..., 2^5/7 = 4 + 4/7 -> 0.924924... (hex), 1/1 -> 0.
    TermProgression one;
    one.count = 1;
    one.modulus_first = 3;
    EXPECT_EQ(uint64_t(sum_terms(portable_term_kernel(), one) >> 64), 0x5555555555555555ull);
    one.modulus_first = 7;
    one.exponent_first = 5;
    EXPECT_EQ(uint64_t(sum_terms(portable_term_kernel(), one) >> 64), 0x9249249249249249ull);
    one.modulus_first = 1;
    EXPECT_EQ(sum_terms(portable_term_kernel(), one), 0u);
}

TEST(BbpTermKernel, VectorKernelsEqualPortableAcrossTheirRange) {
    std::mt19937_64 rng(qmp::test::test_seed() + 1);
    SCOPED_TRACE(qmp::test::seed_note());
    for (const TermKernel* kernel : vector_kernels()) {
        SCOPED_TRACE(kernel->name);
        const uint64_t limit = kernel->modulus_limit;
        for (int trial = 0; trial < 400; ++trial) {
            const TermProgression run = random_run(rng, limit, trial % 10 == 0 ? 300 : 40);
            ASSERT_EQ(sum_terms(*kernel, run), sum_terms(portable_term_kernel(), run))
                << "m0=" << run.modulus_first << " dm=" << run.modulus_step << " e0=" << run.exponent_first
                << " de=" << run.exponent_step << " n=" << run.count;
        }
        // Edges: the largest moduli allowed, the smallest, both sides of 2^48 (where the vector
        // kernels stop reducing after doublings), and exponents 0 and near 2^62.
        const uint64_t narrow = uint64_t(1) << 48;
        for (uint64_t m : {limit - 1, limit - 3, limit - 101, narrow - 1, narrow + 1, uint64_t(1), uint64_t(3),
                           uint64_t(5)}) {
            for (uint64_t e : {uint64_t(0), uint64_t(1), uint64_t(63), uint64_t(1) << 61, (uint64_t(1) << 62) - 7}) {
                TermProgression run;
                run.count = 1;
                run.modulus_first = m;
                run.exponent_first = e;
                ASSERT_EQ(sum_terms(*kernel, run), sum_terms(portable_term_kernel(), run)) << "m=" << m << " e=" << e;
            }
        }
        // A run ending exactly at the largest modulus, with all signs negative.
        TermProgression top;
        top.count = 77;
        top.modulus_step = 2;
        top.modulus_first = limit - 1 - 2 * 76;
        top.exponent_first = 4 * 76 + 123456789;
        top.exponent_step = 4;
        top.negative_first = true;
        EXPECT_EQ(sum_terms(*kernel, top), sum_terms(portable_term_kernel(), top));
    }
}

TEST(BbpTermKernel, LargestNarrowModuliWithOddExponents) {
    // Just below 2^48 the vector kernels skip the reduction after a doubling, and their
    // quotient estimates are off by one most often: a final doubling then leaves the residue
    // furthest from [0, m). Odd exponents (de even) end every power with a doubling.
    TermProgression run;
    run.count = 4000;
    run.modulus_first = (uint64_t(1) << 48) - 2 * 4000 - 1;
    run.modulus_step = 2;
    run.exponent_first = 2 * 4000 + 987654321;
    run.exponent_step = 2;
    const uint128 expected = sum_terms(portable_term_kernel(), run);
    for (const TermKernel* kernel : vector_kernels()) EXPECT_EQ(sum_terms(*kernel, run), expected) << kernel->name;
}

TEST(BbpTermKernel, LongRunsCrossTheLaneFlushes) {
    // 300,000 terms: several flushes of every kernel's 64-bit lane accumulators.
    TermProgression run;
    run.count = 300000;
    run.modulus_first = 1000001;
    run.modulus_step = 10;
    run.exponent_first = 20000000;
    run.exponent_step = 10;
    run.alternating = true;
    const uint128 expected = sum_terms(portable_term_kernel(), run);
    for (const TermKernel* kernel : vector_kernels()) EXPECT_EQ(sum_terms(*kernel, run), expected) << kernel->name;
}

TEST(BbpTermKernel, RunsOutsideAKernelsRangeAreRefused) {
    std::vector<const TermKernel*> all = vector_kernels();
    all.push_back(&portable_term_kernel());
    for (const TermKernel* kernel : all) {
        SCOPED_TRACE(kernel->name);
        const std::string out_of_range = std::string("Modulus out of range of the ") + kernel->name + " kernel.";
        TermProgression run;
        run.count = 1;
        run.modulus_first = kernel->modulus_limit + 1;
        qmp::test::expect_throw<qmp::InvalidParametersException>([&] { sum_terms(*kernel, run); },
                                                                 "TermKernel::sum()", out_of_range);
        // The first modulus fits, the last one is past the limit.
        run.count = 3;
        run.modulus_first = kernel->modulus_limit - 3;
        run.modulus_step = 2;
        qmp::test::expect_throw<qmp::InvalidParametersException>([&] { sum_terms(*kernel, run); },
                                                                 "TermKernel::sum()", out_of_range);
        run.modulus_first = 9;
        run.modulus_step = 3;
        qmp::test::expect_throw<qmp::InvalidParametersException>([&] { sum_terms(*kernel, run); },
                                                                 "TermKernel::sum()", "Moduli must be odd.");
        run.modulus_step = 2;
        run.exponent_first = 5;
        run.exponent_step = 3;  // term 2 would have exponent -1
        qmp::test::expect_throw<qmp::InvalidParametersException>([&] { sum_terms(*kernel, run); },
                                                                 "TermKernel::sum()", "Exponents must not be negative.");
    }
}

TEST(BbpTermKernel, SplitRunsHandTheLargeModuliToThePortableKernel) {
    for (const TermKernel* kernel : vector_kernels()) {
        TermProgression run;
        run.count = 200;
        run.modulus_step = 8;
        run.modulus_first = kernel->modulus_limit - 8 * 90 + 1;  // 90 terms fit, 110 do not
        run.exponent_first = 5000000;
        run.exponent_step = 4;
        run.alternating = true;
        EXPECT_EQ(sum_terms_split(*kernel, run), sum_terms(portable_term_kernel(), run)) << kernel->name;
    }
}

TEST(BbpTermKernel, DispatchFollowsTheActiveLevel) {
    qmp::force_simd_level(qmp::SimdLevel::Portable);
    EXPECT_STREQ(active_term_kernel().name, "portable");
    qmp::force_simd_level(qmp::SimdLevel::AVX2);
    if (qmp::detected_simd_level() >= qmp::SimdLevel::AVX2) {
        EXPECT_STREQ(active_term_kernel().name, "avx2-fma");
    }
    qmp::force_simd_level(qmp::SimdLevel::AVX512);
    if (qmp::has_avx512_ifma()) {
        EXPECT_STREQ(active_term_kernel().name, "avx512-ifma");
    }
    qmp::force_simd_level(qmp::detected_simd_level());
}

}  // namespace
}  // namespace qv::bbp
