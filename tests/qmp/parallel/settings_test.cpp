// The registry and the settings objects: registry errors, the exact display texts, every
// framework's settings surviving a round trip through a configuration object (and its text
// form), and the validation of task decomposition, framework options and core lists.
#include "qmp/parallel/parallel_settings.h"

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/parallel/core_selector.h"
#include "qmp/parallel/cppasync_framework.h"
#include "qmp/parallel/pushpool_framework.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

namespace {

using qmp::ConfigObject;

ConfigObject framework_object(const std::string& key) {
    ConfigObject o = ConfigObject::make_object();
    o.add_string("Framework", key);
    return o;
}

template <typename F>
void expect_invalid(F&& f, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected: " << message;
    } catch (const qmp::InvalidParametersException& e) {
        EXPECT_EQ(e.message(), message);
    }
}

TEST(FrameworkRegistry, BuiltInsInOrderWithDisplayNames) {
    const auto types = qmp::parallel_framework_types();
    ASSERT_GE(types.size(), 5u);
    const char* keys[] = {"none", "cppasync", "spawn", "taskqueue", "pushpool"};
    const char* names[] = {"None (No Multi-threading)", "std::async", "Thread Spawn (1 Thread/Task)", "Task Queue",
                           "Push Pool"};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(types[i].key, keys[i]);
        EXPECT_EQ(types[i].display_name, names[i]);
        // Each default settings object makes a framework of its own key.
        auto f = qmp::make_parallel_framework(types[i].default_config());
        EXPECT_STREQ(f->key(), keys[i]);
    }
}

TEST(FrameworkRegistry, Errors) {
    expect_invalid([] { qmp::register_parallel_framework({"taskqueue", "Again", nullptr, nullptr}); },
                   "Duplicate Framework Type");
    // A new key registers once, and only once (a fresh key per run of this test: --gtest_repeat).
    static int round = 0;
    const std::string extra_key = "test-extra-" + std::to_string(round++);
    qmp::ParallelFrameworkType extra{extra_key, "Extra", [](const ConfigObject&) -> std::unique_ptr<qmp::ParallelFramework> {
                                         return nullptr;
                                     },
                                     [] { return framework_object("test-extra"); }};
    EXPECT_THROW(qmp::find_parallel_framework(extra_key), qmp::InvalidParametersException);
    qmp::register_parallel_framework(extra);
    EXPECT_EQ(qmp::find_parallel_framework(extra_key).display_name, "Extra");
    expect_invalid([&] { qmp::register_parallel_framework(extra); }, "Duplicate Framework Type");
    expect_invalid([] { qmp::make_parallel_framework(framework_object("openmp")); },
                   "Invalid Parallel Framework: openmp");
    // Keys are case-sensitive.
    expect_invalid([] { qmp::make_parallel_framework(framework_object("PushPool")); },
                   "Invalid Parallel Framework: PushPool");
}

TEST(FrameworkSettings, DescriptionsAndMenuLines) {
    EXPECT_EQ(qmp::make_parallel_framework(framework_object("none"))->description(), "None (No Multi-threading)");
    EXPECT_EQ(qmp::make_parallel_framework(framework_object("spawn"))->description(), "Thread Spawn (1 Thread/Task)");
    EXPECT_EQ(qmp::make_parallel_framework(framework_object("taskqueue"))->description(), "Task Queue");

    qmp::CppAsyncFramework async_only(16, true), either(16, false);
    EXPECT_EQ(async_only.description(), "std::async  (async only)");
    EXPECT_EQ(either.description(), "std::async  (async | deferred)");
    EXPECT_EQ(async_only.setting_lines().at(0).label, "    Launch Policy:");
    EXPECT_EQ(async_only.setting_lines().at(0).value, "  (async only)");

    qmp::PushPoolFramework pool(qmp::PushPoolFramework::Options{{0}, 0, true});
    EXPECT_EQ(pool.worker_count(), 1u);  // unlimited: one per enabled core
    const auto lines = pool.setting_lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].label, "    Cores Enabled:");
    EXPECT_EQ(lines[0].value, "0");
    EXPECT_EQ(lines[1].value, "Unlimited");
    EXPECT_EQ(lines[2].label, "    Thread Randomization:");
    EXPECT_EQ(lines[2].value, "Enabled");
    EXPECT_EQ(pool.description(), "Push Pool  (1 thread, pinned, randomized)");

    EXPECT_EQ(qmp::worker_threads_text(0), "Unlimited");
    EXPECT_EQ(qmp::worker_threads_text(12), "12");
    uint32_t threads = 99;
    EXPECT_TRUE(qmp::parse_worker_threads("0", threads));
    EXPECT_EQ(threads, 0u);
    EXPECT_TRUE(qmp::parse_worker_threads("65535", threads));
    EXPECT_EQ(threads, 65535u);
    for (const char* bad : {"", "-1", "65536", "4 ", "x", "123456"}) EXPECT_FALSE(qmp::parse_worker_threads(bad, threads)) << bad;
}

