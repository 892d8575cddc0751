// DiskRaid0: the framework (settings, path checks, the shared engine of queues, workers and
// buffers) and the life of its objects (lane files created sparse and removed, the cutting of
// requests into per-lane commands, waiting). The per-piece data movement is in
// disk_raid0_pieces.cpp.
#include "qmp/farmemory/disk_raid0.h"

#include "qmp/console.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/block_checksum.h"
#include "qmp/farmemory/disk_raid0_engine.h"
#include "qmp/farmemory/framework_registry.h"
#include "qmp/farmemory/lane_file.h"
#include "qmp/farmemory/posix_errors.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <random>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace qmp {

namespace detail {

Raid0Engine::Raid0Engine(DiskRaid0Settings s, DiskRaid0::LaneFileFactory factory)
    : settings(std::move(s)), lane_files(std::move(factory)) {
    if (!lane_files) {
        lane_files = [](const std::string& path, uint64_t size_bytes, bool raw_io) {
            return std::make_unique<LaneFile>(path, size_bytes, raw_io);
        };
    }
    allocate_buffers();
    try {
        start_workers();
    } catch (...) {
        stop_workers();
        free_buffers();
        throw;
    }
}

Raid0Engine::~Raid0Engine() {
    stop_workers();
    free_buffers();
}

void Raid0Engine::allocate_buffers() {
    static const char* const place = "DiskRaid0::Allocator()";
    const size_t per_lane = size_t(settings.buffer_per_worker) * settings.workers * settings.lane_multiplier;
    for (size_t lane = 0; lane < settings.lanes.size(); ++lane) {
        BufferBlock block;
        block.bytes = per_lane;
        if (settings.lanes[lane].buffer_allocator == "mmap") {
            void* p = ::mmap(nullptr, per_lane, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (p != MAP_FAILED) {
                block.memory = static_cast<char*>(p);
                block.mapped = true;
            }
        } else {
            try {
                block.memory = static_cast<char*>(aligned_malloc(per_lane, 4096));
            } catch (const Exception&) {
                block.memory = nullptr;
            }
        }
        if (block.memory == nullptr) {
            free_buffers();
            throw DiskRaid0::Raid0Exception(place, "Unable to allocate " + std::to_string(per_lane) +
                                                       " bytes of I/O buffers for lane " +
                                                       std::to_string(lane) + ".");
        }
        buffers.push_back(block);
    }
}

void Raid0Engine::start_workers() {
    const size_t configured = settings.lanes.size();
    for (size_t lane = 0; lane < settings.lane_count(); ++lane) {
        queues.push_back(std::make_unique<LaneQueue>());
    }
    for (size_t lane = 0; lane < settings.lane_count(); ++lane) {
        const DiskLaneSettings& config = settings.lanes[lane % configured];
        BufferBlock& block = buffers[lane % configured];
        const size_t copy = lane / configured;  // which multiplied copy of the lane this is
        for (uint32_t w = 0; w < settings.workers; ++w) {
            char* memory = block.memory + (copy * settings.workers + w) * settings.buffer_per_worker;
            threads.push_back(std::make_unique<IoThread>(*queues[lane], IoBuffer(memory, settings.buffer_per_worker),
                                                         config.worker_priority, lane));
            threads.back()->pin(config.worker_cores);
        }
    }
}

void Raid0Engine::stop_workers() noexcept {
    for (auto& queue : queues) queue->stop();
    threads.clear();  // joins
}

void Raid0Engine::free_buffers() noexcept {
    for (BufferBlock& block : buffers) {
        if (block.mapped) ::munmap(block.memory, block.bytes);
        else aligned_free(block.memory);
    }
    buffers.clear();
}

}  // namespace detail

namespace {

std::string join_path(const std::string& directory, const std::string& name) {
    if (!directory.empty() && directory.back() == '/') return directory + name;
    return directory + "/" + name;
}

// Creating and deleting a file is the only sure test: permission bits say nothing to root,
// and a read-only mount or a missing directory only shows when writing.
void check_writable(const std::string& directory) {
    static std::atomic<uint64_t> probe_serial{0};
    const std::string probe = join_path(directory, "qcs-probe-" + std::to_string(::getpid()) + "-" +
                                                       std::to_string(probe_serial++));
    const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) throw DiskRaid0::Raid0Exception("DiskRaid0()", "Unable to write to: " + directory);
    ::close(fd);
    ::unlink(probe.c_str());
}

uint32_t make_seed(uint64_t serial) {
    // Different for every object of every run, so that a block of one file (or a stale file
    // of an earlier run) never verifies as a block of another.
    std::seed_seq seq{uint64_t(::getpid()), serial,
                      uint64_t(std::chrono::steady_clock::now().time_since_epoch().count())};
    uint32_t seed;
    seq.generate(&seed, &seed + 1);
    return seed;
}

}  // namespace

