// Far-memory tuning levels: clamping of each figure, the level-list rules, the multi-level
// warning, and the configuration round trip.
#include "qmp/farmemory/tuning_parameters.h"

#include "qmp/exception.h"
#include "tests/qmp/farmemory/test_support.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qmp {
namespace {

constexpr uint64_t GB = 1000000000;

ConfigObject levels_config(const std::vector<ConfigObject>& levels) {
    ConfigObject config = ConfigObject::make_object();
    ConfigObject& array = config.add_array("Levels");
    for (const ConfigObject& level : levels) array.push_back(level);
    return config;
}

ConfigObject level_of_size(uint64_t size_bytes) {
    ConfigObject level = ConfigObject::make_object();
    level.add_integer("SizeInBytes", int64_t(size_bytes));
    return level;
}

template <class F>
void expect_invalid(F&& f, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "accepted; expected " << message;
    } catch (const InvalidParametersException& e) {
        EXPECT_EQ(e.message(), message);
    }
}

TEST(FarMemoryTuningLevel, FiguresAreClampedOnReading) {
    struct Case { const char* key; int64_t given; uint64_t expected; };
    const Case cases[] = {
        {"BytesPerSeek", 100, 4096},
        {"BytesPerSeek", 4097, 4097},
        {"BytesPerSeek", (int64_t(1) << 62) - 1, (uint64_t(1) << 62) - 1},
        {"BytesPerSeek", int64_t(1) << 62, uint64_t(1) << 62},
        {"BytesPerSeek", -1, uint64_t(1) << 62},  // read as unsigned
        {"PreferredAlignmentK", 40, 30},
        {"PreferredAlignmentK", 29, 29},
        {"SizeInBytes", -1, UINT64_MAX},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.key) + " = " + std::to_string(c.given));
        ConfigObject object = ConfigObject::make_object();
        object.add_integer(c.key, c.given);
        const FarMemoryTuningLevel level = FarMemoryTuningLevel::from_config(object);
        const uint64_t got = std::string(c.key) == "BytesPerSeek" ? level.bytes_per_seek
                             : std::string(c.key) == "SizeInBytes" ? level.size_bytes
                                                                   : level.alignment_k;
        EXPECT_EQ(got, c.expected);
    }
}

TEST(FarMemoryTuningLevel, DefaultsAndParallelAccessModes) {
    const FarMemoryTuningLevel level = FarMemoryTuningLevel::from_config(ConfigObject::make_object());
    EXPECT_TRUE(level.is_unbounded());
    EXPECT_EQ(level.bytes_per_seek, 1048576u);
    EXPECT_EQ(level.alignment_k, 18u);
    EXPECT_EQ(level.parallel_access, FarMemoryParallelAccess::None);

    ConfigObject object = ConfigObject::make_object();
    object.add_string("ParallelAccess", "readwrite");
    EXPECT_EQ(FarMemoryTuningLevel::from_config(object).parallel_access, FarMemoryParallelAccess::ReadWrite);
    for (const char* bad : {"All", "read", ""}) {
        ConfigObject bad_level = ConfigObject::make_object();
        bad_level.add_string("ParallelAccess", bad);
        expect_invalid([&] { FarMemoryTuningLevel::from_config(bad_level); },
                       std::string("Invalid FarMemoryParallelAccess mode: ") + bad);
    }
}

TEST(FarMemoryTuningParameters, LevelListRules) {
    expect_invalid([] { FarMemoryTuningParameters(levels_config({})); },
                   "Expected at least one level of far memory.");
    expect_invalid([] { FarMemoryTuningParameters(levels_config(std::vector<ConfigObject>(5, level_of_size(1)))); },
                   "Too many levels of far memory.");
    const std::string doubling = "Each level must be at least twice the size of the previous level.";
    expect_invalid([] { FarMemoryTuningParameters(levels_config({level_of_size(10 * GB), level_of_size(15 * GB)})); },
                   doubling);
    expect_invalid([] { FarMemoryTuningParameters(levels_config({level_of_size(UINT64_MAX), level_of_size(10 * GB)})); },
                   doubling);
    expect_invalid([] { FarMemoryTuningParameters(levels_config({level_of_size(10), level_of_size(20), level_of_size(39)})); },
                   doubling);

    test::FeedStdin no_input("");
    test::CaptureConsole quiet;
    const FarMemoryTuningParameters ok1(levels_config({level_of_size(10 * GB), level_of_size(UINT64_MAX)}));
    EXPECT_EQ(ok1.level_count(), 2u);
    const FarMemoryTuningParameters ok2(levels_config({level_of_size(10), level_of_size(20), level_of_size(40), level_of_size(UINT64_MAX)}));
    EXPECT_EQ(ok2.level_count(), 4u);
    EXPECT_EQ(ok2.summary().size_bytes, 10u);

    FarMemoryTuningParameters built;
    expect_invalid([&] { built.summary(); }, "Must have at least one level.");
    expect_invalid([&] { built.check(); }, "Must have at least one level.");
    for (int i = 0; i < 4; ++i) built.add_level(FarMemoryTuningLevel{});
    expect_invalid([&] { built.add_level(FarMemoryTuningLevel{}); }, "Level count is full.");
    EXPECT_NO_THROW(built.check());  // unbounded levels are exempt from doubling
}

TEST(FarMemoryTuningParameters, MultiLevelWarningAndPause) {
    const std::string warning =
        "Warning: You are about to enable Multi-level Far-Memory.\n\n"
        "This feature has neither been officially enabled nor has it been\n"
        "properly tested. Continue at your own risk!\n";
    {
        test::FeedStdin enter("\n");
        test::CaptureConsole capture;
        FarMemoryTuningParameters(levels_config({level_of_size(1 * GB), level_of_size(UINT64_MAX)}));
        EXPECT_EQ(capture.text(), warning + "Press ENTER to continue . . .\n");
    }
    {
        test::CaptureConsole capture;
        FarMemoryTuningParameters(levels_config({level_of_size(1 * GB)}));
        EXPECT_EQ(capture.text(), "");
    }
}

TEST(FarMemoryTuningParameters, ConfigRoundTrip) {
    FarMemoryTuningParameters tuning;
    FarMemoryTuningLevel first;
    first.size_bytes = 64 * GB;
    first.set_bytes_per_seek(8 << 20);
    first.set_alignment_k(12);
    first.parallel_access = FarMemoryParallelAccess::ReadWrite;
    FarMemoryTuningLevel second;
    second.parallel_access = FarMemoryParallelAccess::All;
    tuning.add_level(first);
    tuning.add_level(second);

    const ConfigObject config = tuning.to_config();
    test::FeedStdin no_input("");
    test::CaptureConsole quiet;
    const FarMemoryTuningParameters back(config);
    ASSERT_EQ(back.level_count(), 2u);
    for (uint32_t i = 0; i < 2; ++i) {
        const FarMemoryTuningLevel& a = tuning.level(i);
        const FarMemoryTuningLevel& b = back.level(i);
        EXPECT_EQ(a.size_bytes, b.size_bytes) << i;
        EXPECT_EQ(a.bytes_per_seek, b.bytes_per_seek) << i;
        EXPECT_EQ(a.alignment_k, b.alignment_k) << i;
        EXPECT_EQ(a.parallel_access, b.parallel_access) << i;
    }
    EXPECT_TRUE(back.to_config() == config);
    EXPECT_EQ(config.get("Levels", "test").as_array()[0].get_string("ParallelAccess", "test"), "readwrite");
}

}  // namespace
}  // namespace qmp
