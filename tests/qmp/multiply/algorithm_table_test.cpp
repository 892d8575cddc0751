// Table rules, the registry, the parameter checks of BKT, convolution limit tables, factor sets
// and the cache model: every user-facing text asserted exactly.
#include "qmp/multiply/algorithm_table.h"

#include <functional>
#include <memory>

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/bkt_algorithm.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/cache_topology.h"
#include "qmp/multiply/limit_table.h"
#include "qmp/multiply/lookup_table_descriptor.h"
#include "qmp/multiply/tuning_profile.h"
#include "tests/qmp/multiply/multiply_test_support.h"

namespace qmp::test {
namespace {

// An algorithm whose buffer need is a fixed number of bytes, to tell entries apart.
class FixedNeed final : public BasicAlgorithm {
public:
    FixedNeed(uint64_t mul, uint64_t transform) : mul_(mul), transform_(transform) {}
    const char* name() const noexcept override { return "FIXED"; }
    std::string display_name() const override { return "Fixed"; }
    uint64_t multiply_buffer_bytes(uint64_t) const override { return mul_; }
    uint64_t transform_buffer_bytes(uint64_t) const override { return transform_; }
    void multiply(uint64_t*, const uint64_t*, uint64_t, const uint64_t*, uint64_t, void*, uint64_t,
                  const MultiplyContext&) const override {}
    void square(uint64_t*, const uint64_t*, uint64_t, void*, uint64_t, const MultiplyContext&) const override {}

private:
    uint64_t mul_, transform_;
};

TEST(AlgorithmTable, ThresholdsChooseEntriesAndBufferQueriesTakeMaximum) {
    FixedNeed small(1000, 10), large(300, 70), huge(5000, 5);
    AlgorithmTableB table;
    table.add(100, &small);
    table.add(200, nullptr);  // ignored, and does not block the same threshold later
    table.add(200, &large);
    table.add(400, &huge);
    ASSERT_EQ(table.entries().size(), 3u);

    EXPECT_EQ(&table.get_algorithm(1), &small);
    EXPECT_EQ(&table.get_algorithm(100), &small);
    EXPECT_EQ(&table.get_algorithm(101), &large);
    EXPECT_EQ(&table.get_algorithm(200), &large);
    EXPECT_EQ(&table.get_algorithm(201), &huge);

    // The second entry's answer is the larger of both entries' own needs, in either direction.
    EXPECT_EQ(table.max_multiply_buffer_sizes(150, true), 1000u);
    EXPECT_EQ(table.max_transform_buffer_sizes(150, true), 70u);
    EXPECT_EQ(table.max_multiply_buffer_sizes(150, false), 300u);
    EXPECT_EQ(table.max_multiply_buffer_sizes(300, true), 5000u);
    EXPECT_EQ(table.max_transform_buffer_sizes(300, true), 70u);
    EXPECT_EQ(table.max_transform_buffer_sizes(300, false), 5u);

    expect_throw<StringException>([&] { table.add(400, &small); }, "AlgorithmTable::add()",
                                  "Thresholds must be increasing.");
    expect_throw<StringException>([&] { table.add(399, &small); }, "AlgorithmTable::add()",
                                  "Thresholds must be increasing.");
    expect_throw<LimitExceededException>([&] { table.get_algorithm(401); }, "AlgorithmTable::get_algorithm()",
                                         "Size is beyond the largest table entry: 401 words.");
    expect_throw<LimitExceededException>([&] { table.max_multiply_buffer_sizes(401, true); },
                                         "AlgorithmTableB::max_multiply_buffer_sizes()",
                                         "Size is beyond the largest table entry: 401 words.");
    expect_throw<LimitExceededException>([&] { table.max_transform_buffer_sizes(401, false); },
                                         "AlgorithmTableB::max_transform_buffer_sizes()",
                                         "Size is beyond the largest table entry: 401 words.");

    AlgorithmTableF far;
    far.add(50, &large);
    far.add(60, &small);
    EXPECT_EQ(far.max_multiply_buffer_sizes(55, true), 1000u);
    expect_throw<LimitExceededException>([&] { far.max_transform_buffer_sizes(61, true); },
                                         "AlgorithmTableF::max_transform_buffer_sizes()",
                                         "Size is beyond the largest table entry: 61 words.");
}

TEST(AlgorithmTable, NamedEntriesGoThroughTheRegistry) {
    AlgorithmRegistry registry;
    register_builtin_algorithms(registry);
    ASSERT_TRUE(registry.contains("BKT"));

    AlgorithmTableB table(registry, {{256, "BKT", {"Scalar Integer"}}});
    EXPECT_STREQ(table.get_algorithm(256).name(), "BKT");
    EXPECT_EQ(table.get_algorithm(256).display_name(), "Basecase + Karatsuba");

    expect_throw<InvalidParametersException>([&] { AlgorithmTableB(registry, {{64, "N63", {}}}); },
                                             "AlgorithmTableB::AlgorithmTableB()", "Unknown algorithm: N63");
    expect_throw<InvalidParametersException>(
        [&] { AlgorithmTableF(registry, {{64, "BKT", {"AVX512 Float"}}}); },
        "AlgorithmTableF::AlgorithmTableF()", "BKT does not support: \"AVX512 Float\"");
    expect_throw<StringException>([&] { AlgorithmTableB(registry, {{64, "BKT", {}}, {64, "BKT", {}}}); },
                                  "AlgorithmTable::add()", "Thresholds must be increasing.");
    expect_throw<InvalidParametersException>([&] { register_bkt(registry); }, "AlgorithmRegistry::add()",
                                             "Algorithm is already registered: BKT");

    // The heuristic table serves at least the whole BKT range with BKT itself.
    EXPECT_EQ(heuristic_profile().name, "NT");
    EXPECT_EQ(heuristic_profile().description, "No Training. Disable all training tables and use heuristics.");
    AlgorithmTableB standard = make_default_table(registry);
    EXPECT_STREQ(standard.get_algorithm(1).name(), "BKT");
}

TEST(AlgorithmTable, BktParameterTableIsChecked) {
    auto make = [](uint64_t kmul, uint64_t max_words, uint64_t ksqr) {
        return BasecaseKaratsuba(KaratsubaThresholds{kmul, ksqr}, max_words);
    };
    EXPECT_NO_THROW(make(2, 4, 2).assert_valid());
    expect_throw<InvalidParametersException>([&] { make(1, 100, 8).assert_valid(); },
                                             "BasecaseKaratsuba::assert_valid()", "Invalid table entry 0.");
    expect_throw<InvalidParametersException>([&] { make(32, 63, 8).assert_valid(); },
                                             "BasecaseKaratsuba::assert_valid()", "Invalid table entry 1.");
    expect_throw<InvalidParametersException>([&] { make(32, 64, 1).assert_valid(); },
                                             "BasecaseKaratsuba::assert_valid()", "Invalid table entry 2.0.");
}

TEST(LimitTable, DecodesAndRequiresIncreasingValues) {
    EXPECT_EQ(LimitTable::decode(0x0000), 0u);
    EXPECT_EQ(LimitTable::decode(1023), 1023u);
    EXPECT_EQ(LimitTable::decode(uint16_t((5 << 10) | 3)), 96u);
    EXPECT_EQ(LimitTable::decode(uint16_t((54 << 10) | 1023)), uint64_t(1023) << 54);

    // 600 << 1 = 1200 after 1023: increasing although the raw mantissa drops.
    LimitTable table({1000, 1023, uint16_t((1 << 10) | 600), uint16_t((3 << 10) | 200)});
    EXPECT_EQ(table.cbitlen(2), 1200u);
    EXPECT_EQ(table.first_at_least(1100), 2u);
    EXPECT_EQ(table.first_at_least(1601), 4u);

    const std::vector<std::vector<uint16_t>> bad = {
        {100, 100},                                      // equal
        {uint16_t((1 << 10) | 512), 1023},               // 1024 then 1023
        {10, uint16_t((2 << 10) | 1), 4},                // drop at the end
    };
    for (const auto& entries : bad)
        expect_throw<InvalidParametersException>([&] { LimitTable t(entries); }, "LimitTable::LimitTable()",
                                                 "cbitlen must be increasing.");
}

TEST(FullLookupTableDescriptor, AcceptsOnlyKnownRadicesWithTheRightProduct) {
    FullLookupTableDescriptor d;
    d.set({8, 4, 3}, 96);
    EXPECT_EQ(d.length(), 96u);
    EXPECT_EQ(d.stride(0), 12u);
    EXPECT_EQ(d.stride(2), 1u);
    const std::vector<std::pair<std::vector<uint32_t>, uint64_t>> bad = {
        {{}, 1}, {{6}, 6}, {{2, 16}, 32}, {{8, 4}, 16}, {std::vector<uint32_t>(33, 2), uint64_t(1) << 33},
        {std::vector<uint32_t>(22, 8), 0},  // 8^22 = 2^66 does not fit
    };
    for (const auto& [radices, length] : bad)
        expect_throw<InvalidParametersException>([&] { d.set(radices, length); }, "FullLookupTableDescriptor::set()",
                                                 "Invalid factor set from generic table.");
    EXPECT_EQ(d.length(), 96u);  // unchanged by the rejected sets
}

TEST(CacheTopologyStandard, RulesInOrderAndSizeIndices) {
    const uint64_t KiB = 1024, end = ~uint64_t(0);
    auto fails = [&](std::vector<CacheLevel> levels, const std::string& message) {
        expect_throw<InvalidParametersException>([&] { CacheTopologyStandard t(levels); },
                                                 "CacheTopologyStandard::CacheTopologyStandard()", message);
    };
    fails({}, "Must contain at least one level of cache.");
    fails({{end, 1, true, 0}, {32 * KiB, 1, true, 0}}, "Must contain at least one level of cache.");
    // Sharing is checked before explicitness.
    fails({{32 * KiB, 2, false, 0}}, "Lowest level of cache cannot be shared by multiple threads.");
    fails({{32 * KiB, 1, false, 0}}, "Lowest level of cache must be explicit.");
    fails({{32 * KiB, 1, true, 0}, {48 * KiB, 1, false, 0}}, "Caches must be increasing in size by at least 2x.");
    // 1 MiB shared by 32 threads is 32 KiB each: not twice the L1.
    fails({{32 * KiB, 1, true, 0}, {1024 * KiB, 32, false, 0}}, "Caches must be increasing in size by at least 2x.");
    std::vector<CacheLevel> seven;
    for (int i = 0; i < 7; ++i) seven.push_back({(32 * KiB) << (2 * i), 1, i == 0, 0});
    fails(seven, "Too many cache levels.");
    fails({{32 * KiB, 1, true, 0}, {1024 * KiB, 1, true, 0}}, "Last level cannot be explicit.");
    fails({{32 * KiB, 1, true, 0}}, "Last level cannot be explicit.");  // a lone level is also the last

    CacheTopologyStandard t({{48 * KiB, 1, true, 0}, {1024 * KiB, 2, true, 0}, {32768 * KiB, 16, false, 0}, {end, 1, true, 0}});
    ASSERT_EQ(t.levels().size(), 3u);
    EXPECT_EQ(t.levels()[0].per_thread_bytes, 48 * KiB);
    EXPECT_EQ(t.levels()[0].size_index, 12u);  // rounded up to 64 KiB = 2^12 points of 16 bytes
    EXPECT_EQ(t.levels()[1].per_thread_bytes, 512 * KiB);
    EXPECT_EQ(t.levels()[1].size_index, 15u);
    EXPECT_EQ(t.levels()[2].per_thread_bytes, 2048 * KiB);
    EXPECT_EQ(t.levels()[2].size_index, 17u);
    EXPECT_EQ(CacheTopologyStandard::size_index(1), 11u);          // floor: 32 KiB
    EXPECT_EQ(CacheTopologyStandard::size_index(32 * KiB), 11u);
    EXPECT_EQ(CacheTopologyStandard::size_index(32 * KiB + 1), 12u);
    EXPECT_EQ(CacheTopologyStandard::size_index(uint64_t(1) << 40), 25u);  // cap: count 22
}

}  // namespace
}  // namespace qmp::test
