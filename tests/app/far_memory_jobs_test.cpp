// The I/O analysis and the swap tester: the swap tester finds a byte corrupted behind its back
// (and nothing on a sound disk array), the seek-cost estimate recovers a known seek time from
// rates made by the model, the suggested tuning reads back as a job file's far-memory tuning,
// and both jobs run end to end from job files with tiny sizes.
#include "app/jobs/benchio_analysis.h"
#include "app/jobs/swap_tester_core.h"
#include "process_runner.h"
#include "qmp/console.h"
#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/malloc_far_memory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

// Far memory in RAM that returns one wrong byte at `bad_offset` once `clean_loads` loads have
// gone by: a disk that corrupts data silently.
class CorruptingMemory : public qmp::FarMemory {
public:
    CorruptingMemory(uint64_t size, uint64_t bad_offset, int clean_loads)
        : FarMemory("corrupting", size), inner_(framework_.create_file("inner", size)), bad_offset_(bad_offset),
          clean_loads_(clean_loads) {}

protected:
    void do_load(void* buffer, uint64_t offset, uint64_t bytes) override {
        inner_->load(buffer, offset, bytes);
        if (loads_++ >= clean_loads_ && offset <= bad_offset_ && bad_offset_ < offset + bytes) {
            static_cast<unsigned char*>(buffer)[bad_offset_ - offset] ^= 0x10;
        }
    }
    void do_store(const void* buffer, uint64_t offset, uint64_t bytes) override { inner_->store(buffer, offset, bytes); }

private:
    qmp::MallocFarMemory framework_;
    std::unique_ptr<qmp::MallocFarMemory::File> inner_;
    uint64_t bad_offset_;
    int clean_loads_;
    std::atomic<int> loads_{0};
};

qv::SwapTestSettings tiny_swap_settings(uint64_t size, uint64_t seed) {
    qv::SwapTestSettings s = qv::SwapTestSettings::defaults();
    s.test_bytes = size;
    s.total_bytes = 32 * size;
    s.seed = seed;
    return s;
}

TEST(SwapTester, FindsACorruptedByteAndPassesASoundArray) {
    qmp::Console::set_colours_enabled(false);
    testing::internal::CaptureStdout();
    // Every byte is eventually read with this much traffic; the corruption appears after the
    // first few loads.
    CorruptingMemory bad(1 << 16, 40000, 3);
    const qv::SwapTestResult found = qv::run_swap_test(bad, tiny_swap_settings(1 << 16, 17));
    qvtest::TempDir dir;
    qmp::DiskRaid0 disks(qmp::DiskRaid0Settings::for_paths({dir.path(), dir.path()}));
    auto sound = disks.create("sound", 1 << 20);
    const qv::SwapTestResult clean = qv::run_swap_test(*sound, tiny_swap_settings(1 << 20, 18));
    const std::string output = testing::internal::GetCapturedStdout();

    EXPECT_TRUE(found.mismatch) << output;
    EXPECT_EQ(found.mismatch_offset, 40000u);
    EXPECT_EQ(found.expected ^ found.found, 0x10);
    EXPECT_NE(output.find("Seed: 17\n"), std::string::npos);

    EXPECT_FALSE(clean.mismatch) << clean.mismatch_offset;
    EXPECT_EQ(clean.error, "");
    EXPECT_GE(clean.bytes_moved, 32u << 20);
    EXPECT_GT(clean.operations, 0u);
}

TEST(IoAnalysis, SeekEstimateRecoversTheModelsSeekCost) {
    // Rates made by the model itself: a block of B bytes takes s + B / R seconds.
    const double seek_s = 100e-6, read_mbs = 2000;
    std::vector<qv::IoAnalysisRow> rows;
    for (uint64_t block = 4096; block <= (64u << 20); block *= 4) {
        const double mb = double(block) / 1e6;
        rows.push_back({block, read_mbs, read_mbs, mb / (seek_s + mb / read_mbs), 0});
    }
    const uint64_t expected = uint64_t(seek_s * read_mbs * 1e6);  // 200000 bytes
    EXPECT_NEAR(double(qv::estimate_bytes_per_seek(rows)), double(expected), expected * 0.01);
    // Free seeks (strided as fast as sequential) give the floor of 4096.
    for (auto& r : rows) r.gather_mbs = r.read_mbs;
    EXPECT_EQ(qv::estimate_bytes_per_seek(rows), 4096u);
}

