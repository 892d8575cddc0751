// The work of one piece in a worker thread: rows of one lane moved between the lane file and
// the caller's memory, checksums recorded on store and verified on load.
//   Whole rows, memory usable for the transfer (any address with buffered I/O, 4096-aligned
//   with direct I/O): one vectored read or write straight between the file and the caller's
//   memory (rows of one lane lie L * W apart there); loads verify on that memory, stores
//   leave the checksums of whole rows to the caller's thread, which computes them meanwhile.
//   Whole rows otherwise: through the worker's IoBuffer, a buffer-full at a time.
//   A row covered in part: read, verify, modify, checksum, write, under the block's lock.
// Failures are Raid0Exception with "Path: " and the lane file's path as their first line.
#include "qmp/farmemory/disk_raid0.h"

#include "qmp/farmemory/block_checksum.h"
#include "qmp/farmemory/disk_raid0_engine.h"
#include "qmp/farmemory/io_buffer.h"
#include "qmp/farmemory/lane_file.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/uio.h>

namespace qmp {

namespace {

constexpr uint64_t direct_io_alignment = 4096;

// 1234567 -> "1,234,567".
std::string grouped(uint64_t value) {
    std::string digits = std::to_string(value);
    std::string out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i != 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

std::string block_range(uint64_t block, uint32_t interleave_k) {
    return "[" + grouped(block << interleave_k) + " - " + grouped((block + 1) << interleave_k) + ")";
}

}  // namespace

LaneFile& DiskRaid0::File::load_from_file(size_t lane) const {
    if (!lanes_[lane]) {
        throw Raid0Exception("DiskRaid0::load_from_file()", "Impossible State: File handle is null.");
    }
    return *lanes_[lane];
}

void DiskRaid0::File::check_read_protect(uint64_t block, size_t lane) const {
    if (!read_protect_ || block_state_[block] != checksum_unwritten) return;
    throw Raid0Exception("DiskRaid0::load()", "Path: " + lane_paths_[lane] +
                                                  "\nRead Protection: Attempted to read data that was never written at " +
                                                  block_range(block, interleave_k_));
}

void DiskRaid0::File::verify_block(uint64_t block, const char* data, size_t lane) const {
    if (!checksums_ || block_state_[block] == checksum_unwritten) return;
    if (block_checksum(data, interleave_bytes(), seed_) == block_state_[block]) return;
    throw Raid0Exception("DiskRaid0::load()", "Path: " + lane_paths_[lane] +
                                                  "\nChecksum Mismatch: Data Corruption at " +
                                                  block_range(block, interleave_k_));
}

void DiskRaid0::File::run_piece(const detail::Raid0Request& request, const detail::Raid0Piece& piece,
                                IoBuffer& buffer) {
    try {
        if (piece.partial) {
            access_partial_row(request, piece, buffer);
        } else if (request.store) {
            store_full_rows(request, piece, buffer);
        } else {
            load_full_rows(request, piece, buffer);
        }
    } catch (const FileIO::FileException& e) {
        throw Raid0Exception(e.function(), e.message());
    }
}

namespace {

// The caller's memory of row `row` of `lane` within the segment (whole rows only).
char* row_memory(const detail::Raid0Segment& seg, uint64_t row, size_t lane, size_t lane_count, uint32_t k) {
    const uint64_t block = row * lane_count + lane;
    return seg.memory + ((block << k) - seg.offset);
}

// iovecs for consecutive rows, adjacent ones merged (one lane: the whole piece is one range).
std::vector<iovec> row_vectors(const detail::Raid0Segment& seg, const detail::Raid0Piece& piece, size_t lane_count,
                               uint32_t k) {
    std::vector<iovec> out;
    const size_t width = size_t(1) << k;
    for (uint64_t i = 0; i < piece.row_count; ++i) {
        char* p = row_memory(seg, piece.row_begin + i, piece.lane, lane_count, k);
        if (!out.empty() && static_cast<char*>(out.back().iov_base) + out.back().iov_len == p) {
            out.back().iov_len += width;
        } else {
            out.push_back({p, width});
        }
    }
    return out;
}

}  // namespace

void DiskRaid0::File::load_full_rows(const detail::Raid0Request& request, const detail::Raid0Piece& piece,
                                     IoBuffer& buffer) {
    const detail::Raid0Segment& seg = request.segments[piece.segment];
    const size_t lane = piece.lane;
    const size_t lane_count = lanes_.size();
    const uint64_t width = interleave_bytes();
    LaneFile& file = load_from_file(lane);
    for (uint64_t i = 0; i < piece.row_count; ++i) check_read_protect((piece.row_begin + i) * lane_count + lane, lane);
    const char* first = row_memory(seg, piece.row_begin, lane, lane_count, interleave_k_);
    if (!file.raw_io() || reinterpret_cast<uintptr_t>(first) % direct_io_alignment == 0) {
        file.load_vector(row_vectors(seg, piece, lane_count, interleave_k_), piece.row_begin << interleave_k_);
        for (uint64_t i = 0; i < piece.row_count; ++i) {
            const uint64_t row = piece.row_begin + i;
            verify_block(row * lane_count + lane, row_memory(seg, row, lane, lane_count, interleave_k_), lane);
        }
        return;
    }
    const uint64_t rows_per_fill = std::max<uint64_t>(1, buffer.capacity_bytes() >> interleave_k_);
    for (uint64_t done = 0; done < piece.row_count; done += rows_per_fill) {
        const uint64_t rows = std::min(rows_per_fill, piece.row_count - done);
        const uint64_t row0 = piece.row_begin + done;
        buffer.fill_from(file, row0 << interleave_k_, size_t(rows << interleave_k_));
        for (uint64_t i = 0; i < rows; ++i) {
            verify_block((row0 + i) * lane_count + lane, buffer.data() + (i << interleave_k_), lane);
            buffer.memory_read(row_memory(seg, row0 + i, lane, lane_count, interleave_k_), size_t(i * width),
                               size_t(width));
        }
    }
}

void DiskRaid0::File::store_full_rows(const detail::Raid0Request& request, const detail::Raid0Piece& piece,
                                      IoBuffer& buffer) {
    const detail::Raid0Segment& seg = request.segments[piece.segment];
    const size_t lane = piece.lane;
    const size_t lane_count = lanes_.size();
    const uint64_t width = interleave_bytes();
    LaneFile& file = load_from_file(lane);
    // The checksums of whole rows are the caller's work (File::record_full_blocks()).
    const char* first = row_memory(seg, piece.row_begin, lane, lane_count, interleave_k_);
    if (!file.raw_io() || reinterpret_cast<uintptr_t>(first) % direct_io_alignment == 0) {
        file.store_vector(row_vectors(seg, piece, lane_count, interleave_k_), piece.row_begin << interleave_k_);
        return;
    }
    const uint64_t rows_per_fill = std::max<uint64_t>(1, buffer.capacity_bytes() >> interleave_k_);
    for (uint64_t done = 0; done < piece.row_count; done += rows_per_fill) {
        const uint64_t rows = std::min(rows_per_fill, piece.row_count - done);
        const uint64_t row0 = piece.row_begin + done;
        buffer.prepare_overwrite(row0 << interleave_k_, size_t(rows << interleave_k_));
        for (uint64_t i = 0; i < rows; ++i) {
            buffer.memory_write(row_memory(seg, row0 + i, lane, lane_count, interleave_k_), size_t(i * width),
                                size_t(width));
        }
        buffer.flush_to(file);
    }
}

void DiskRaid0::File::access_partial_row(const detail::Raid0Request& request, const detail::Raid0Piece& piece,
                                         IoBuffer& buffer) {
    const detail::Raid0Segment& seg = request.segments[piece.segment];
    const size_t lane = piece.lane;
    const size_t lane_count = lanes_.size();
    const uint64_t width = interleave_bytes();
    const uint64_t block = piece.row_begin * lane_count + lane;
    const uint64_t block_start = block << interleave_k_;
    // The part of the block inside the segment.
    const uint64_t from = std::max(block_start, seg.offset);
    const uint64_t to = std::min(block_start + width, seg.offset + seg.bytes);
    char* memory = seg.memory + (from - seg.offset);
    LaneFile& file = load_from_file(lane);
    std::lock_guard<std::mutex> lock(partial_locks_[block % partial_locks_.size()]);
    if (!request.store) check_read_protect(block, lane);
    buffer.fill_from(file, piece.row_begin << interleave_k_, size_t(width));
    verify_block(block, buffer.data(), lane);
    if (!request.store) {
        buffer.memory_read(memory, size_t(from - block_start), size_t(to - from));
        return;
    }
    buffer.memory_write(memory, size_t(from - block_start), size_t(to - from));
    buffer.flush_to(file);
    if (!block_state_.empty()) {
        block_state_[block] = checksums_ ? block_checksum(buffer.data(), size_t(width), seed_) : 0;
    }
}

}  // namespace qmp
