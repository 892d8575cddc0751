// Helpers of the striped-disk tests: settings for lanes in a scratch directory, a lane file
// that can be made to fail or stall part-way, and reading a lane file behind the object's back.
#pragma once

#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/lane_file.h"
#include "qmp/farmemory/posix_errors.h"
#include "tests/qmp/farmemory/test_support.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace qmp::test {

// Lanes as subdirectories "lane0", "lane1", ... of `dir`.
inline DiskRaid0Settings lane_settings(const ScratchDir& dir, size_t lanes, uint32_t interleave_k, bool raw_io,
                                       bool checksums = true) {
    std::vector<std::string> paths;
    for (size_t i = 0; i < lanes; ++i) {
        paths.push_back(dir.file("lane" + std::to_string(i)));
        std::filesystem::create_directories(paths.back());
    }
    DiskRaid0Settings s = DiskRaid0Settings::for_paths(paths);
    s.interleave_k = interleave_k;
    s.buffer_per_worker = uint64_t(4) << interleave_k;
    s.raw_io = raw_io;
    s.checksums = checksums;
    return s;
}

inline size_t files_in(const std::filesystem::path& dir) {
    size_t n = 0;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) n += e.is_regular_file();
    return n;
}

// A lane file whose writes fail once `write_budget` bytes have gone (ENOSPC, or a short write
// reported as incomplete), whose reads can throw a non-qmp exception, and whose reads can
// be held until released.
struct FaultPlan {
    std::atomic<int64_t> write_budget{INT64_MAX};
    bool incomplete_instead_of_full = false;
    std::atomic<bool> reads_throw_std{false};
    std::mutex mutex;
    std::condition_variable released_cv;
    bool hold_reads = false;
    std::atomic<int> reads_waiting{0};
    void release() {
        std::lock_guard<std::mutex> lock(mutex);
        hold_reads = false;
        released_cv.notify_all();
    }
};

class FaultyLaneFile : public LaneFile {
public:
    FaultyLaneFile(const std::string& path, uint64_t size_bytes, bool raw_io, FaultPlan& plan)
        : LaneFile(path, size_bytes, raw_io), plan_(plan) {}

    void store_vector(const std::vector<iovec>& pieces, uint64_t offset) override {
        uint64_t bytes = 0;
        for (const iovec& v : pieces) bytes += v.iov_len;
        spend(bytes);
        LaneFile::store_vector(pieces, offset);
    }
    void store(const void* buffer, uint64_t offset, uint64_t bytes) override {
        spend(bytes);
        LaneFile::store(buffer, offset, bytes);
    }
    void load_vector(const std::vector<iovec>& pieces, uint64_t offset) override {
        before_read();
        LaneFile::load_vector(pieces, offset);
    }
    void load(void* buffer, uint64_t offset, uint64_t bytes) override {
        before_read();
        LaneFile::load(buffer, offset, bytes);
    }

private:
    void spend(uint64_t bytes) {
        const int64_t left = plan_.write_budget.fetch_sub(int64_t(bytes)) - int64_t(bytes);
        if (left >= 0) return;
        if (plan_.incomplete_instead_of_full) {
            FileIO::throw_file_error("LaneFile::store()", path(), "Incomplete Write: 4096");
        }
        FileIO::throw_system_error("LaneFile::store()", path(), ENOSPC);
    }
    void before_read() {
        if (plan_.reads_throw_std) throw std::runtime_error("simulated controller reset");
        std::unique_lock<std::mutex> lock(plan_.mutex);
        ++plan_.reads_waiting;
        plan_.released_cv.wait(lock, [this] { return !plan_.hold_reads; });
        --plan_.reads_waiting;
    }
    FaultPlan& plan_;
};

inline DiskRaid0::LaneFileFactory faulty_files(FaultPlan& plan) {
    return [&plan](const std::string& path, uint64_t size_bytes, bool raw_io) -> std::unique_ptr<LaneFile> {
        return std::make_unique<FaultyLaneFile>(path, size_bytes, raw_io, plan);
    };
}

}  // namespace qmp::test