TEST(IoAnalysis, SuggestedTuningReadsBackAsAJobFileTuning) {
    qvtest::TempDir dir;
    qmp::Console::set_colours_enabled(false);
    testing::internal::CaptureStdout();
    qmp::DiskRaid0Settings settings = qmp::DiskRaid0Settings::for_paths({dir.path()});
    settings.interleave_k = 13;
    settings.buffer_per_worker = 1 << 16;
    qmp::DiskRaid0 framework(settings);
    qv::IoAnalysisSettings analysis = qv::IoAnalysisSettings::defaults();
    analysis.test_bytes = 1 << 18;
    analysis.max_block_bytes = 1 << 14;
    const qv::IoAnalysisResult result = qv::run_io_analysis(framework, analysis);
    qv::print_io_analysis(result);
    const std::string output = testing::internal::GetCapturedStdout();

    ASSERT_EQ(result.rows.size(), 2u);  // 4 KiB and 16 KiB
    for (const auto& row : result.rows) EXPECT_GT(row.read_mbs, 0) << row.block_bytes;
    const qmp::ConfigObject parsed = qmp::parse_cfg(qmp::write_cfg(qv::suggested_tuning_fragment(result), true));
    const qmp::FarMemoryTuningParameters tuning(parsed.get("FarMemoryTuning", "test"));
    ASSERT_EQ(tuning.level_count(), 1u);
    EXPECT_EQ(tuning.level(0).bytes_per_seek, std::max<uint64_t>(4096, result.estimated_bytes_per_seek));
    EXPECT_EQ(tuning.level(0).alignment_k, 13u);  // the stripe width
    EXPECT_TRUE(tuning.level(0).is_unbounded());
    EXPECT_NE(output.find("Block Size      Seq. Write   Seq. Read    Gather       Scatter      (MB/s)\n"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("Measured bytes per seek: " + std::to_string(result.estimated_bytes_per_seek)),
              std::string::npos);
    // The lane file went with the object.
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(FarMemoryJobs, JobFilesRunBothJobsEndToEnd) {
    qvtest::TempDir dir;
    qvtest::write_file(dir.file("io.cfg"), "{ Action : \"BenchIO\" TestBytes : 131072 MaxBlockBytes : 16384 "
                                           "OutputFile : \"tuning.cfg\" }");
    qvtest::write_file(dir.file("swap.cfg"), "{ Action : \"SwapTester\" TestBytes : 262144 TotalBytes : 4194304 "
                                             "Seed : 99 Threads : 3 FarMemoryConfig : { Framework : \"disk-raid0\" "
                                             "InterleaveWidth : 4096 BufferPerWorker : 16384 Lanes : [ { Path : \".\" } "
                                             "{ Path : \".\" } { Path : \".\" } ] } }");
    qvtest::RunResult r = qvtest::run_program({"config", "io"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Written to: tuning.cfg"), std::string::npos) << r.output;
    const qmp::ConfigObject fragment = qmp::parse_using_extension(dir.file("tuning.cfg"));
    EXPECT_NO_THROW(qmp::FarMemoryTuningParameters(fragment.get("FarMemoryTuning", "test")));

    r = qvtest::run_program({"config", "swap.cfg"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Seed: 99\n"), std::string::npos) << r.output;
    EXPECT_NE(r.output.find("No errors found."), std::string::npos) << r.output;
    // Only the job files, the environment file and the fragment remain: no lane file is left.
    size_t files = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir.path())) files += e.path().filename().string().rfind("qcs-", 0) == 0;
    EXPECT_EQ(files, 0u);
}

}  // namespace
