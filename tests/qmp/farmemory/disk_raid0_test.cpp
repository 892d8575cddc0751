// Striped disk arrays: the striping rule checked on the lane files themselves, round trips of
// random data against an in-memory copy (ranges that start and end inside stripe blocks, across
// lanes, 1/2/3/5 lanes, direct and buffered I/O, aligned and unaligned memory, strided
// access), checksums that catch a byte changed behind the object's back, and the settings.
#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/framework_registry.h"
#include "tests/qmp/farmemory/disk_raid0_support.h"

#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qmp {
namespace {

using test::ScratchDir;

// Reads `bytes` of a lane file at `offset` through the file system.
std::string read_lane(const std::string& path, uint64_t offset, size_t bytes) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(std::streamoff(offset));
    std::string out(bytes, '\0');
    in.read(out.data(), std::streamsize(bytes));
    return out;
}

void flip_byte(const std::string& path, uint64_t offset) {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekg(std::streamoff(offset));
    char c = 0;
    f.get(c);
    f.seekp(std::streamoff(offset));
    f.put(char(c ^ 0x20));
}

TEST(DiskRaid0Layout, ByteLocationAndLaneFileContents) {
    const DiskRaid0::Location at = DiskRaid0::locate(300000, 4, 16);
    EXPECT_EQ(at.block, 4u);
    EXPECT_EQ(at.lane, 0u);
    EXPECT_EQ(at.lane_offset, 65536u + 37856u);

    // The rule checked on the files: every byte of a 5-lane object, written once, is found in
    // lane (b mod 5) at (b div 5) * W + (byte mod W).
    ScratchDir dir;
    DiskRaid0 framework(test::lane_settings(dir, 5, 12, false));
    const uint64_t size = 4096 * 23 + 100;
    auto file = framework.create_file("layout", size);
    std::mt19937_64 rng(test::test_seed());
    const std::vector<unsigned char> data = test::random_bytes(rng, size);
    file->store(data.data(), 0, size);
    std::vector<std::string> lanes;
    for (size_t lane = 0; lane < 5; ++lane) lanes.push_back(test::read_whole(file->lane_path(lane)));
    for (uint64_t byte = 0; byte < size; byte += 97) {
        const DiskRaid0::Location l = DiskRaid0::locate(byte, 5, 12);
        ASSERT_LT(l.lane_offset, lanes[l.lane].size());
        ASSERT_EQ((unsigned char)lanes[l.lane][l.lane_offset], data[byte]) << byte;
    }
    // Lane files are named "qcs-" and numbers; they go with the object.
    EXPECT_EQ(std::filesystem::path(file->lane_path(3)).filename().string().rfind("qcs-", 0), 0u);
    EXPECT_EQ(test::files_in(dir.path()), 5u);
    file.reset();
    EXPECT_EQ(test::files_in(dir.path()), 0u);
}

TEST(DiskRaid0Layout, WorkedExampleOnFourLanes) {
    ScratchDir dir;
    DiskRaid0 framework(test::lane_settings(dir, 4, 16, true));
    auto file = framework.create_file("example", 1 << 20);
    file->store("X", 300000, 1);
    EXPECT_EQ(read_lane(file->lane_path(0), 65536 + 37856, 1), "X");
}

struct RoundTripCase {
    size_t lanes;
    bool raw_io;
};

