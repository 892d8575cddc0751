// Far memory striped over several disk paths in the manner of RAID 0 ("disk-raid0", menu text
// "Disk RAID 0"). An object of S bytes over L lanes with stripe blocks of W bytes (the
// InterleaveWidth) keeps block b (counted from the object's start) in lane b mod L, at byte
// (b div L) * W of that lane's file; each lane file ("qcs-<process>-<object>-<lane>" in one of
// the lane's directories) is created sparse and removed with the object. Every lane has its
// own worker threads (IoThread) with their own aligned buffers (IoBuffer), fed by a queue:
// load/store/gather/scatter cut the request into stripe blocks, queue one command per lane
// and return when all lanes are done, rethrowing the first worker's exception. With checksums
// on, each stripe block's checksum (block_checksum.h) is recorded on store and verified on
// every load; a mismatch is never retried ("Checksum Mismatch: Data Corruption at [a - b)"
// with the lane file's path). All failures are qmp::DiskRaid0::Raid0Exception (a
// qmp::FarMemoryException); system-call failures keep the errno texts of posix_errors.h.
// Requests from several threads may overlap in time when their byte ranges are disjoint.
#pragma once

#include "qmp/exception.h"
#include "qmp/farmemory/disk_raid0_settings.h"
#include "qmp/farmemory/far_memory_framework.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qmp {

class LaneFile;
class IoCompletion;
class IoBuffer;
namespace detail {
struct Raid0Engine;
struct Raid0Request;
struct Raid0Piece;
struct Raid0Segment;
}  // namespace detail

// A request started without waiting; wait() blocks until it is done and rethrows its error.
class IoTicket {
public:
    IoTicket() = default;
    explicit IoTicket(std::shared_ptr<IoCompletion> completion) : completion_(std::move(completion)) {}
    void wait();
    bool finished() const;

private:
    std::shared_ptr<IoCompletion> completion_;
};

class DiskRaid0 : public FarMemoryFramework {
public:
    static constexpr const char* registry_name = "disk-raid0";
    static constexpr const char* menu_text = "Disk RAID 0";

    class Raid0Exception : public FarMemoryException {
    public:
        using FarMemoryException::FarMemoryException;
        const char* type_name() const noexcept override { return "Raid0Exception"; }
    };

    // Creates a lane file of size_bytes at path. Tests substitute files that fail part-way.
    using LaneFileFactory =
        std::function<std::unique_ptr<LaneFile>(const std::string& path, uint64_t size_bytes, bool raw_io)>;

    // Where byte `byte` of an object lives.
    struct Location {
        uint64_t block;
        size_t lane;
        uint64_t lane_offset;
    };
    static Location locate(uint64_t byte, size_t lane_count, uint32_t interleave_k);

    class File : public FarMemory {
    public:
        File(std::string name, uint64_t size_bytes, std::shared_ptr<detail::Raid0Engine> engine,
             std::shared_ptr<FarMemoryFramework::Usage> usage);
        // Waits for requests still running (after reporting "Attempted to destroy a file with
        // active commands: " + name), then closes and removes the lane files.
        ~File() override;

        size_t lane_count() const noexcept { return lanes_.size(); }
        uint64_t interleave_bytes() const noexcept { return uint64_t(1) << interleave_k_; }
        const std::string& lane_path(size_t lane) const { return lane_paths_[lane]; }
        // Whether the lane really uses direct I/O (its file system may have refused it).
        bool lane_raw_io(size_t lane) const;
        uint32_t checksum_seed() const noexcept { return seed_; }

        void gather(void* buffer, int64_t buffer_stride, uint64_t offset, uint64_t far_stride,
                    uint64_t block_bytes, uint64_t count) override;
        void scatter(const void* buffer, int64_t buffer_stride, uint64_t offset,
                     uint64_t far_stride, uint64_t block_bytes, uint64_t count) override;

        // Start a transfer and return at once; the buffer must stay untouched until the
        // ticket's wait() returns.
        IoTicket start_load(void* buffer, uint64_t offset, uint64_t bytes);
        IoTicket start_store(const void* buffer, uint64_t offset, uint64_t bytes);

        // Runs one piece of a request in a worker thread (detail of the workers).
        void run_piece(const detail::Raid0Request& request, const detail::Raid0Piece& piece,
                       IoBuffer& buffer);
        void request_finished() noexcept;

    protected:
        void do_load(void* buffer, uint64_t offset, uint64_t bytes) override;
        void do_store(const void* buffer, uint64_t offset, uint64_t bytes) override;

    private:
        // Cuts the segments into pieces, queues one command per lane, returns the request.
        std::shared_ptr<IoCompletion> start(bool store, std::vector<detail::Raid0Segment> segments);
        void record_full_blocks(const detail::Raid0Request& request);
        LaneFile& load_from_file(size_t lane) const;
        void check_read_protect(uint64_t block, size_t lane) const;
        void verify_block(uint64_t block, const char* data, size_t lane) const;
        void load_full_rows(const detail::Raid0Request& r, const detail::Raid0Piece& piece, IoBuffer& buffer);
        void store_full_rows(const detail::Raid0Request& r, const detail::Raid0Piece& piece, IoBuffer& buffer);
        void access_partial_row(const detail::Raid0Request& r, const detail::Raid0Piece& piece, IoBuffer& buffer);

        std::shared_ptr<detail::Raid0Engine> engine_;
        uint32_t interleave_k_;
        bool checksums_;
        bool read_protect_;
        uint32_t seed_;
        std::vector<std::unique_ptr<LaneFile>> lanes_;
        std::vector<std::string> lane_paths_;
        // Per stripe block: its checksum, or checksum_unwritten before its first store (with
        // checksums off but ReadProtect on, 0 marks a stored block). Empty when neither is on.
        std::vector<uint32_t> block_state_;
        // Blocks shared by requests that touch them in part are read-modified-written under
        // one of these (block mod 64), so that disjoint concurrent requests never tear them.
        std::array<std::mutex, 64> partial_locks_;
        std::mutex active_mutex_;
        std::condition_variable active_done_;
        size_t active_requests_ = 0;
        FarMemoryUsageTicket ticket_;
    };

    // lane_files: how lane files are opened (a LaneFile when empty).
    explicit DiskRaid0(DiskRaid0Settings settings, LaneFileFactory lane_files = {});
    // Reads the settings (disk_raid0_settings.h). Objects do not outlive the process, so
    // opening existing ones is refused ("Open is not supported.").
    DiskRaid0(const ConfigObject& config, bool open_existing);
    ~DiskRaid0() override;

    const DiskRaid0Settings& settings() const noexcept;
    const char* framework_name() const override { return registry_name; }
    std::unique_ptr<FarMemory> create(std::string name, uint64_t size_bytes) override;
    std::unique_ptr<File> create_file(std::string name, uint64_t size_bytes);
    ConfigObject get_static_data() const override;
    void print_description() const override;

    // The registry's word form: a lane count, then that many paths.
    static void read_words(const std::vector<std::string>& words, size_t& cursor, ConfigObject& config);

private:
    std::shared_ptr<detail::Raid0Engine> engine_;
};

}  // namespace qmp
