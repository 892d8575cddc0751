// FloatWriterB: the digit writer of an in-memory number. For x with 2^-64 < |x| < 2^64 (range
// check "words_to_dec()"; a negative x is written as |x| after a warning) it produces the
// digits after the point in radix 10 or 16: decimal words of 19 digits by radix conversion
// (DirectConvertB), hexadecimal words of 16 digits by unpacking the binary words. A number
// computed to N digits converts N / digits-per-word + 3 words (the buffer rounded up to 16).
// convert() fills the words; verify() compares the hash of the first d digits, read as one
// integer with the integer part in front, against floor(x * radix^d) mod 2^61 - 1 from the
// binary input (VerifyB): "Base Conversion Failed: Checksum Mismatch" (decimal) and, through
// verify_binary_words(), "Binary Output Failed: Checksum Mismatch" (hexadecimal). write() hands
// the digits to a DigitSink in blocks; stat_*_digits() feed digit counts and the digit hash.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qmp/digitfiles/digit_sink.h"
#include "qmp/digitfiles/digit_stats.h"
#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"
#include "qmp/radix/direct_convert.h"
#include "qmp/radix/verify.h"

namespace qmp {

class Parallelizer;

// Refuses zero and numbers outside 2^-64 < |x| < 2^64 (InvalidParametersException naming
// "words_to_dec()"); warns about a negative number.
void words_to_dec_range_check(const BigFloat<uint64_t>& x);

// The writer reads x's words in place: x must outlive it and stay unchanged.
class FloatWriterB {
public:
    static constexpr uint64_t kMinMemoryBytes = 12288;

    FloatWriterB(const BigFloat<uint64_t>& x, uint32_t radix, uint64_t digits_computed, uint64_t digits_output,
                 bool verify, DigitSink* sink, const AlgorithmTableB& table, Parallelizer* parallelizer = nullptr,
                 uint64_t tds = 1);

    // Working memory of convert() and verify(): the larger need, at least kMinMemoryBytes.
    uint64_t memory_bytes() const noexcept { return memory_bytes_; }

    void convert(AlignedBufferC memory);
    // Checks the first `digits` digits (default: the digits to output); "Too many digits." when
    // more than were computed. A writer made without verification checks nothing.
    void verify(AlignedBufferC memory);
    void verify(AlignedBufferC memory, uint64_t digits);
    void verify_binary_words();

    // Sends digits [0, digits to output) to the sink in blocks of block_digits.
    void write(uint64_t block_digits = uint64_t(1) << 20);
    void stat_dec_digits(DigitCounts& counts, DigitHash& hash) const;
    void stat_hex_digits(DigitCounts& counts, DigitHash& hash) const;

    // Raw digits (one value per byte) at positions [position, position + count) after the point.
    void digits(char* raw, uint64_t position, uint64_t count) const;

    uint32_t radix() const noexcept { return radix_; }
    uint64_t integer_part() const noexcept { return integer_part_; }
    uint64_t output_words() const noexcept { return output_words_; }
    const uint64_t* words() const noexcept { return words_.data(); }
    // Test hook: the output words, writable, so that tests can corrupt one.
    uint64_t* words_for_test() noexcept { return words_.data(); }
    const DirectConvertB* plan() const noexcept { return plan_.get(); }

private:
    uint64_t digits_per_word() const noexcept { return radix_ == 10 ? 19 : 16; }
    void stat_digits(DigitCounts& counts, DigitHash& hash) const;
    uint64_t output_hash(uint64_t digits) const;

    const AlgorithmTableB* table_;
    Parallelizer* parallelizer_;
    uint64_t tds_;
    uint32_t radix_;
    uint64_t digits_computed_;
    uint64_t digits_output_;
    bool verify_;
    DigitSink* sink_;
    uint64_t integer_part_ = 0;
    const uint64_t* fraction_ = nullptr;  // the words of x below the point that the writer uses
    uint64_t fraction_words_ = 0;
    uint64_t output_words_ = 0;
    std::vector<uint64_t> words_;
    std::unique_ptr<DirectConvertB> plan_;
    std::unique_ptr<VerifyB> verifier_;
    uint64_t memory_bytes_ = kMinMemoryBytes;
    bool converted_ = false;
};

}  // namespace qmp
