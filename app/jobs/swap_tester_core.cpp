// The random traffic of the swap tester. Threads work on disjoint slices, so the in-memory
// copy needs no lock; a round ends when all its threads are done, then the next round draws
// its thread count. A mismatch records the lowest wrong byte of the failing access.
#include "app/jobs/swap_tester_core.h"

#include "app/jobs/benchio_far_memory.h"
#include "qmp/console.h"
#include "qmp/exception.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint64_t max_access_bytes = 8 << 20;
constexpr int operations_per_thread = 8;

// Log-uniform in [1, high].
uint64_t log_uniform(std::mt19937_64& rng, uint64_t high) {
    const double x = std::uniform_real_distribution<double>(0, std::log2(double(high) + 1))(rng);
    return std::clamp<uint64_t>(uint64_t(std::exp2(x)), 1, high);
}

struct Shared {
    Shared(qmp::FarMemory& o, std::vector<unsigned char>& c, SwapTestResult& r) : object(o), copy(c), result(&r) {}
    qmp::FarMemory& object;
    std::vector<unsigned char>& copy;
    std::atomic<uint64_t> bytes{0};
    std::atomic<uint64_t> operations{0};
    std::atomic<bool> stop{false};
    std::mutex mutex;
    SwapTestResult* result;

    void report_mismatch(uint64_t offset, unsigned char expected, unsigned char found) {
        std::lock_guard<std::mutex> lock(mutex);
        if (!result->mismatch || offset < result->mismatch_offset) {
            result->mismatch = true;
            result->mismatch_offset = offset;
            result->expected = expected;
            result->found = found;
        }
        stop = true;
    }
    void report_error(const std::string& text) {
        std::lock_guard<std::mutex> lock(mutex);
        if (result->error.empty()) result->error = text;
        stop = true;
    }
};

// Compares `bytes` read into `got` with the copy at far offset `offset`.
void compare(Shared& shared, const unsigned char* got, uint64_t offset, uint64_t bytes) {
    const unsigned char* want = shared.copy.data() + offset;
    if (std::memcmp(got, want, bytes) == 0) return;
    for (uint64_t i = 0; i < bytes; ++i) {
        if (got[i] != want[i]) return shared.report_mismatch(offset + i, want[i], got[i]);
    }
}

void one_operation(Shared& shared, std::mt19937_64& rng, uint64_t begin, uint64_t end,
                   std::vector<unsigned char>& buffer) {
    const uint64_t slice = end - begin;
    const int kind = int(rng() % 4);
    if (kind < 2) {
        const uint64_t bytes = log_uniform(rng, std::min(slice, max_access_bytes));
        const uint64_t offset = begin + rng() % (slice - bytes + 1);
        buffer.resize(bytes);
        if (kind == 0) {
            fill_random(reinterpret_cast<char*>(buffer.data()), bytes, rng);
            shared.object.store(buffer.data(), offset, bytes);
            std::memcpy(&shared.copy[offset], buffer.data(), bytes);
        } else {
            shared.object.load(buffer.data(), offset, bytes);
            compare(shared, buffer.data(), offset, bytes);
        }
        shared.bytes += bytes;
        return;
    }
    // Strided: block, far stride >= block (so scattered blocks never overlap), buffer stride
    // >= block, count >= 1, all inside the slice.
    const uint64_t block = log_uniform(rng, std::min<uint64_t>(slice, 1 << 16));
    const uint64_t far_stride = block + log_uniform(rng, std::min<uint64_t>(slice, 1 << 17)) - 1;
    const uint64_t max_count = (slice - block) / far_stride + 1;
    const uint64_t count = 1 + rng() % std::min<uint64_t>(max_count, 64);
    const uint64_t span = (count - 1) * far_stride + block;
    const uint64_t offset = begin + rng() % (slice - span + 1);
    const uint64_t buffer_stride = block + rng() % 64;
    buffer.resize((count - 1) * buffer_stride + block);
    if (kind == 2) {
        fill_random(reinterpret_cast<char*>(buffer.data()), buffer.size(), rng);
        shared.object.scatter(buffer.data(), int64_t(buffer_stride), offset, far_stride, block, count);
        for (uint64_t i = 0; i < count; ++i) {
            std::memcpy(&shared.copy[offset + i * far_stride], &buffer[i * buffer_stride], block);
        }
    } else {
        shared.object.gather(buffer.data(), int64_t(buffer_stride), offset, far_stride, block, count);
        for (uint64_t i = 0; i < count && !shared.stop; ++i) {
            compare(shared, &buffer[i * buffer_stride], offset + i * far_stride, block);
        }
    }
    shared.bytes += count * block;
}

}  // namespace

