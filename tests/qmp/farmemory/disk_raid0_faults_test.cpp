// Failures of striped disk arrays reach the waiting caller as exceptions, never a hang or a
// crash: a disk that fills up (a real 1 MiB tmpfs when this process may mount one, and an
// injected lane failure), a worker's foreign exception, a missing file handle, an object
// destroyed with commands in flight, refused thread pinning, the I/O buffer's own checks. Then
// many threads at once on disjoint ranges that share stripe blocks at their edges.
#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/io_buffer.h"
#include "tests/qmp/farmemory/disk_raid0_support.h"

#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace qmp {
namespace {

using test::ScratchDir;

std::string last_line(const std::string& text) { return text.substr(text.rfind('\n') + 1); }

TEST(DiskRaid0Faults, AFullDiskIsReportedToTheCaller) {
    ScratchDir dir;
    const std::string mount_point = dir.file("tiny");
    std::filesystem::create_directories(mount_point);
    if (::geteuid() != 0 || ::mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=1m") != 0) {
        GTEST_SKIP() << "cannot mount a tmpfs here";
    }
    {
        DiskRaid0Settings settings = DiskRaid0Settings::for_paths({mount_point});
        settings.interleave_k = 16;
        settings.buffer_per_worker = 1 << 18;
        DiskRaid0 framework(settings);
        auto file = framework.create_file("too-big", 4 << 20);  // sparse: creation succeeds
        std::vector<char> data(4 << 20, 'f');
        try {
            file->store(data.data(), 0, data.size());
            ADD_FAILURE() << "a 4 MiB store fitted on a 1 MiB file system";
        } catch (const DiskRaid0::Raid0Exception& e) {
            EXPECT_EQ(e.function(), "LaneFile::store()");
            const std::string m = e.message();
            EXPECT_TRUE(m.find("Disk is Full") != std::string::npos || m.find("Incomplete Write: ") != std::string::npos)
                << m;
            EXPECT_EQ(m.rfind("Path: " + file->lane_path(0) + "\n", 0), 0u) << m;
        }
        // What was written before the failure still reads back.
        char back[100];
        EXPECT_NO_THROW(file->load(back, 0, 100));
    }
    ::umount(mount_point.c_str());
}

TEST(DiskRaid0Faults, InjectedLaneFailuresAndForeignExceptions) {
    ScratchDir dir;
    test::FaultPlan plan;
    DiskRaid0Settings settings = test::lane_settings(dir, 3, 12, true);
    DiskRaid0 framework(settings, test::faulty_files(plan));
    auto file = framework.create_file("faulty", 4096 * 30);
    std::vector<char> data(4096 * 30, 'd');
    plan.write_budget = 4096 * 5;  // part of the store goes through, then the disk is full
    try {
        file->store(data.data(), 0, data.size());
        ADD_FAILURE() << "no failure";
    } catch (const DiskRaid0::Raid0Exception& e) {
        EXPECT_EQ(last_line(e.message()), "Disk is Full");
    }
    // Blocks whose write failed never read back as valid data.
    std::vector<char> back(data.size());
    EXPECT_THROW(file->load(back.data(), 0, back.size()), DiskRaid0::Raid0Exception);
    plan.write_budget = INT64_MAX;
    file->store(data.data(), 0, data.size());
    plan.incomplete_instead_of_full = true;
    plan.write_budget = 0;
    try {
        file->store(data.data() + 1, 10, 5000);  // the buffered path fails the same way
        ADD_FAILURE() << "no failure";
    } catch (const DiskRaid0::Raid0Exception& e) {
        EXPECT_EQ(last_line(e.message()), "Incomplete Write: 4096");
    }
    plan.write_budget = INT64_MAX;
    plan.reads_throw_std = true;
    test::expect_throw<DiskRaid0::Raid0Exception>(
        [&] { file->load(data.data(), 0, 4096); }, "IoThread::thread_routine()",
        "An exception was thrown from a worker thread.\nsimulated controller reset");
    plan.reads_throw_std = false;
    // The workers survived: the array still works.
    EXPECT_NO_THROW(file->store(data.data(), 0, data.size()));
    file->load(back.data(), 0, back.size());
    EXPECT_TRUE(back == data);
    // The lane files go with the object after failures too.
    file.reset();
    EXPECT_EQ(test::files_in(dir.path()), 0u);
}

TEST(DiskRaid0Faults, MissingHandleAndDestroyingWithCommandsInFlight) {
    ScratchDir dir;
    test::FaultPlan plan;
    DiskRaid0 framework(test::lane_settings(dir, 2, 12, false),
                        [&plan](const std::string& path, uint64_t size, bool raw) -> std::unique_ptr<LaneFile> {
                            if (path.back() == '1') return nullptr;  // lane 1 gets no handle
                            return std::make_unique<test::FaultyLaneFile>(path, size, raw, plan);
                        });
    auto file = framework.create_file("holes", 4096 * 4);
    char buffer[4096];
    EXPECT_NO_THROW(file->load(buffer, 0, 4096));
    test::expect_throw<DiskRaid0::Raid0Exception>([&] { file->load(buffer, 4096, 4096); },
                                                  "DiskRaid0::load_from_file()",
                                                  "Impossible State: File handle is null.");

    plan.hold_reads = true;
    IoTicket ticket = file->start_load(buffer, 0, 4096);
    while (plan.reads_waiting.load() == 0) std::this_thread::yield();
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        plan.release();
    });
    {
        test::CaptureConsole console;
        file.reset();  // reports, then waits for the held read to finish
        EXPECT_NE(console.text().find("Attempted to destroy a file with active commands: holes"), std::string::npos)
            << console.text();
        EXPECT_NE(console.text().find("Exception thrown on destruction path."), std::string::npos);
    }
    releaser.join();
    EXPECT_TRUE(ticket.finished());
    EXPECT_NO_THROW(ticket.wait());
}

