// The in-memory digit writer: range check, conversion or unpacking, hash checks, digit output.
#include "qmp/radix/float_writer.h"

#include "qmp/digitfiles/digit_pack.h"

#include <algorithm>
#include <string>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

const char* const kRangeText =
    "\n\nquorvalith's radix conversion and digit output is only equipped to handle\n"
    "positive numbers with a magnitude near 1.\n\n"
    "The exact range that quorvalith can handle is:\n"
    "    32-bit binaries: 2^-32 < x < 2^32\n"
    "    64-bit binaries: 2^-64 < x < 2^64";

const char* const kNegativeWarning =
    "Warning: quorvalith's digit output cannot handle negative numbers.\nOutput will be flipped positive...\n";

uint64_t pow10(uint64_t e) {
    uint64_t r = 1;
    while (e-- > 0) r *= 10;
    return r;
}

}  // namespace

void words_to_dec_range_check(const BigFloat<uint64_t>& x) {
    if (x.L == 0) throw InvalidParametersException("words_to_dec()", std::string("Number is zero and out of range.") + kRangeText);
    const int64_t top = x.top();
    // 2^-64 exactly: the top word 1 at position -1 and nothing below it.
    const bool at_lower_bound = top == 0 && x.T[x.L - 1] == 1 && is_zero(x.T, x.L - 1);
    if (top < 0 || top > 1 || at_lower_bound)
        throw InvalidParametersException("words_to_dec()", std::string("Number is out of range.") + kRangeText);
    if (!x.sign) {
        Console::print(kNegativeWarning, Console::Colour::Warning);
        EventLog::append("Warning: quorvalith's digit output cannot handle negative numbers.");
    }
}

FloatWriterB::FloatWriterB(const BigFloat<uint64_t>& x, uint32_t radix, uint64_t digits_computed,
                           uint64_t digits_output, bool verify, DigitSink* sink, const AlgorithmTableB& table,
                           Parallelizer* parallelizer, uint64_t tds)
    : table_(&table), parallelizer_(parallelizer), tds_(std::max<uint64_t>(tds, 1)), radix_(radix),
      digits_computed_(digits_computed), digits_output_(digits_output), verify_(verify), sink_(sink) {
    const char* function = "FloatWriterB::FloatWriterB()";
    if (radix != 10 && radix != 16) throw InvalidParametersException(function, "Invalid radix.");
    if (digits_computed < digits_output) throw InvalidParametersException(function, "compute < output");
    words_to_dec_range_check(x);
    integer_part_ = x.top() == 1 ? x.T[x.L - 1] : 0;
    fraction_words_ = uint64_t(-x.exp);
    fraction_ = x.T;
    output_words_ = digits_computed / digits_per_word() + 3;
    words_.assign((output_words_ + 15) / 16 * 16, 0);
    if (radix_ == 10) {
        plan_ = std::make_unique<DirectConvertB>(table, output_words_, tds_);
        memory_bytes_ = std::max(memory_bytes_, plan_->scratch_bytes());
    }
    if (verify_) {
        // The verifier sees the fraction exactly as the conversion does: its top words.
        const uint64_t used = std::min(fraction_words_, output_words_ + DirectConvertB::kGuardWords);
        verifier_ = std::make_unique<VerifyB>(table, radix_, radix_ == 10 ? used : fraction_words_, digits_computed_);
        memory_bytes_ = std::max(memory_bytes_, verifier_->scratch_bytes());
    }
}

void FloatWriterB::convert(AlignedBufferC memory) {
    if (radix_ == 10) {
        Console::println("Base Converting");
        plan_->run(fraction_, fraction_words_, words_.data(), output_words_, memory, parallelizer_);
    } else {
        // Hexadecimal: the binary words themselves, most significant first.
        Console::println("Processing Hexadecimal Digits");
        for (uint64_t i = 0; i < output_words_; ++i)
            words_[i] = i < fraction_words_ ? fraction_[fraction_words_ - 1 - i] : 0;
    }
    converted_ = true;
}

uint64_t FloatWriterB::output_hash(uint64_t digits) const {
    const uint64_t per_word = digits_per_word();
    const uint64_t scale = top_hash(radix_);
    uint64_t h = reduce_m61(integer_part_);
    const uint64_t full = digits / per_word, rest = digits % per_word;
    for (uint64_t i = 0; i < full; ++i) h = add_m61(mul_m61(h, scale), reduce_m61(words_[i]));
    if (rest != 0) {
        const uint64_t w = words_[full];
        const uint64_t head = radix_ == 16 ? w >> (4 * (per_word - rest)) : w / pow10(per_word - rest);
        h = add_m61(mul_m61(h, pow_mod_m61(radix_, rest)), reduce_m61(head));
    }
    return h;
}

