// Far-memory frameworks: the registry (by configuration, by words, by menu), the RAM and
// mapped-memory back-ends with their refusals and fallbacks, and the empty manager.
#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/farmemory/framework_registry.h"
#include "qmp/farmemory/malloc_far_memory.h"
#include "qmp/farmemory/mmap_far_memory.h"
#include "tests/qmp/farmemory/test_support.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qmp {
namespace {

template <class E, class F>
void expect_error(F&& f, const std::string& place, const std::string& message) {
    EXPECT_EQ(test::expect_thrown<E>(f, place), message);
}

ConfigObject framework_config(const char* name) {
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", name);
    return config;
}

bool event_logged(const std::string& fragment) {
    for (const std::string& e : EventLog::entries()) {
        if (e.find(fragment) != std::string::npos) return true;
    }
    return false;
}

TEST(FarMemoryRegistry, LookupByConfigAndWords) {
    const auto& entries = far_memory_frameworks();
    ASSERT_GE(entries.size(), 2u);
    EXPECT_STREQ(entries[0].name, "malloc");
    EXPECT_STREQ(entries[0].menu_text, "Ram Drive - C malloc()");
    EXPECT_STREQ(entries[1].name, "mmap");
    EXPECT_STREQ(entries[1].menu_text, "POSIX mmap()");

    for (const char* name : {"malloc", "mmap"}) {
        auto framework = make_far_memory_framework(framework_config(name));
        EXPECT_STREQ(framework->framework_name(), name);
        // The static data recreates an equal framework.
        const ConfigObject data = framework->get_static_data();
        EXPECT_TRUE(make_far_memory_framework(data)->get_static_data() == data) << name;
    }
    expect_error<InvalidParametersException>(
        [] { make_far_memory_framework(framework_config("Malloc")); },
        "find_far_memory_framework()", "Invalid FarMemory Framework: Malloc");

    const std::vector<std::string> words = {"custom", "mmap", "malloc"};
    size_t cursor = 1;
    EXPECT_EQ(far_memory_config_from_words(words, cursor).get_string("Framework", "t"), "mmap");
    EXPECT_EQ(far_memory_config_from_words(words, cursor).get_string("Framework", "t"), "malloc");
    EXPECT_EQ(cursor, 3u);
    expect_error<InvalidParametersException>([&] { far_memory_config_from_words(words, cursor); },
                                             "next_far_memory_parameter()",
                                             "Expected more parameters.");
}

TEST(FarMemoryRegistry, MenuReadsUntilValidOrEndOfInput) {
    {
        test::FeedStdin input("7\nfloppy\n1\n");  // by number
        test::CaptureConsole capture;
        EXPECT_EQ(select_far_memory_framework(), std::optional<std::string>("mmap"));
        const std::string out = capture.text();
        EXPECT_NE(out.find("Select a Far Memory Framework\n  0  Ram Drive - C malloc()\n  1  POSIX mmap()\n"),
                  std::string::npos) << out;
        EXPECT_NE(out.find("Invalid selection: 7\n"), std::string::npos) << out;
        EXPECT_NE(out.find("Invalid selection: floppy\n"), std::string::npos) << out;
    }
    {
        test::FeedStdin input("9\n");
        test::CaptureConsole capture;
        EXPECT_EQ(select_far_memory_framework(), std::nullopt);
    }
}

TEST(MallocFarMemory, RoundTripReadOnlyAndUsage) {
    std::mt19937_64 rng(test::test_seed());
    SCOPED_TRACE(test::seed_note());
    expect_error<FarMemoryException>([] { MallocFarMemory(framework_config("malloc"), true); },
                                     "MallocFarMemory()", "Open is not supported.");
    MallocFarMemory framework;
    auto a = framework.create_file("a", 10000);
    const auto data = test::random_bytes(rng, 10000);
    a->store(data.data(), 0, data.size());
    {
        auto b = framework.create("b", 5000);
        EXPECT_EQ(framework.current_bytes(), 15000u);
    }
    EXPECT_EQ(framework.current_bytes(), 10000u);
    EXPECT_EQ(framework.peak_bytes(), 15000u);
    const ConfigObject runtime = framework.get_runtime_data();
    EXPECT_EQ(runtime.get_integer("PeakBytes", "t"), 15000);
    EXPECT_EQ(runtime.get_integer("CreatedObjects", "t"), 2);

    // More than the machine can hold: refused inside the far-memory family, usage unchanged.
    const uint64_t huge = uint64_t(1) << 50;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // sanitizers abort on such a request
    EXPECT_THROW(framework.create("huge", huge), FarMemoryException);
#endif
    EXPECT_THROW(MmapFarMemory().create("huge", huge), FarMemoryException);
    EXPECT_EQ(framework.current_bytes(), 10000u);

    a->set_read_only(true);
    const std::vector<unsigned char> junk(100, 0);
    expect_error<FarMemoryException>([&] { a->store(junk.data(), 0, 100); },
                                     "MallocFarMemory::File::store()", "Object is read only.");
    expect_error<FarMemoryException>([&] { a->scatter(junk.data(), 10, 0, 20, 10, 5); },
                                     "MallocFarMemory::File::store()", "Object is read only.");
    std::vector<unsigned char> back(10000);
    a->load(back.data(), 0, back.size());
    EXPECT_EQ(back, data);
}

TEST(MmapFarMemory, RoundTripWithEverySwitchAndHonestFallbacks) {
    std::mt19937_64 rng(test::test_seed() + 2);
    SCOPED_TRACE(test::seed_note());
    test::CaptureConsole quiet;
    for (bool large : {false, true}) {
        for (bool locked : {false, true}) {
            SCOPED_TRACE(std::string("large ") + (large ? "on" : "off") + ", locked " + (locked ? "on" : "off"));
            ConfigObject config = framework_config("mmap");
            config.add_bool("LargePages", large);
            config.add_bool("LockedPages", locked);
            auto framework = make_far_memory_framework(config);
            EXPECT_TRUE(framework->get_static_data() == config);
            auto* mmap_framework = dynamic_cast<MmapFarMemory*>(framework.get());
            ASSERT_NE(mmap_framework, nullptr);
            const size_t n = 3 * 1000 * 1000 + 17;  // not a page multiple
            auto file = mmap_framework->create_file("m", n);
            EXPECT_GE(file->mapped_bytes(), n);
            // A refused request is a warning in the event log, never a silent downgrade.
            if (large && !file->has_large_pages()) {
                EXPECT_TRUE(event_logged("Unable to map large pages for far memory \"m\""));
            }
            if (locked && !file->has_locked_pages()) {
                EXPECT_TRUE(event_logged("Unable to lock the pages of far memory \"m\""));
            }
            if (!large) {
                EXPECT_FALSE(file->has_large_pages());
            }
            if (!locked) {
                EXPECT_FALSE(file->has_locked_pages());
            }
            const auto data = test::random_bytes(rng, n);
            file->store(data.data(), 0, n);
            std::vector<unsigned char> back(n);
            file->gather(back.data(), 1000, 0, 1000, 1000, n / 1000);
            file->load(back.data() + n / 1000 * 1000, n / 1000 * 1000, n % 1000);
            EXPECT_EQ(back, data);
        }
    }
    MmapFarMemory framework;
    auto empty = framework.create("empty", 0);
    empty->load(nullptr, 0, 0);
    EXPECT_THROW(empty->load(nullptr, 0, 1), FarMemoryOutOfBoundsException);
    expect_error<FarMemoryException>([] { MmapFarMemory(framework_config("mmap"), true); },
                                     "MmapFarMemory()", "Open is not supported.");
}

TEST(NullManager, RefusesEverything) {
    NullManager manager;
    expect_error<FarMemoryException>([&] { manager.get_static_data(); },
                                     "NullManager::get_static_data()", "Not supported.");
    expect_error<FarMemoryException>([&] { manager.get_runtime_data(); },
                                     "NullManager::get_runtime_data()", "Not supported.");
    expect_error<FarMemoryException>([&] { manager.create("x", 1); }, "NullManager::create()",
                                     "Not supported.");
}

}  // namespace
}  // namespace qmp
