// The parts of a striped disk array shared by the framework and its objects: the lane queues,
// the worker threads and their buffers (Raid0Engine, kept alive by whichever of framework and
// objects goes last), and the shapes of a request: segments of the caller's memory and far
// range, cut into pieces of one lane each (Raid0Piece), one LaneCommand per lane.
#pragma once

#include "qmp/farmemory/disk_raid0.h"
#include "qmp/farmemory/io_thread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace qmp::detail {

// One contiguous range of the caller's memory and of the object.
struct Raid0Segment {
    char* memory;  // const for stores; the request's kind says which way bytes move
    uint64_t offset;
    uint64_t bytes;
};

// Rows [row_begin, row_begin + row_count) of one lane, for one segment. A partial piece is a
// single row that the segment covers only in part.
struct Raid0Piece {
    uint32_t segment;
    uint32_t lane;
    uint64_t row_begin;
    uint64_t row_count;
    bool partial;
};

struct Raid0Request : IoCompletion {
    Raid0Request(DiskRaid0::File* owner, bool is_store, std::vector<Raid0Segment> parts, size_t pieces)
        : IoCompletion(pieces), file(owner), store(is_store), segments(std::move(parts)) {}
    void on_finished() noexcept override { file->request_finished(); }

    DiskRaid0::File* file;
    bool store;
    std::vector<Raid0Segment> segments;
};

class Raid0Command : public LaneCommand {
public:
    Raid0Command(std::shared_ptr<Raid0Request> request, std::vector<Raid0Piece> pieces)
        : LaneCommand(request, pieces.size()), request_(std::move(request)), pieces_(std::move(pieces)) {}
    void run_piece(size_t index, IoBuffer& buffer) override {
        request_->file->run_piece(*request_, pieces_[index], buffer);
    }

private:
    std::shared_ptr<Raid0Request> request_;
    std::vector<Raid0Piece> pieces_;
};

struct Raid0Engine {
    Raid0Engine(DiskRaid0Settings settings, DiskRaid0::LaneFileFactory lane_files);
    ~Raid0Engine();

    DiskRaid0Settings settings;
    DiskRaid0::LaneFileFactory lane_files;
    std::atomic<uint64_t> next_object{0};
    // One queue per lane (configured lanes times LaneMultiplier), in stripe order.
    std::vector<std::unique_ptr<LaneQueue>> queues;
    // The I/O buffers of each configured lane's workers, allocated at once.
    struct BufferBlock {
        char* memory = nullptr;
        size_t bytes = 0;
        bool mapped = false;
    };
    std::vector<BufferBlock> buffers;
    std::vector<std::unique_ptr<IoThread>> threads;

private:
    void allocate_buffers();
    void start_workers();
    void stop_workers() noexcept;
    void free_buffers() noexcept;
};

}  // namespace qmp::detail