TEST(DiskRaid0RoundTrip, RandomRangesMatchAnInMemoryCopy) {
    SCOPED_TRACE(test::seed_note());
    std::mt19937_64 rng(test::test_seed() + 7);
    for (const RoundTripCase c : {RoundTripCase{1, true}, {2, false}, {3, true}, {5, true}, {5, false}}) {
        SCOPED_TRACE("lanes " + std::to_string(c.lanes) + (c.raw_io ? " raw" : " buffered"));
        ScratchDir dir;
        DiskRaid0Settings settings = test::lane_settings(dir, c.lanes, 12, c.raw_io);
        settings.workers = 2;
        DiskRaid0 framework(settings);
        const uint64_t size = 4096 * 37 + 1000;
        auto file = framework.create_file("roundtrip", size);
        std::vector<unsigned char> shadow = test::random_bytes(rng, size);
        file->store(shadow.data(), 0, size);
        // Memory 4096-aligned for direct transfers, and 1 byte off to force the buffers.
        AlignedBlock memory = make_aligned_block(size + 4096, 4096);
        for (int round = 0; round < 60; ++round) {
            const uint64_t offset = rng() % size;
            const uint64_t bytes = 1 + rng() % std::min<uint64_t>(size - offset, 4096 * 12);
            const bool aligned_memory = rng() % 2 == 0;
            unsigned char* mem = static_cast<unsigned char*>(memory.get()) + (aligned_memory ? 0 : 1);
            if (rng() % 2 == 0) {
                for (uint64_t i = 0; i < bytes; ++i) mem[i] = static_cast<unsigned char>(rng());
                file->store(mem, offset, bytes);
                std::memcpy(&shadow[offset], mem, bytes);
            } else {
                std::memset(mem, 0xA5, bytes);
                file->load(mem, offset, bytes);
                ASSERT_EQ(std::memcmp(mem, &shadow[offset], bytes), 0) << "offset " << offset << " bytes " << bytes;
            }
        }
        // Aligned whole-block transfers take the direct path on raw lanes.
        std::vector<unsigned char> all(size);
        file->load(all.data(), 0, size);
        EXPECT_TRUE(all == shadow);
        EXPECT_EQ(file->lane_raw_io(0), c.raw_io);
    }
}

TEST(DiskRaid0RoundTrip, StridedGatherAndScatter) {
    std::mt19937_64 rng(test::test_seed() + 3);
    ScratchDir dir;
    DiskRaid0 framework(test::lane_settings(dir, 3, 12, true));
    const uint64_t size = 4096 * 64;
    auto file = framework.create_file("strided", size);
    std::vector<unsigned char> shadow = test::random_bytes(rng, size);
    file->store(shadow.data(), 0, size);
    struct Shape {
        uint64_t offset, far_stride, block, count;
        int64_t buffer_stride;
    };
    for (const Shape s : {Shape{100, 5000, 3000, 40, 3000}, {0, 8192, 4096, 32, 4100}, {4096 * 63, 1, 4096, 1, 0},
                          {17, 3 * 4096, 2 * 4096 + 5, 20, -int64_t(2 * 4096 + 5)}}) {
        const uint64_t span = uint64_t(std::abs(s.buffer_stride)) * s.count + s.block;
        std::vector<unsigned char> buffer(span);
        unsigned char* base = buffer.data() + (s.buffer_stride < 0 ? span - s.block : 0);
        // Scatter fresh data, then gather it back into a cleared buffer.
        for (auto& b : buffer) b = static_cast<unsigned char>(rng());
        file->scatter(base, s.buffer_stride, s.offset, s.far_stride, s.block, s.count);
        for (uint64_t i = 0; i < s.count; ++i) {
            std::memcpy(&shadow[s.offset + i * s.far_stride], base + int64_t(i) * s.buffer_stride, s.block);
        }
        std::vector<unsigned char> expected = buffer;
        std::fill(buffer.begin(), buffer.end(), 0);
        file->gather(base, s.buffer_stride, s.offset, s.far_stride, s.block, s.count);
        for (uint64_t i = 0; i < s.count; ++i) {
            ASSERT_EQ(std::memcmp(base + int64_t(i) * s.buffer_stride, &shadow[s.offset + i * s.far_stride], s.block), 0)
                << "block " << i << " of stride " << s.far_stride;
        }
    }
    // Overlapping far blocks in one scatter: the later block wins.
    const unsigned char first[4] = {1, 1, 1, 1}, second[4] = {2, 2, 2, 2};
    unsigned char both[8];
    std::memcpy(both, first, 4);
    std::memcpy(both + 4, second, 4);
    file->scatter(both, 4, 5000, 2, 4, 2);
    unsigned char back[6];
    file->load(back, 5000, 6);
    const unsigned char expected_back[6] = {1, 1, 2, 2, 2, 2};
    EXPECT_EQ(std::memcmp(back, expected_back, 6), 0);
    // Out of range before any transfer.
    EXPECT_THROW(file->gather(back, 1, size - 1, 1, 2, 1), FarMemoryOutOfBoundsException);
}

