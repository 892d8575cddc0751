#include "qmp/digitfiles/digit_verify.h"

#include "qmp/exception.h"

namespace qmp {

void DigitStatsSink::store_digits(const char* raw, uint64_t position, uint64_t count) {
    // The writer refuses bad digits with its own message; count and hash only what it took.
    target_.store_digits(raw, position, count);
    counts_.push(raw, count);
    hash_.push(raw, count);
}

void verify_written_digits(DigitReader& reader, uint64_t start, uint64_t count, const DigitCounts& counts,
                           const DigitHash& hash, const std::string& name) {
    static const char* const place = "verify_written_digits()";
    DigitCounts read_counts(counts.radix());
    DigitHash read_hash(hash.radix());
    try {
        reader.load_stats(read_counts, read_hash, start, start + count);
    } catch (const Exception& e) {
        throw AlgorithmFailedException(place, "Digit output verification failed: \"" + name +
                                                  "\" could not be read back.\n" + e.message());
    }
    if (!(read_counts == counts) || read_hash.value() != hash.value()) {
        throw AlgorithmFailedException(place, "Digit output verification failed: the digits read back from \"" +
                                                  name + "\" differ from the digits written.");
    }
}

}  // namespace qmp
