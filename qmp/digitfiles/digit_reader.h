// DigitReader: a source of the fractional digits of a number written to disk, a text file or a
// compressed set. Positions count from the first digit after the radix point, from 0. The
// viewer, the extraction to text, the recompression and the read-back check of written digits
// all go through this interface, so they treat both formats alike.
#pragma once

#include "qmp/digitfiles/digit_stats.h"

#include <cstdint>
#include <string>

namespace qmp {

class DigitReader {
public:
    virtual ~DigitReader() = default;

    virtual uint32_t radix() const = 0;
    // The integer part and the radix point (and, for a compressed set, whatever leading digits
    // its writer recorded).
    virtual std::string first_digits() const = 0;
    // The digits after the point that can be read; 0 when not stated (an unbounded set).
    virtual uint64_t total_digits() const = 0;
    // Raw digits [start, start + count) into raw (one value per byte); throws when the range
    // cannot be served.
    virtual void load_digits(char* raw, uint64_t start, uint64_t count) = 0;

    // Adds the digits [start, end) to the counts and the hash, reading in blocks.
    void load_stats(DigitCounts& counts, DigitHash& hash, uint64_t start, uint64_t end);
};

}  // namespace qmp