TEST(DiskRaid0Checksums, AChangedByteIsReportedWithItsBlockRangeAndPath) {
    std::mt19937_64 rng(test::test_seed() + 11);
    for (bool checksums : {true, false}) {
        ScratchDir dir;
        DiskRaid0 framework(test::lane_settings(dir, 2, 16, true, checksums));
        const uint64_t size = 65536 * 6;
        auto file = framework.create_file("sums", size);
        const std::vector<unsigned char> data = test::random_bytes(rng, size);
        file->store(data.data(), 0, size);
        // Block 3 (bytes [196608, 262144)) is lane 1, row 1.
        flip_byte(file->lane_path(1), 65536 + 1234);
        std::vector<unsigned char> back(size);
        if (checksums) {
            const std::string message = test::expect_thrown<DiskRaid0::Raid0Exception>(
                [&] { file->load(back.data(), 196608 + 70000 - 65536, 10); }, "DiskRaid0::load()");
            EXPECT_EQ(message, "Path: " + file->lane_path(1) + "\nChecksum Mismatch: Data Corruption at [196,608 - 262,144)");
            // Other blocks still read, and the error repeats (no retry turns it into success).
            EXPECT_NO_THROW(file->load(back.data(), 0, 196608));
            EXPECT_THROW(file->load(back.data(), 196608, 1), DiskRaid0::Raid0Exception);
            // Every path through the worker checks: unaligned memory and a partial block.
            EXPECT_THROW(file->load(back.data() + 1, 196608, 65536), DiskRaid0::Raid0Exception);
        } else {
            file->load(back.data(), 0, size);
            EXPECT_EQ(back[196608 + 1234], data[196608 + 1234] ^ 0x20);
            back[196608 + 1234] ^= 0x20;
            EXPECT_TRUE(back == data);
        }
    }
}

TEST(DiskRaid0Checksums, ReadProtectRefusesBlocksNeverStored) {
    ScratchDir dir;
    DiskRaid0Settings settings = test::lane_settings(dir, 2, 12, false, false);
    settings.read_protect = true;
    DiskRaid0 framework(settings);
    auto file = framework.create_file("protected", 4096 * 8);
    char byte = 'q';
    file->store(&byte, 4096 * 2 + 7, 1);
    char back[4096];
    EXPECT_NO_THROW(file->load(back, 4096 * 2, 4096));
    EXPECT_EQ(back[7], 'q');
    EXPECT_EQ(back[8], 0);  // the rest of a stored block reads as zeros
    const std::string message = test::expect_thrown<DiskRaid0::Raid0Exception>(
        [&] { file->load(back, 4096 * 3 - 1, 2); }, "DiskRaid0::load()");
    EXPECT_EQ(message.substr(message.find('\n') + 1),
              "Read Protection: Attempted to read data that was never written at [12,288 - 16,384)");
}