void IoTicket::wait() {
    if (completion_) completion_->wait();
}

bool IoTicket::finished() const { return !completion_ || completion_->finished(); }

DiskRaid0::Location DiskRaid0::locate(uint64_t byte, size_t lane_count, uint32_t interleave_k) {
    const uint64_t block = byte >> interleave_k;
    const uint64_t row = block / lane_count;
    return {block, size_t(block % lane_count), (row << interleave_k) + (byte & ((uint64_t(1) << interleave_k) - 1))};
}

DiskRaid0::DiskRaid0(DiskRaid0Settings settings, LaneFileFactory lane_files) {
    settings.check();
    for (const DiskLaneSettings& lane : settings.lanes) {
        for (const std::string& path : lane.paths) check_writable(path);
    }
    engine_ = std::make_shared<detail::Raid0Engine>(std::move(settings), std::move(lane_files));
}

namespace {
// Objects are scratch that does not outlive the process: refused before any thread starts.
DiskRaid0Settings settings_for_new_objects(const ConfigObject& config, bool open_existing) {
    if (open_existing) throw DiskRaid0::Raid0Exception("DiskRaid0()", "Open is not supported.");
    return DiskRaid0Settings::from_config(config);
}
}  // namespace

DiskRaid0::DiskRaid0(const ConfigObject& config, bool open_existing)
    : DiskRaid0(settings_for_new_objects(config, open_existing)) {}

DiskRaid0::~DiskRaid0() = default;

const DiskRaid0Settings& DiskRaid0::settings() const noexcept { return engine_->settings; }

std::unique_ptr<DiskRaid0::File> DiskRaid0::create_file(std::string name, uint64_t size_bytes) {
    return std::make_unique<File>(std::move(name), size_bytes, engine_, usage());
}

std::unique_ptr<FarMemory> DiskRaid0::create(std::string name, uint64_t size_bytes) {
    return create_file(std::move(name), size_bytes);
}

ConfigObject DiskRaid0::get_static_data() const { return engine_->settings.to_config(); }

void DiskRaid0::print_description() const {
    const DiskRaid0Settings& s = engine_->settings;
    char line[160];
    auto field = [&](const char* label, const std::string& value) {
        std::snprintf(line, sizeof line, "%-32s", label);
        Console::print(line, Console::Colour::Label);
        Console::println(value, Console::Colour::Value);
    };
    field("Framework", menu_text);
    field("Lanes", std::to_string(s.lane_count()));
    field("InterleaveWidth", std::to_string(s.interleave_bytes()));
    field("Workers", std::to_string(s.workers));
    field("BufferPerWorker", std::to_string(s.buffer_per_worker));
    field("Checksums", s.checksums ? "true" : "false");
    field("RawIO", s.raw_io ? "true" : "false");
    for (size_t lane = 0; lane < s.lanes.size(); ++lane) {
        for (const std::string& path : s.lanes[lane].paths) field(("Lane " + std::to_string(lane)).c_str(), path);
    }
}

void DiskRaid0::read_words(const std::vector<std::string>& words, size_t& cursor, ConfigObject& config) {
    const std::string& count_word = next_far_memory_parameter(words, cursor);
    char* end = nullptr;
    const unsigned long long count = std::strtoull(count_word.c_str(), &end, 10);
    if (count_word.empty() || *end != '\0' || count == 0 || count > DiskRaid0Settings::max_paths) {
        throw InvalidParametersException("DiskRaid0::read_words()", "Invalid lane count: " + count_word);
    }
    DiskRaid0Settings settings;
    for (unsigned long long i = 0; i < count; ++i) {
        settings.lanes.push_back(DiskLaneSettings{{next_far_memory_parameter(words, cursor)}, "malloc", {}, 0});
    }
    const ConfigObject full = settings.to_config();
    for (uint64_t i = 1; i < full.member_count(); ++i) {
        config.add_node(full.member_key(i), full.member_value(i));
    }
}

// ---- objects ----

