// The read-back check of written digits. DigitStatsSink sits in front of a writer and keeps the
// counts and the hash of every digit passed through it (positions must follow on from each
// other, as for the writers). verify_written_digits() reads [start, start + count) back through
// a reader and compares counts and hash with what was written: a mismatch is
// AlgorithmFailedException at "verify_written_digits()" naming the file, and so is a reader
// that fails on the way (its own error text is kept in the message).
#pragma once

#include "qmp/digitfiles/digit_reader.h"
#include "qmp/digitfiles/digit_sink.h"
#include "qmp/digitfiles/digit_stats.h"

#include <cstdint>
#include <string>

namespace qmp {

class DigitStatsSink : public DigitSink {
public:
    DigitStatsSink(DigitSink& target, uint32_t radix) : target_(target), counts_(radix), hash_(radix) {}

    void store_digits(const char* raw_digits, uint64_t position, uint64_t count) override;
    const DigitCounts& counts() const noexcept { return counts_; }
    const DigitHash& hash() const noexcept { return hash_; }

private:
    DigitSink& target_;
    DigitCounts counts_;
    DigitHash hash_;
};

void verify_written_digits(DigitReader& reader, uint64_t start, uint64_t count, const DigitCounts& counts,
                           const DigitHash& hash, const std::string& name);

}  // namespace qmp