TEST(DiskRaid0Settings, ReadWriteBackAndRefusals) {
    ScratchDir dir;
    std::filesystem::create_directories(dir.file("a"));
    std::filesystem::create_directories(dir.file("b"));
    const std::string text = "{ Framework : \"disk-raid0\" InterleaveWidth : 65536 LaneMultiplier : 2 Workers : 3 "
                             "BufferPerWorker : 262144 Checksums : false RawIO : false ReadProtect : true "
                             "TuningDefault : \"hard-drive\" Lanes : [ { Path : \"" + dir.file("a") +
                             "\" BufferAllocator : \"mmap\" WorkerThreadCores : [0] WorkerThreadPriority : 1 } "
                             "{ Path : [\"" + dir.file("a") + "\" \"" + dir.file("b") + "\"] } ] }";
    EXPECT_STREQ(find_far_memory_framework("disk-raid0").menu_text, "Disk RAID 0");
    const ConfigObject config = parse_cfg(text);
    auto framework = make_far_memory_framework(config);
    const ConfigObject back = framework->get_static_data();
    const char* const order[] = {"Framework", "InterleaveWidth", "LaneMultiplier", "Workers", "BufferPerWorker",
                                 "Checksums", "RawIO", "ReadProtect", "TuningDefault", "Lanes"};
    ASSERT_EQ(back.member_count(), 10u);
    for (uint64_t i = 0; i < 10; ++i) EXPECT_EQ(back.member_key(i), order[i]);
    EXPECT_EQ(back.get_integer("InterleaveWidth", "t"), 65536);
    EXPECT_EQ(back.get_string("TuningDefault", "t"), "hard-drive");
    EXPECT_TRUE(make_far_memory_framework(back)->get_static_data() == back);
    // Four lanes (two configured, two copies each); a round trip through all of them.
    auto file = framework->create("multiplied", 65536 * 9);
    EXPECT_EQ(static_cast<DiskRaid0::File&>(*file).lane_count(), 4u);
    std::vector<char> data(65536 * 9, 'z'), out(65536 * 9);
    file->store(data.data(), 0, data.size());
    file->load(out.data(), 0, out.size());
    EXPECT_TRUE(out == data);
    file.reset();

    const std::vector<std::string> words = {"disk-raid0", "2", dir.file("a"), dir.file("b")};
    size_t cursor = 0;
    const ConfigObject from_words = far_memory_config_from_words(words, cursor);
    EXPECT_EQ(cursor, 4u);
    EXPECT_EQ(DiskRaid0Settings::from_config(from_words).lanes.size(), 2u);
    cursor = 0;
    const std::vector<std::string> short_words = {"disk-raid0", "2", dir.file("a")};
    test::expect_throw<InvalidParametersException>([&] { far_memory_config_from_words(short_words, cursor); },
                                                   "next_far_memory_parameter()", "Expected more parameters.");

    auto refused = [&](const std::string& body, const std::string& place, const std::string& message) {
        SCOPED_TRACE(body);
        test::expect_throw<DiskRaid0::Raid0Exception>(
            [&] { make_far_memory_framework(parse_cfg("{ Framework : \"disk-raid0\" " + body + " }")); }, place,
            message);
    };
    refused("Lanes : [ { Path : [] } ]", "DiskRaid0Settings::from_config()", "Paths cannot be empty.");
    refused("Lanes : []", "DiskRaid0Settings::from_config()", "Paths cannot be empty.");
    refused("TuningDefault : \"nvme\" Lanes : []", "parse_disk_tuning_default()", "Invalid \"TuningDefault\" enum: nvme");
    refused("Lanes : [ { Path : \"" + dir.file("missing/deeper") + "\" } ]", "DiskRaid0()",
            "Unable to write to: " + dir.file("missing/deeper"));
    std::string many = "Lanes : [ { Path : [";
    for (int i = 0; i < 257; ++i) many += " \"" + dir.file("a") + "\"";
    refused(many + "] } ]", "DiskRaid0Settings::from_config()", "Paths exceeds the limit of 256.");
    refused("InterleaveWidth : 65535 Lanes : []", "DiskRaid0Settings::from_config()",
            "InterleaveWidth must be a power of two from 4096 to 1073741824.");
    test::expect_throw<DiskRaid0::Raid0Exception>([&] { make_far_memory_framework(config, true); }, "DiskRaid0()",
                                                  "Open is not supported.");
    test::expect_throw<DiskRaid0::Raid0Exception>([] { disk_tuning_default_name(DiskTuningDefault(7)); },
                                                  "disk_tuning_default_name()", "Invalid TuningDefault enum.");
    // Nothing was created by any refused configuration (the probe file is removed too).
    EXPECT_EQ(test::files_in(dir.path()), 0u);
}

}  // namespace
}  // namespace qmp
