// The alignment rules of AlignedAccessFile, checked before the raw transfer; the exponent is
// checked before the file is opened, so a bad exponent cannot truncate an existing file.
#include "qmp/farmemory/aligned_access_file.h"

#include "qmp/exception.h"

#include <cstdint>
#include <string>

namespace qmp {

namespace {
// Checks the exponent before the base class opens (and perhaps truncates) the file; returns
// the path unchanged so it can run in the base-class initialiser.
std::string check_exponent_first(std::string path, uint8_t alignment_k) {
    if (alignment_k > 30) {
        throw InvalidParametersException("AlignedAccessFile()",
                                         "Alignment exponent must be at most 30.");
    }
    return path;
}
}  // namespace

AlignedAccessFile::AlignedAccessFile(std::string path, OpenMode mode, bool raw_io,
                                     uint8_t alignment_k)
    : RawFile(check_exponent_first(std::move(path), alignment_k), mode, raw_io),
      alignment_k_(alignment_k) {}

void AlignedAccessFile::check_alignment(const void* buffer, uint64_t offset,
                                        uint64_t bytes) const {
    static const char* const place = "AlignedAccessFile::check_alignment()";
    const uint64_t mask = alignment_bytes() - 1;
    if (reinterpret_cast<uintptr_t>(buffer) & mask) {
        throw InvalidParametersException(place, "Buffer is misaligned.");
    }
    if (offset & mask) throw InvalidParametersException(place, "Offset is misaligned.");
    if (bytes & mask) throw InvalidParametersException(place, "Length is misaligned.");
}

void AlignedAccessFile::load(void* buffer, uint64_t offset, uint64_t bytes) {
    check_alignment(buffer, offset, bytes);
    RawFile::load(buffer, offset, bytes);
}

void AlignedAccessFile::store(const void* buffer, uint64_t offset, uint64_t bytes) {
    check_alignment(buffer, offset, bytes);
    RawFile::store(buffer, offset, bytes);
}

}  // namespace qmp