DiskRaid0::File::File(std::string name, uint64_t size_bytes, std::shared_ptr<detail::Raid0Engine> engine,
                      std::shared_ptr<FarMemoryFramework::Usage> usage)
    : FarMemory(std::move(name), size_bytes),
      engine_(std::move(engine)),
      interleave_k_(engine_->settings.interleave_k),
      checksums_(engine_->settings.checksums),
      read_protect_(engine_->settings.read_protect),
      ticket_(std::move(usage), size_bytes) {
    const DiskRaid0Settings& s = engine_->settings;
    const size_t lane_count = s.lane_count();
    const uint64_t serial = engine_->next_object++;
    seed_ = make_seed(serial);
    const uint64_t blocks = (size_bytes + interleave_bytes() - 1) >> interleave_k_;
    const uint64_t rows = (blocks + lane_count - 1) / lane_count;
    if (checksums_ || read_protect_) block_state_.assign(blocks, checksum_unwritten);
    try {
        for (size_t lane = 0; lane < lane_count; ++lane) {
            const DiskLaneSettings& config = s.lanes[lane % s.lanes.size()];
            // Objects take turns over a lane's directories; multiplied copies of a lane start
            // at different directories.
            const std::string& directory =
                config.paths[(serial + lane / s.lanes.size()) % config.paths.size()];
            lane_paths_.push_back(join_path(directory, "qcs-" + std::to_string(::getpid()) + "-" +
                                                           std::to_string(serial) + "-" +
                                                           std::to_string(lane)));
            lanes_.push_back(engine_->lane_files(lane_paths_.back(), rows << interleave_k_, s.raw_io));
        }
    } catch (...) {
        // No lane file of a failed object stays behind.
        for (auto& lane : lanes_) {
            try {
                if (lane) lane->remove();
            } catch (const std::exception& cleanup) {
                FileIO::report_destruction_error(cleanup);
            }
        }
        try {
            throw;
        } catch (const FileIO::FileException& e) {
            throw Raid0Exception(e.function(), e.message());
        }
    }
}

DiskRaid0::File::~File() {
    std::unique_lock<std::mutex> lock(active_mutex_);
    if (active_requests_ != 0) {
        FileIO::report_destruction_error(Raid0Exception(
            "DiskRaid0::File::~File()", "Attempted to destroy a file with active commands: " + name()));
        // The workers still use this object: wait for them rather than pull it from under them.
        active_done_.wait(lock, [this] { return active_requests_ == 0; });
    }
    lock.unlock();
    for (auto& lane : lanes_) {
        try {
            if (lane) lane->remove();
        } catch (const std::exception& e) {
            FileIO::report_destruction_error(e);
        }
    }
}

bool DiskRaid0::File::lane_raw_io(size_t lane) const { return lanes_[lane] && lanes_[lane]->raw_io(); }

void DiskRaid0::File::request_finished() noexcept {
    std::lock_guard<std::mutex> lock(active_mutex_);
    --active_requests_;
    active_done_.notify_all();
}

// Cutting a segment into pieces. Blocks the segment covers whole are grouped by lane into runs
// of consecutive rows (consecutive in the lane file), at most one worker buffer per piece so
// that a lane's workers share long transfers; a block covered in part (only the first and the
// last can be) is a piece of its own, run under its block lock.
//
//   segment:      |--- part ---|== block ==|== block ==| ... |== block ==|--- part ---|
//   lane l rows:  r0, r0+1, ...  (block b = row * L + l)
std::shared_ptr<IoCompletion> DiskRaid0::File::start(bool store, std::vector<detail::Raid0Segment> segments) {
    const size_t lane_count = lanes_.size();
    const uint64_t width = interleave_bytes();
    const uint64_t rows_per_piece = std::max<uint64_t>(1, engine_->settings.buffer_per_worker >> interleave_k_);
    std::vector<std::vector<detail::Raid0Piece>> pieces(lane_count);
    size_t total = 0;
    auto add = [&](const detail::Raid0Piece& piece) {
        pieces[piece.lane].push_back(piece);
        ++total;
    };
    for (uint32_t s = 0; s < segments.size(); ++s) {
        const detail::Raid0Segment& seg = segments[s];
        if (seg.bytes == 0) continue;
        const uint64_t end = seg.offset + seg.bytes;
        const uint64_t first_block = seg.offset >> interleave_k_;
        const uint64_t last_block = (end - 1) >> interleave_k_;
        const uint64_t full_begin = (seg.offset + width - 1) >> interleave_k_;
        const uint64_t full_end = end >> interleave_k_;  // exclusive
        auto add_partial = [&](uint64_t block) {
            add({s, uint32_t(block % lane_count), block / lane_count, 1, true});
        };
        if (full_begin >= full_end) {
            add_partial(first_block);
            if (last_block != first_block) add_partial(last_block);
            continue;
        }
        if (first_block < full_begin) add_partial(first_block);
        for (size_t lane = 0; lane < lane_count; ++lane) {
            // Rows r with full_begin <= r * L + lane < full_end.
            const uint64_t row_begin = full_begin > lane ? (full_begin - lane + lane_count - 1) / lane_count : 0;
            const uint64_t row_end = full_end > lane ? (full_end - lane + lane_count - 1) / lane_count : 0;
            for (uint64_t r = row_begin; r < row_end; r += rows_per_piece) {
                add({s, uint32_t(lane), r, std::min(rows_per_piece, row_end - r), false});
            }
        }
        if (last_block >= full_end) add_partial(last_block);
    }
    auto request = std::make_shared<detail::Raid0Request>(this, store, std::move(segments), total);
    if (total == 0) return request;
    {
        std::lock_guard<std::mutex> lock(active_mutex_);
        ++active_requests_;
    }
    for (size_t lane = 0; lane < lane_count; ++lane) {
        if (pieces[lane].empty()) continue;
        engine_->queues[lane]->push(std::make_shared<detail::Raid0Command>(request, std::move(pieces[lane])));
    }
    if (store) record_full_blocks(*request);
    return request;
}

