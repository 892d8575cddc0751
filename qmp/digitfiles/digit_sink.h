// DigitSink: where a digit writer sends the digits of a converted number. Digits travel as raw
// digits, one value 0..radix-1 per byte, in blocks given in increasing position order; position
// 0 is the first digit after the radix point. The writers of text files and of compressed digit
// sets implement it; the float writer of the radix conversion drives it. A sink reports a
// failure by throwing, and the writer stops at once.
#pragma once

#include <cstdint>

namespace qmp {

class DigitSink {
public:
    virtual ~DigitSink() = default;
    // Stores raw digits [position, position + count).
    virtual void store_digits(const char* raw_digits, uint64_t position, uint64_t count) = 0;
};

}  // namespace qmp
