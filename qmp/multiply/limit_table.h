// Convolution limits of a transform family: one 16-bit entry per transform size, encoding the
// largest convolution bit-length ("cbitlen") that size supports as a 10-bit mantissa and a
// 6-bit shift: value = (entry & 1023) << (entry >> 10). Decoded values must be strictly
// increasing (a larger transform always carries more bits), else the constructor throws
// qmp::InvalidParametersException "cbitlen must be increasing.".
#pragma once

#include <cstdint>
#include <vector>

namespace qmp {

class LimitTable {
public:
    LimitTable() = default;
    explicit LimitTable(std::vector<uint16_t> entries);

    static uint64_t decode(uint16_t entry) { return uint64_t(entry & 1023) << (entry >> 10); }

    uint64_t size() const noexcept { return entries_.size(); }
    uint16_t entry(uint64_t index) const { return entries_.at(index); }
    uint64_t cbitlen(uint64_t index) const { return decode(entries_.at(index)); }
    // Index of the smallest transform size whose limit is at least `bits`, or size() if none.
    uint64_t first_at_least(uint64_t bits) const;

private:
    std::vector<uint16_t> entries_;
};

}  // namespace qmp