SwapTestSettings SwapTestSettings::defaults() {
    SwapTestSettings s;
    s.far_memory = disk_far_memory_config({});
    s.seed = uint64_t(Clock::now().time_since_epoch().count());
    return s;
}

SwapTestSettings SwapTestSettings::from_job(const qmp::ConfigObject& job) {
    SwapTestSettings s = defaults();
    if (const qmp::ConfigObject* n = job.find("FarMemoryConfig")) s.far_memory = n->as_object("FarMemoryConfig");
    s.test_bytes = byte_count_member(job, "TestBytes", s.test_bytes);
    s.total_bytes = byte_count_member(job, "TotalBytes", s.total_bytes);
    s.seconds = byte_count_member(job, "Seconds", s.seconds);
    s.seed = byte_count_member(job, "Seed", s.seed);
    s.max_threads = uint32_t(std::min<uint64_t>(byte_count_member(job, "Threads", s.max_threads), 1024));
    return s;
}

std::string SwapTestSettings::problem() const {
    if (test_bytes < 4096) return "The test size must be at least 4096 bytes.";
    if (max_threads < 1 || max_threads > 256) return "Threads must be between 1 and 256.";
    if (test_bytes / max_threads < 64) return "The test size is too small for that many threads.";
    return {};
}

SwapTestResult run_swap_test(qmp::FarMemory& object, const SwapTestSettings& settings) {
    using qmp::Console::Colour;
    SwapTestResult result;
    const uint64_t size = object.size_bytes();
    const uint64_t budget = settings.total_bytes ? settings.total_bytes : 4 * size;
    qmp::Console::println("Seed: " + std::to_string(settings.seed), Colour::Value);
    std::vector<unsigned char> copy(size);
    Shared shared(object, copy, result);
    std::mt19937_64 rng(settings.seed);
    const auto start = Clock::now();
    try {
        // Everything starts known: one full store in transfers of at most 64 MiB.
        for (uint64_t at = 0; at < size; at += 64 << 20) {
            const uint64_t bytes = std::min<uint64_t>(64 << 20, size - at);
            fill_random(reinterpret_cast<char*>(&copy[at]), bytes, rng);
            object.store(&copy[at], at, bytes);
        }
        shared.bytes = size;
    } catch (const std::exception& e) {
        shared.report_error(e.what());
    }
    uint64_t next_progress = budget / 4;
    while (!shared.stop && shared.bytes < budget + size) {
        if (settings.seconds && std::chrono::duration<double>(Clock::now() - start).count() > double(settings.seconds)) break;
        const uint32_t threads = 1 + uint32_t(rng() % settings.max_threads);
        std::vector<std::thread> pool;
        for (uint32_t t = 0; t < threads; ++t) {
            const uint64_t begin = size * t / threads, end = size * (t + 1) / threads;
            pool.emplace_back([&shared, begin, end, thread_seed = rng()] {
                std::mt19937_64 thread_rng(thread_seed);
                std::vector<unsigned char> buffer;
                try {
                    for (int op = 0; op < operations_per_thread && !shared.stop; ++op) {
                        one_operation(shared, thread_rng, begin, end, buffer);
                        ++shared.operations;
                    }
                } catch (const qmp::Exception& e) {
                    shared.report_error(e.function() + "\n" + e.message());
                } catch (const std::exception& e) {
                    shared.report_error(e.what());
                }
            });
        }
        for (auto& th : pool) th.join();
        if (shared.bytes - size >= next_progress && !shared.stop) {
            qmp::Console::println("  " + short_byte_size(shared.bytes - size) + " moved...", Colour::Info);
            next_progress += budget / 4;
        }
    }
    result.bytes_moved = shared.bytes;
    result.operations = shared.operations;
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

void print_swap_test_result(const SwapTestResult& result) {
    using qmp::Console::Colour;
    char line[160];
    std::snprintf(line, sizeof line, "Bytes moved: %llu in %llu operations, %.3f s, %.1f MB/s",
                  (unsigned long long)result.bytes_moved, (unsigned long long)result.operations, result.seconds,
                  result.mb_per_s());
    qmp::Console::println(line, Colour::Value);
    if (result.mismatch) {
        std::snprintf(line, sizeof line, "Mismatch at offset %llu: expected 0x%02x, read 0x%02x",
                      (unsigned long long)result.mismatch_offset, result.expected, result.found);
        qmp::Console::println(line, Colour::Error);
    }
    if (!result.error.empty()) qmp::Console::println("Error: " + result.error, Colour::Error);
    if (!result.mismatch && result.error.empty()) qmp::Console::println("No errors found.", Colour::Value);
}

}  // namespace qv
