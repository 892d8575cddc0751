// Decoding and validation of convolution limit tables.
#include "qmp/multiply/limit_table.h"

#include "qmp/exception.h"

namespace qmp {

LimitTable::LimitTable(std::vector<uint16_t> entries) : entries_(std::move(entries)) {
    // The 6-bit shift reaches 63, but a 10-bit mantissa fits 64 bits only for shifts up to
    // 54; an entry beyond that cannot describe a real transform and is rejected.
    for (uint64_t i = 0; i < entries_.size(); ++i) {
        if ((entries_[i] >> 10) > 54)
            throw InvalidParametersException("LimitTable::LimitTable()", "cbitlen is out of range.");
        if (i > 0 && decode(entries_[i]) <= decode(entries_[i - 1]))
            throw InvalidParametersException("LimitTable::LimitTable()", "cbitlen must be increasing.");
    }
}

uint64_t LimitTable::first_at_least(uint64_t bits) const {
    for (uint64_t i = 0; i < entries_.size(); ++i) {
        if (decode(entries_[i]) >= bits) return i;
    }
    return entries_.size();
}

}  // namespace qmp
