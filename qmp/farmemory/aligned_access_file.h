// A raw file whose every access is aligned to 2^k bytes (k stored as one byte): the buffer
// address, the file offset and the length must each be a multiple of 2^k, checked in that
// order before any byte moves ("Buffer is misaligned.", "Offset is misaligned.", "Length is
// misaligned." as qmp::InvalidParametersException at "AlignedAccessFile::check_alignment()").
// These are the rules direct I/O imposes; keeping them with raw I/O off as well gives one code
// path and catches layout mistakes on machines without O_DIRECT.
#pragma once

#include "qmp/farmemory/raw_file.h"

#include <cstdint>
#include <string>

namespace qmp {

class AlignedAccessFile : public RawFile {
public:
    // 4096 bytes: the largest logical sector in common use, and a multiple of 512, so it suits
    // every device when the caller does not know the sector size.
    static constexpr uint8_t default_alignment_k = 12;

    // alignment_k must be at most 30 (a 1 GiB alignment; larger is certainly a mistake).
    AlignedAccessFile(std::string path, OpenMode mode, bool raw_io,
                      uint8_t alignment_k = default_alignment_k);

    uint8_t alignment_k() const noexcept { return alignment_k_; }
    uint64_t alignment_bytes() const noexcept { return uint64_t(1) << alignment_k_; }

    void check_alignment(const void* buffer, uint64_t offset, uint64_t bytes) const;

    void load(void* buffer, uint64_t offset, uint64_t bytes) override;
    void store(const void* buffer, uint64_t offset, uint64_t bytes) override;

private:
    uint8_t alignment_k_;
};

}  // namespace qmp