TEST(FrameworkSettings, EveryFrameworkRoundTripsThroughConfig) {
    std::vector<ConfigObject> configs;
    for (const auto& type : qmp::parallel_framework_types()) {
        if (type.key.rfind("test-", 0) == 0) continue;
        configs.push_back(type.default_config());
    }
    ConfigObject async = framework_object("cppasync");
    async.add_integer("MaxSequentialDispatch", 3);
    async.add_bool("AsyncOnly", true);
    configs.push_back(async);
    ConfigObject pool = framework_object("pushpool");
    ConfigObject& cores = pool.add_array("LogicalCores");
    cores.push_back(ConfigObject::make_integer(0));
    cores.push_back(ConfigObject::make_integer(0));
    pool.add_integer("WorkerThreads", 3);
    pool.add_bool("Randomization", true);
    configs.push_back(pool);

    for (const ConfigObject& config : configs) {
        SCOPED_TRACE(qmp::write_cfg(config, false));
        auto framework = qmp::make_parallel_framework(config);
        const ConfigObject written = framework->to_config();
        EXPECT_TRUE(written == config);
        // Through the text form as a job file would store it.
        EXPECT_TRUE(qmp::parse_cfg(qmp::write_cfg(written, false)) == config);
    }
    auto made = qmp::make_parallel_framework(pool);
    EXPECT_EQ(static_cast<qmp::PushPoolFramework&>(*made).worker_count(), 3u);
}

TEST(FrameworkSettings, OptionErrors) {
    ConfigObject async = framework_object("cppasync");
    async.add_integer("MaxSequentialDispatch", 0);
    async.add_bool("AsyncOnly", false);
    expect_invalid([&] { qmp::make_parallel_framework(async); }, "MaxSequentialDispatch must be at least 1.");

    ConfigObject pool = framework_object("pushpool");
    pool.add_array("LogicalCores").push_back(ConfigObject::make_integer(qmp::configured_core_count()));
    pool.add_integer("WorkerThreads", 0);
    pool.add_bool("Randomization", false);
    expect_invalid([&] { qmp::make_parallel_framework(pool); },
                   "Invalid core #: " + std::to_string(qmp::configured_core_count()));
    // A missing option is a missing key, not a silent default.
    expect_invalid([] { qmp::make_parallel_framework(framework_object("pushpool")); }, "Invalid Key: WorkerThreads");
}

TEST(CoreSelector, ReadsValidatesAndFormats) {
    qmp::CoreSelector s;
    ConfigObject o = ConfigObject::make_object();
    s.load_config(o);  // missing: no affinity
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.display(), "All");
    o.add_array("LogicalCores");
    expect_invalid([&] { s.load_config(o, true); }, "Must specify at least one core.");
    o.get("LogicalCores", "test").push_back(ConfigObject::make_integer(-1));
    expect_invalid([&] { s.load_config(o); }, "Invalid core #: -1");
    try {
        s.load_config(o);
    } catch (const qmp::Exception& e) {
        EXPECT_EQ(e.function(), "CoreSelector::load_config()");
    }
    EXPECT_EQ(qmp::format_core_list({0, 1, 2, 3, 8, 10, 11, 5}), "0-3, 8, 10-11, 5");
}

TEST(ParallelSettings, DefaultsRoundTripAndErrors) {
    const qmp::ParallelSettings d = qmp::ParallelSettings::defaults();
    EXPECT_EQ(d.task_decomposition, std::min(2 * qmp::logical_core_count(), qmp::kMaxTaskDecomposition));
    EXPECT_EQ(d.framework.get_string("Framework", "test"), qmp::default_parallel_framework_key());

    qmp::ParallelSettings s;
    s.task_decomposition = 37;
    s.framework = framework_object("taskqueue");
    const qmp::ParallelSettings back = qmp::ParallelSettings::load_config(qmp::parse_cfg(qmp::write_cfg(s.to_config(), true)));
    EXPECT_EQ(back.task_decomposition, 37u);
    EXPECT_TRUE(back.framework == s.framework);
    EXPECT_EQ(back.make_framework()->description(), "Task Queue");

    for (int64_t bad : {int64_t(0), int64_t(-3), int64_t(qmp::kMaxTaskDecomposition) + 1}) {
        ConfigObject c = s.to_config();
        c.get("TaskDecomposition", "test") = ConfigObject::make_integer(bad);
        expect_invalid([&] { qmp::ParallelSettings::load_config(c); }, "TaskDecomposition must be between 1 and 16384.");
    }
    ConfigObject unknown = s.to_config();
    unknown.get("Framework", "test") = framework_object("fibers");
    expect_invalid([&] { qmp::ParallelSettings::load_config(unknown); }, "Invalid Parallel Framework: fibers");
}

}  // namespace

namespace {

// Feeds `input` to standard input for the duration of `f` and returns what it printed.
template <typename F>
std::string with_input(const std::string& input, F&& f) {
    qmp::Console::set_colours_enabled(false);
    std::istringstream in(input);
    std::streambuf* saved = std::cin.rdbuf(in.rdbuf());
    testing::internal::CaptureStdout();
    f();
    std::cin.rdbuf(saved);
    return testing::internal::GetCapturedStdout();
}

TEST(SettingsPrompts, RepeatUntilValidAndStopAtEndOfInput) {
    uint32_t threads = 7;
    bool ok = false;
    std::string out = with_input("x\n70000\n12\n", [&] { ok = qmp::prompt_worker_threads(threads); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(threads, 12u);
    EXPECT_EQ(out, "Threads (0 for unlimited threads): Threads (0 for unlimited threads): "
                   "Threads (0 for unlimited threads): ");
    out = with_input("oops\n", [&] { ok = qmp::prompt_worker_threads(threads); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(threads, 12u);

    uint32_t tds = 3;
    out = with_input("0\n16385\n64\n", [&] { ok = qmp::prompt_task_decomposition(tds); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(tds, 64u);
    EXPECT_EQ(out.find("Please choose a number between 1 and 16384: "), 0u);
    out = with_input("", [&] { ok = qmp::prompt_task_decomposition(tds); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(tds, 64u);
}

}  // namespace
