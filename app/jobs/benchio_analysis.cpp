// The timing loops of the I/O analysis, the seek-cost estimate and the printed report.
#include "app/jobs/benchio_analysis.h"

#include "app/jobs/benchio_far_memory.h"
#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/disk_raid0.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

namespace qv {

namespace {

using Clock = std::chrono::steady_clock;
constexpr uint64_t buffer_limit_bytes = 64 << 20;
// Each pattern at each size stops after this long and is timed on what it moved: small
// transfers on a disk (or read-modify-writes of wide stripe blocks) are slow.
constexpr double budget_seconds = 1.0;
constexpr uint64_t max_blocks_per_call = 256;

bool over_budget(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count() > budget_seconds;
}

double mb_per_s(uint64_t bytes, Clock::time_point start) {
    const double s = std::chrono::duration<double>(Clock::now() - start).count();
    return s > 0 ? double(bytes) / 1e6 / s : 0;
}

// Bytes moved per pattern and size: enough transfers to time (at least 2048 of the small
// ones), never more than the object.
uint64_t bytes_to_move(uint64_t block, uint64_t test_bytes) {
    return std::min(test_bytes, std::max(block * 2048, uint64_t(64) << 20)) / block * block;
}

void progress(const std::string& text) { qmp::Console::print(text, qmp::Console::Colour::Info); }

// One strided pass: `count` blocks `stride_blocks` apart, in calls of at most `per_call`
// blocks, each call starting at a random block so that calls do not continue each other.
template <class Transfer>
double strided(uint64_t size, uint64_t block, uint64_t count, uint64_t stride_blocks, uint64_t per_call,
               Transfer&& transfer) {
    std::mt19937_64 rng(block);
    const auto start = Clock::now();
    uint64_t done = 0;
    while (done < count && !over_budget(start)) {
        const uint64_t n = std::min(per_call, count - done);
        const uint64_t starts = size / block - (n - 1) * stride_blocks;
        transfer((rng() % starts) * block, stride_blocks * block, n);
        done += n;
    }
    return mb_per_s(done * block, start);
}

IoAnalysisRow measure(qmp::FarMemory& object, char* buffer, uint64_t buffer_bytes, uint64_t block) {
    const uint64_t size = object.size_bytes();
    const uint64_t moved = bytes_to_move(block, size);
    IoAnalysisRow row{block, 0, 0, 0, 0};
    progress("  " + short_byte_size(block) + ": write");
    auto start = Clock::now();
    uint64_t at = 0;
    for (; at < moved && !over_budget(start); at += block) object.store(buffer, at, block);
    row.write_mbs = mb_per_s(at, start);
    const uint64_t written = at;  // the read covers what was written
    progress(", read");
    start = Clock::now();
    for (at = 0; at < written && !over_budget(start); at += block) object.load(buffer, at, block);
    row.read_mbs = mb_per_s(at, start);
    // At least one block's gap between blocks; wider when the object has room, so that the
    // blocks spread over all of it.
    const uint64_t blocks_in_object = size / block;
    uint64_t count = moved / block;
    const uint64_t stride_blocks = std::max<uint64_t>(2, blocks_in_object / std::max<uint64_t>(count, 1));
    count = std::min(count, blocks_in_object / stride_blocks);
    const uint64_t per_call = std::clamp<uint64_t>(buffer_bytes / block, 1, max_blocks_per_call);
    if (count > 0) {
        progress(", gather");
        row.gather_mbs = strided(size, block, count, stride_blocks, per_call,
                                 [&](uint64_t offset, uint64_t far_stride, uint64_t n) {
                                     object.gather(buffer, int64_t(block), offset, far_stride, block, n);
                                 });
        progress(", scatter");
        row.scatter_mbs = strided(size, block, count, stride_blocks, per_call,
                                  [&](uint64_t offset, uint64_t far_stride, uint64_t n) {
                                      object.scatter(buffer, int64_t(block), offset, far_stride, block, n);
                                  });
    }
    progress("\n");
    return row;
}

}  // namespace

IoAnalysisSettings IoAnalysisSettings::defaults() {
    IoAnalysisSettings s;
    s.far_memory = disk_far_memory_config({});
    return s;
}

IoAnalysisSettings IoAnalysisSettings::from_job(const qmp::ConfigObject& job) {
    IoAnalysisSettings s = defaults();
    if (const qmp::ConfigObject* n = job.find("FarMemoryConfig")) s.far_memory = n->as_object("FarMemoryConfig");
    s.test_bytes = byte_count_member(job, "TestBytes", s.test_bytes);
    s.min_block_bytes = byte_count_member(job, "MinBlockBytes", s.min_block_bytes);
    s.max_block_bytes = byte_count_member(job, "MaxBlockBytes", s.max_block_bytes);
    s.bytes_per_seek = byte_count_member(job, "BytesPerSeek", s.bytes_per_seek);
    if (const qmp::ConfigObject* n = job.find("OutputFile")) s.output_file = n->as_string("OutputFile");
    return s;
}

std::string IoAnalysisSettings::problem() const {
    if (test_bytes < 4096 * 4) return "The test size must be at least 16 KiB.";
    if (min_block_bytes < 4096 || (min_block_bytes & (min_block_bytes - 1)) != 0) {
        return "The smallest block must be a power of two of at least 4096 bytes.";
    }
    if (max_block_bytes < min_block_bytes) return "The largest block must not be smaller than the smallest.";
    return {};
}

uint64_t estimate_bytes_per_seek(const std::vector<IoAnalysisRow>& rows) {
    double best_read = 0;
    for (const IoAnalysisRow& r : rows) best_read = std::max(best_read, r.read_mbs);
    std::vector<double> seeks;
    for (const IoAnalysisRow& r : rows) {
        if (r.gather_mbs <= 0 || best_read <= 0) continue;
        const double mb = double(r.block_bytes) / 1e6;
        seeks.push_back(std::max(0.0, mb / r.gather_mbs - mb / best_read));
    }
    if (seeks.empty()) return 4096;
    std::sort(seeks.begin(), seeks.end());
    const size_t n = seeks.size();
    const double median = n % 2 ? seeks[n / 2] : (seeks[n / 2 - 1] + seeks[n / 2]) / 2;
    return std::max<uint64_t>(4096, uint64_t(median * best_read * 1e6));
}

IoAnalysisResult run_io_analysis(qmp::FarMemoryFramework& framework, const IoAnalysisSettings& settings) {
    IoAnalysisResult result;
    const uint64_t buffer_bytes = std::min(settings.test_bytes, buffer_limit_bytes);
    qmp::AlignedBlock memory = qmp::make_aligned_block(buffer_bytes, 4096);
    char* buffer = static_cast<char*>(memory.get());
    std::mt19937_64 rng(1);
    fill_random(buffer, buffer_bytes, rng);
    auto object = framework.create("benchio", settings.test_bytes);
    const uint64_t largest = std::min({settings.max_block_bytes, buffer_bytes, uint64_t(64) << 20});
    // The whole object holds data before any timing: reads of never-written ranges (holes
    // in sparse files) cost no disk access and would make small strided reads look free.
    progress("Preparing " + short_byte_size(settings.test_bytes) + " of far memory...\n");
    for (uint64_t at = 0; at < settings.test_bytes; at += buffer_bytes) {
        object->store(buffer, at, std::min(buffer_bytes, settings.test_bytes - at));
    }
    qmp::Console::println("Measuring " + short_byte_size(settings.test_bytes) + " of far memory:", qmp::Console::Colour::Header);
    for (uint64_t block = settings.min_block_bytes; block <= largest; block *= 4) {
        result.rows.push_back(measure(*object, buffer, buffer_bytes, block));
    }
    result.estimated_bytes_per_seek = estimate_bytes_per_seek(result.rows);
    result.suggested.set_bytes_per_seek(settings.bytes_per_seek ? settings.bytes_per_seek : result.estimated_bytes_per_seek);
    // Aligned transfers never split a disk stripe block (whose checksum covers all of it);
    // other back-ends only need the direct-I/O sector.
    if (auto* disk = dynamic_cast<qmp::DiskRaid0*>(&framework)) {
        result.suggested.set_alignment_k(disk->settings().interleave_k);
        result.suggested.parallel_access = disk->settings().tuning_level().parallel_access;
    } else {
        result.suggested.set_alignment_k(12);
        result.suggested.parallel_access = qmp::FarMemoryParallelAccess::All;
    }
    return result;
}

qmp::ConfigObject suggested_tuning_fragment(const IoAnalysisResult& result) {
    qmp::FarMemoryTuningParameters tuning;
    tuning.add_level(result.suggested);
    qmp::ConfigObject fragment = qmp::ConfigObject::make_object();
    fragment.add_node("FarMemoryTuning", tuning.to_config(), "Suggested by the I/O performance analysis.");
    return fragment;
}

void print_io_analysis(const IoAnalysisResult& result) {
    using qmp::Console::Colour;
    qmp::Console::println();
    qmp::Console::println("Block Size      Seq. Write   Seq. Read    Gather       Scatter      (MB/s)", Colour::Header);
    auto cell = [](double mbs) {
        char text[16];
        if (mbs <= 0) std::snprintf(text, sizeof text, "%-13s", "-");
        else std::snprintf(text, sizeof text, "%-13.0f", mbs);
        return std::string(text);
    };
    for (const IoAnalysisRow& r : result.rows) {
        char label[20];
        std::snprintf(label, sizeof label, "%-16s", short_byte_size(r.block_bytes).c_str());
        std::string line = std::string(label) + cell(r.write_mbs) + cell(r.read_mbs) + cell(r.gather_mbs) +
                           cell(r.scatter_mbs);
        line.erase(line.find_last_not_of(' ') + 1);
        qmp::Console::println(line, Colour::Value);
    }
    qmp::Console::println();
    qmp::Console::println("Measured bytes per seek: " + std::to_string(result.estimated_bytes_per_seek) + " (" +
                              short_byte_size(result.estimated_bytes_per_seek) + ")",
                          Colour::Value);
    qmp::Console::println("Suggested tuning:", Colour::Header);
    std::string text = qmp::write_cfg(suggested_tuning_fragment(result), true);
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    qmp::Console::print(text);
}

}  // namespace qv
