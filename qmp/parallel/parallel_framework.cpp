// The framework registry, holding the five built-in frameworks from its first use.
//
// Default framework: "pushpool", the cheapest fork-join in benchmarks/parallel_bench (2-core
// x86-64 VM shared with other jobs, load ~10, g++ 12 -O2, 2026-11-22): per run of N empty tasks
// 0.37 / 0.71 / 1.9 / 16 us for N = 2 / 8 / 64 / 1024 against the task queue's 0.42 / 0.81 /
// 2.1 / 35 us, and 0.12 us per fork in a depth-20 binary recursion against 0.30 us; spawn and
// std::async pay a thread creation per task (0.8 ms to 0.4 s per run, ~240 us per fork).
// Its one cost: an exception escaping a task on a worker ends the program instead of reaching
// the caller (the task queue carries it; choose "taskqueue" to debug failing checks).
#include "qmp/parallel/parallel_framework.h"

#include "qmp/parallel/cppasync_framework.h"
#include "qmp/parallel/none_framework.h"
#include "qmp/parallel/pushpool_framework.h"
#include "qmp/parallel/spawn_framework.h"
#include "qmp/parallel/taskqueue_framework.h"

#include <mutex>

namespace qmp {

ConfigObject ParallelFramework::to_config() const {
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", key());
    return config;
}

const char* default_parallel_framework_key() { return "pushpool"; }

namespace {

ConfigObject key_only_config(const char* key) {
    ConfigObject config = ConfigObject::make_object();
    config.add_string("Framework", key);
    return config;
}

struct Registry {
    std::mutex mutex;
    std::vector<ParallelFrameworkType> types;

    // Caller holds the mutex.
    void add(ParallelFrameworkType type) {
        for (const ParallelFrameworkType& t : types) {
            if (t.key == type.key)
                throw InvalidParametersException("register_parallel_framework()", "Duplicate Framework Type");
        }
        types.push_back(std::move(type));
    }
};

// Built in on first use rather than by static constructors, which a static library's linker is
// free to drop.
Registry& registry() {
    static Registry* r = [] {
        auto* reg = new Registry;  // never destroyed: worker threads may outlive static teardown
        reg->add({"none", "None (No Multi-threading)", &NoneFramework::create, [] { return key_only_config("none"); }});
        reg->add({"cppasync", "std::async", &CppAsyncFramework::create, &CppAsyncFramework::default_config});
        reg->add({"spawn", "Thread Spawn (1 Thread/Task)", &SpawnFramework::create,
                  [] { return key_only_config("spawn"); }});
        reg->add({"taskqueue", "Task Queue", &TaskQueueFramework::create, [] { return key_only_config("taskqueue"); }});
        reg->add({"pushpool", "Push Pool", &PushPoolFramework::create, &PushPoolFramework::default_config});
        return reg;
    }();
    return *r;
}

}  // namespace

void register_parallel_framework(ParallelFrameworkType type) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.add(std::move(type));
}

std::vector<ParallelFrameworkType> parallel_framework_types() {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.types;
}

ParallelFrameworkType find_parallel_framework(const std::string& key) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (const ParallelFrameworkType& t : r.types) {
        if (t.key == key) return t;
    }
    throw InvalidParametersException("find_parallel_framework()", "Invalid Parallel Framework: " + key);
}

std::unique_ptr<ParallelFramework> make_parallel_framework(const ConfigObject& settings) {
    const std::string& key = settings.as_object("Framework").get_string("Framework", "make_parallel_framework()");
    return find_parallel_framework(key).factory(settings);
}

}  // namespace qmp