TEST(DiskRaid0Faults, PinningRefusedAndBufferChecks) {
    ScratchDir dir;
    DiskRaid0Settings settings = test::lane_settings(dir, 2, 12, false);
    settings.lanes[1].worker_cores = {CPU_SETSIZE + 5};
    test::expect_throw<DiskRaid0::Raid0Exception>([&] { DiskRaid0 framework(settings); }, "IoThread::pin()",
                                                  "DiskRaid0: Unable to set worker thread affinity for lane 1");

    AlignedBlock memory = make_aligned_block(8192, 4096);
    IoBuffer buffer(static_cast<char*>(memory.get()), 8192);
    buffer.prepare_overwrite(0, 4096);
    char bytes[16] = {};
    test::expect_throw<DiskRaid0::Raid0Exception>(
        [&] { buffer.memory_write(bytes, 4090, 16); }, "IoBuffer::memory_write()",
        "memory_write() - Detected I/O Buffer Overrun:\nAttempted to Access: [4090, 4106)\n"
        "    buffer size: 8192\n    data bytes:  4096");
    test::expect_throw<DiskRaid0::Raid0Exception>(
        [&] { buffer.memory_read(bytes, 5000, 1); }, "IoBuffer::memory_read()",
        "memory_read() - Detected I/O Buffer Overrun:\nAttempted to Access: [5000, 5001)\n"
        "    buffer size: 8192\n    data bytes:  4096");
    test::expect_throw<DiskRaid0::Raid0Exception>(
        [&] { buffer.invalidate_contents(); }, "IoBuffer::invalidate_contents()",
        "Attempted to invalidate a dirty buffer without first flushing to disk.");
}

TEST(DiskRaid0Concurrency, ThreadsOnDisjointRangesSharingEdgeBlocks) {
    SCOPED_TRACE(test::seed_note());
    ScratchDir dir;
    DiskRaid0Settings settings = test::lane_settings(dir, 3, 12, true);
    settings.workers = 2;
    DiskRaid0 framework(settings);
    constexpr int threads = 6;
    constexpr uint64_t slice = 4096 * 5 + 1234;  // slices begin and end inside blocks
    auto file = framework.create_file("shared", slice * threads);
    std::vector<std::thread> pool;
    std::vector<int> failures(threads, 0);
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            std::mt19937_64 rng(test::test_seed() + 100 + t);
            std::vector<unsigned char> shadow(slice, 0), buffer(slice);
            file->store(shadow.data(), t * slice, slice);
            for (int round = 0; round < 40; ++round) {
                const uint64_t offset = rng() % slice;
                const uint64_t bytes = 1 + rng() % (slice - offset);
                if (rng() % 2) {
                    for (uint64_t i = 0; i < bytes; ++i) shadow[offset + i] = static_cast<unsigned char>(rng());
                    file->store(&shadow[offset], t * slice + offset, bytes);
                } else {
                    file->load(buffer.data(), t * slice + offset, bytes);
                    failures[t] += std::memcmp(buffer.data(), &shadow[offset], bytes) != 0;
                }
            }
            file->load(buffer.data(), t * slice, slice);
            failures[t] += buffer != shadow;
        });
    }
    for (auto& th : pool) th.join();
    for (int t = 0; t < threads; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
}  // namespace qmp
