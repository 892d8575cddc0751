// Shared helpers of the word-array tests: the seeded random source (QMP_TEST_SEED overrides the
// fixed default; every test prints the seed it used on failure), operands with long runs of
// ones and zeros, a thread-based Parallelizer and a RAM-backed FarMemory.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "qmp/farmemory/far_memory.h"
#include "qmp/parallel/parallelizer.h"

namespace qmp::test {

inline uint64_t test_seed() {
    const char* s = std::getenv("QMP_TEST_SEED");
    return (s != nullptr && s[0] != '\0') ? std::strtoull(s, nullptr, 0) : 20261122;
}

inline std::string seed_note(uint64_t seed) { return "QMP_TEST_SEED=" + std::to_string(seed); }

using WordTypes = ::testing::Types<uint32_t, uint64_t>;

// Runs f and expects an exception of class E naming `function` with exactly `message`.
template <typename E, typename F>
void expect_throw(F&& f, const std::string& function, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "no exception, expected " << function << ": " << message;
    } catch (const E& e) {
        EXPECT_EQ(e.function(), function);
        EXPECT_EQ(e.message(), message);
    }
}

// Words of a random kind: uniform, or long runs of all-ones and all-zero words and bits, which
// make carries and borrows travel far.
template <typename W>
std::vector<W> random_words(std::mt19937_64& rng, uint64_t n) {
    std::vector<W> v(n);
    const int kind = int(rng() % 4);
    for (uint64_t i = 0; i < n;) {
        if (kind == 0) {
            v[i++] = W(rng());
            continue;
        }
        const uint64_t run = 1 + rng() % (kind == 3 ? 400 : 40);
        const int fill = int(rng() % 3);  // 0: zeros, 1: ones, 2: one random word
        for (uint64_t k = 0; k < run && i < n; ++k, ++i) {
            v[i] = fill == 0 ? W(0) : fill == 1 ? W(~W(0)) : W(rng());
        }
    }
    return v;
}

// Runs tasks on up to `threads` threads (the caller included) pulling indices from a counter;
// the first exception of a task is rethrown after every task has finished.
class ThreadParallelizer final : public Parallelizer {
public:
    explicit ThreadParallelizer(unsigned threads) : threads_(threads) {}

    void run_in_parallel(uint64_t task_count, TaskFunction task) override {
        std::atomic<uint64_t> next{0};
        std::exception_ptr error;
        std::mutex error_mutex;
        auto worker = [&] {
            for (uint64_t i; (i = next.fetch_add(1)) < task_count;) {
                try {
                    task(i);
                } catch (...) {
                    std::lock_guard<std::mutex> lock(error_mutex);
                    if (!error) error = std::current_exception();
                }
            }
        };
        std::vector<std::thread> pool;
        for (unsigned t = 1; t < threads_ && t < task_count; ++t) pool.emplace_back(worker);
        worker();
        for (auto& t : pool) t.join();
        if (error) std::rethrow_exception(error);
    }
    std::string description() const override { return "test threads"; }

private:
    unsigned threads_;
};

// Far memory held in a vector; counts the bytes moved so tests can see what was touched.
class RamFarMemory final : public FarMemory {
public:
    explicit RamFarMemory(uint64_t size_bytes) : FarMemory("test ram", size_bytes), bytes_(size_bytes) {}
    unsigned char* data() { return bytes_.data(); }
    uint64_t loaded = 0, stored = 0;

protected:
    void do_load(void* buffer, uint64_t offset, uint64_t bytes) override {
        std::memcpy(buffer, bytes_.data() + offset, bytes);
        loaded += bytes;
    }
    void do_store(const void* buffer, uint64_t offset, uint64_t bytes) override {
        std::memcpy(bytes_.data() + offset, buffer, bytes);
        stored += bytes;
    }

private:
    std::vector<unsigned char> bytes_;
};

}  // namespace qmp::test
