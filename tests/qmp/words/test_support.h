// Shared helpers of the word-array tests: the seed (fixed default, QMP_TEST_SEED overrides, put
// in every trace), operands with long runs of ones and zeros, exact exception checks, the
// parallelizers every bp_ routine is run under, and a RAM-backed FarMemory.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <typeinfo>
#include <vector>

#include "tests/test_support.h"
#include "qmp/farmemory/far_memory.h"
#include "qmp/parallel/cppasync_framework.h"
#include "qmp/parallel/parallelizer.h"
#include "qmp/parallel/pushpool_framework.h"
#include "qmp/parallel/spawn_framework.h"
#include "qmp/parallel/taskqueue_framework.h"

namespace qmp::test {

using WordTypes = ::testing::Types<uint32_t, uint64_t>;

// Uniform words, or runs of all-zero, all-one and random words, which send carries far.
template <typename W>
std::vector<W> random_words(std::mt19937_64& rng, uint64_t n) {
    std::vector<W> v(n);
    const bool uniform = rng() % 4 == 0;
    const uint64_t max_run = rng() % 2 ? 40 : 400;
    for (uint64_t i = 0; i < n;) {
        const uint64_t run = uniform ? 1 : 1 + rng() % max_run;
        const uint64_t fill = uniform ? 2 : rng() % 3;
        for (uint64_t k = 0; k < run && i < n; ++k, ++i) v[i] = fill == 0 ? W(0) : fill == 1 ? W(~W(0)) : W(rng());
    }
    return v;
}

// The inline runner and every task framework: results must not depend on which runs the tasks.
inline std::vector<std::unique_ptr<Parallelizer>> parallelizers() {
    std::vector<std::unique_ptr<Parallelizer>> list;
    list.push_back(std::make_unique<SequentialParallelizer>());
    list.push_back(std::make_unique<TaskQueueFramework>(2));
    list.push_back(std::make_unique<CppAsyncFramework>());
    list.push_back(std::make_unique<SpawnFramework>());
    list.push_back(std::make_unique<PushPoolFramework>());
    return list;
}

// Far memory held in a vector, open to the test for setting up and checking its bytes.
class RamFarMemory final : public FarMemory {
public:
    explicit RamFarMemory(uint64_t size_bytes) : FarMemory("test ram", size_bytes), bytes(size_bytes, 0xA7) {}
    std::vector<unsigned char> bytes;
    uint64_t load_calls = 0;

protected:
    void do_load(void* buffer, uint64_t offset, uint64_t n) override {
        std::memcpy(buffer, bytes.data() + offset, n);
        ++load_calls;
    }
    void do_store(const void* buffer, uint64_t offset, uint64_t n) override { std::memcpy(bytes.data() + offset, buffer, n); }
};

}  // namespace qmp::test
