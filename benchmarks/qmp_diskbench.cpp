// Throughput of striped disk far memory with direct I/O: sequential writes and reads in 64 MiB
// transfers with checksums on, then the same with checksums off, strided gathers of 64 KiB
// blocks (1024 blocks per call, 17 blocks apart, at random starting points), and the checksum
// kernel alone on one core over a 64 MiB buffer (memory-resident, as after a read). MB/s is
// 10^6 bytes per second (as fio and dd print it); GB/s is 10^9.
// QMP_DISKBENCH_REPS=N repeats the sequential runs (checksums on, off, on, off, ...) and
// prints medians.
// Usage: qmp_diskbench PATH[:PATH...] [LANES = 1] [SIZE_MB = 4096] [INTERLEAVE_KIB = 64] [WORKERS] [BUFFER_MIB]
//   LANES lanes are made as subdirectories "qdb-lane<i>" of the given paths, taken in turn, so
//   "a:b 2" puts one lane in each of a and b. Prints one line of figures on standard output.
#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/block_checksum.h"
#include "qmp/farmemory/disk_raid0.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Sequential {
    double write_mbs;
    double read_mbs;
};

constexpr uint64_t transfer_bytes = uint64_t(64) << 20;

Sequential sequential(qmp::FarMemory& file, char* buffer) {
    const uint64_t size = file.size_bytes();
    Sequential r{};
    auto start = Clock::now();
    for (uint64_t at = 0; at < size; at += transfer_bytes) file.store(buffer, at, std::min(transfer_bytes, size - at));
    r.write_mbs = double(size) / 1e6 / seconds_since(start);
    start = Clock::now();
    for (uint64_t at = 0; at < size; at += transfer_bytes) file.load(buffer, at, std::min(transfer_bytes, size - at));
    r.read_mbs = double(size) / 1e6 / seconds_since(start);
    return r;
}

double gather_64k(qmp::FarMemory& file, char* buffer) {
    constexpr uint64_t block = 65536, count = 1024, stride_blocks = 17;
    const uint64_t blocks = file.size_bytes() / block;
    if (blocks < count * stride_blocks) return 0;
    std::mt19937_64 rng(1);
    const uint64_t total = std::min<uint64_t>(file.size_bytes(), uint64_t(1) << 30);
    const auto start = Clock::now();
    for (uint64_t done = 0; done < total; done += count * block) {
        const uint64_t first = rng() % (blocks - (count - 1) * stride_blocks);
        file.gather(buffer, block, first * block, stride_blocks * block, block, count);
    }
    return double(total) / 1e6 / seconds_since(start);
}

double checksum_gbs(char* buffer, uint64_t bytes) {
    uint32_t sink = 0;
    const auto start = Clock::now();
    for (int pass = 0; pass < 8; ++pass) {
        for (uint64_t at = 0; at < bytes; at += 65536) sink ^= qmp::block_checksum(buffer + at, 65536, uint32_t(pass));
    }
    const double s = seconds_since(start);
    if (sink == 0xdeadbeef) std::fprintf(stderr, " ");  // keeps the work
    return double(bytes) * 8 / 1e9 / s;
}

std::vector<std::string> split_paths(const std::string& list) {
    std::vector<std::string> out;
    std::stringstream in(list);
    for (std::string item; std::getline(in, item, ':');) out.push_back(item);
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: qmp_diskbench PATH[:PATH...] [LANES] [SIZE_MB] [INTERLEAVE_KIB]\n");
        return 2;
    }
    try {
        const std::vector<std::string> roots = split_paths(argv[1]);
        const size_t lanes = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
        const uint64_t size = (argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 4096) << 20;
        const uint64_t interleave = (argc > 4 ? std::strtoull(argv[4], nullptr, 10) : 64) << 10;
        std::vector<std::string> paths;
        for (size_t i = 0; i < lanes; ++i) {
            paths.push_back(roots[i % roots.size()] + "/qdb-lane" + std::to_string(i));
            std::filesystem::create_directories(paths.back());
        }
        qmp::DiskRaid0Settings settings = qmp::DiskRaid0Settings::for_paths(paths);
        settings.interleave_k = uint32_t(std::countr_zero(interleave));
        settings.raw_io = true;
        if (argc > 5) settings.workers = uint32_t(std::strtoul(argv[5], nullptr, 10));
        if (argc > 6) settings.buffer_per_worker = std::strtoull(argv[6], nullptr, 10) << 20;
        qmp::AlignedBlock memory = qmp::make_aligned_block(transfer_bytes, 4096);
        char* buffer = static_cast<char*>(memory.get());
        std::mt19937_64 rng(7);
        for (uint64_t i = 0; i < transfer_bytes / 8; ++i) reinterpret_cast<uint64_t*>(buffer)[i] = rng();

        // Checksums on and off alternate QMP_DISKBENCH_REPS times (default 1) and each figure is
        // the median, so that drift of a shared or virtual disk hits both alike.
        const char* reps_text = std::getenv("QMP_DISKBENCH_REPS");
        const int reps = std::max(1, reps_text ? std::atoi(reps_text) : 1);
        std::vector<double> on_w, on_r, off_w, off_r;
        double gather = 0;
        for (int rep = 0; rep < reps; ++rep) {
            for (bool checksums : {true, false}) {
                settings.checksums = checksums;
                qmp::DiskRaid0 framework(settings);
                auto file = framework.create_file("bench", size);
                const Sequential r = sequential(*file, buffer);
                (checksums ? on_w : off_w).push_back(r.write_mbs);
                (checksums ? on_r : off_r).push_back(r.read_mbs);
                if (checksums && rep == 0) gather = gather_64k(*file, buffer);
            }
        }
        auto median = [](std::vector<double> v) {
            std::sort(v.begin(), v.end());
            return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
        };
        const Sequential on{median(on_w), median(on_r)}, off{median(off_w), median(off_r)};
        const double sums = checksum_gbs(buffer, transfer_bytes);
        for (const std::string& p : paths) std::filesystem::remove(p);
        std::printf("seq_write_mbs=%.0f seq_read_mbs=%.0f seq_write_nocheck_mbs=%.0f seq_read_nocheck_mbs=%.0f "
                    "gather_64k_mbs=%.0f checksum_gbs=%.1f\n",
                    on.write_mbs, on.read_mbs, off.write_mbs, off.read_mbs, gather, sums);
        std::fprintf(stderr, "simd=%s lanes=%zu size=%llu MiB interleave=%llu KiB workers=%u buffer=%llu MiB\n",
                     qmp::simd_level_name(qmp::active_simd_level()), lanes, (unsigned long long)(size >> 20),
                     (unsigned long long)(interleave >> 10), settings.workers,
                     (unsigned long long)(settings.buffer_per_worker >> 20));
    } catch (const qmp::Exception& e) {
        e.print();
        return 1;
    }
    return 0;
}