void FloatWriterB::verify(AlignedBufferC memory) { verify(memory, digits_output_); }

void FloatWriterB::verify(AlignedBufferC memory, uint64_t digits) {
    const char* function = "FloatWriterB::verify()";
    if (digits > digits_computed_) throw InvalidParametersException(function, "Too many digits.");
    if (!verify_) return;
    if (radix_ == 16) {
        verify_binary_words();
        return;
    }
    Console::println("Verifying Base Conversion");
    const uint64_t used = std::min(fraction_words_, output_words_ + DirectConvertB::kGuardWords);
    const uint64_t before = verifier_->hash_binary(integer_part_, fraction_ + (fraction_words_ - used), used, digits,
                                                   memory, parallelizer_, tds_);
    const uint64_t after = output_hash(digits);
    if (before != after) {
        Console::println("Before Hash = " + std::to_string(before), Console::Colour::Error);
        Console::println("After  Hash = " + std::to_string(after), Console::Colour::Error);
        throw AlgorithmFailedException(function, "Base Conversion Failed: Checksum Mismatch");
    }
}

void FloatWriterB::verify_binary_words() {
    Console::println("Verifying Binary Output");
    const uint64_t digits = digits_output_;
    VerifyB binary(*table_, 16, fraction_words_, digits);
    const uint64_t before = binary.hash_binary(integer_part_, fraction_, fraction_words_, digits, AlignedBufferC());
    const uint64_t after = output_hash(digits);
    if (before != after) {
        Console::println("Before Hash = " + std::to_string(before), Console::Colour::Error);
        Console::println("After  Hash = " + std::to_string(after), Console::Colour::Error);
        throw AlgorithmFailedException("FloatWriterB::verify_binary_words()", "Binary Output Failed: Checksum Mismatch");
    }
}

void FloatWriterB::digits(char* raw, uint64_t position, uint64_t count) const {
    // Partial words at either end go through one word's digits; the whole words between them
    // are unpacked straight into the output by the vector kernels of the digit-file layer.
    const uint64_t per_word = digits_per_word();
    char word_digits[19];
    auto partial = [&](uint64_t p, uint64_t take, char* out) {
        unpack_digits(radix_, &words_[p / per_word], word_digits, 1);
        std::copy(word_digits + p % per_word, word_digits + p % per_word + take, out);
    };
    uint64_t done = 0;
    if (position % per_word != 0 && count > 0) {
        done = std::min(per_word - position % per_word, count);
        partial(position, done, raw);
    }
    const uint64_t whole = (count - done) / per_word;
    if (whole > 0) {
        unpack_digits(radix_, &words_[(position + done) / per_word], raw + done, whole);
        done += whole * per_word;
    }
    if (done < count) partial(position + done, count - done, raw + done);
}

void FloatWriterB::write(uint64_t block_digits) {
    if (sink_ == nullptr) return;
    Console::println(radix_ == 10 ? "Writing Decimal Digits" : "Writing Hexadecimal Digits");
    std::vector<char> block(std::min(block_digits, std::max<uint64_t>(digits_output_, 1)));
    for (uint64_t pos = 0; pos < digits_output_; pos += block.size()) {
        const uint64_t count = std::min<uint64_t>(block.size(), digits_output_ - pos);
        digits(block.data(), pos, count);
        sink_->store_digits(block.data(), pos, count);
    }
}

void FloatWriterB::stat_digits(DigitCounts& counts, DigitHash& hash) const {
    std::vector<char> block(std::min<uint64_t>(uint64_t(1) << 20, std::max<uint64_t>(digits_output_, 1)));
    for (uint64_t pos = 0; pos < digits_output_; pos += block.size()) {
        const uint64_t count = std::min<uint64_t>(block.size(), digits_output_ - pos);
        digits(block.data(), pos, count);
        counts.push(block.data(), count);
        hash.push(block.data(), count);
    }
}

void FloatWriterB::stat_dec_digits(DigitCounts& counts, DigitHash& hash) const {
    if (radix_ != 10 || counts.radix() != 10 || hash.radix() != 10)
        throw InvalidParametersException("FloatWriterB::stat_dec_digits()", "Invalid radix.");
    stat_digits(counts, hash);
}

void FloatWriterB::stat_hex_digits(DigitCounts& counts, DigitHash& hash) const {
    if (radix_ != 16 || counts.radix() != 16 || hash.radix() != 16)
        throw InvalidParametersException("FloatWriterB::stat_hex_digits()", "Invalid radix.");
    stat_digits(counts, hash);
}

}  // namespace qmp