// The checksums of the blocks a store covers whole are computed here, in the caller's thread
// while the workers write, from the caller's memory (which holds still until the request is
// done). They are recorded at once: if a write then fails, the next load of that block
// reports the mismatch, which is the truth (the disk does not hold what was stored). Only
// this request touches these blocks (concurrent requests use disjoint ranges); blocks
// covered in part are checksummed by their worker under the block lock.
void DiskRaid0::File::record_full_blocks(const detail::Raid0Request& request) {
    if (block_state_.empty()) return;
    const uint64_t width = interleave_bytes();
    for (const detail::Raid0Segment& seg : request.segments) {
        if (seg.bytes == 0) continue;
        const uint64_t full_begin = (seg.offset + width - 1) >> interleave_k_;
        const uint64_t full_end = (seg.offset + seg.bytes) >> interleave_k_;
        for (uint64_t block = full_begin; block < full_end; ++block) {
            const char* data = seg.memory + ((block << interleave_k_) - seg.offset);
            block_state_[block] = checksums_ ? block_checksum(data, size_t(width), seed_) : 0;
        }
    }
}

IoTicket DiskRaid0::File::start_load(void* buffer, uint64_t offset, uint64_t bytes) {
    check_range("FarMemory::load()", offset, bytes);
    return IoTicket(start(false, {{static_cast<char*>(buffer), offset, bytes}}));
}

IoTicket DiskRaid0::File::start_store(const void* buffer, uint64_t offset, uint64_t bytes) {
    check_range("FarMemory::store()", offset, bytes);
    return IoTicket(start(true, {{const_cast<char*>(static_cast<const char*>(buffer)), offset, bytes}}));
}

void DiskRaid0::File::do_load(void* buffer, uint64_t offset, uint64_t bytes) {
    start(false, {{static_cast<char*>(buffer), offset, bytes}})->wait();
}

void DiskRaid0::File::do_store(const void* buffer, uint64_t offset, uint64_t bytes) {
    start(true, {{const_cast<char*>(static_cast<const char*>(buffer)), offset, bytes}})->wait();
}

namespace {
std::vector<detail::Raid0Segment> strided_segments(char* buffer, int64_t buffer_stride, uint64_t offset,
                                                   uint64_t far_stride, uint64_t block_bytes, uint64_t count) {
    std::vector<detail::Raid0Segment> segments;
    segments.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        segments.push_back({buffer + int64_t(i) * buffer_stride, offset + i * far_stride, block_bytes});
    }
    return segments;
}
}  // namespace

void DiskRaid0::File::gather(void* buffer, int64_t buffer_stride, uint64_t offset, uint64_t far_stride,
                             uint64_t block_bytes, uint64_t count) {
    if (count == 0) return;
    check_strided("FarMemory::gather()", offset, far_stride, block_bytes, count);
    start(false, strided_segments(static_cast<char*>(buffer), buffer_stride, offset, far_stride, block_bytes, count))
        ->wait();
}

void DiskRaid0::File::scatter(const void* buffer, int64_t buffer_stride, uint64_t offset, uint64_t far_stride,
                              uint64_t block_bytes, uint64_t count) {
    if (count == 0) return;
    // Far blocks that overlap must land in order (the later one wins): the base class stores
    // them one after another.
    if (count > 1 && far_stride < block_bytes) {
        FarMemory::scatter(buffer, buffer_stride, offset, far_stride, block_bytes, count);
        return;
    }
    check_strided("FarMemory::scatter()", offset, far_stride, block_bytes, count);
    start(true, strided_segments(const_cast<char*>(static_cast<const char*>(buffer)), buffer_stride, offset,
                                 far_stride, block_bytes, count))
        ->wait();
}

}  // namespace qmp
