// Sends the converted digits of a FloatWriterB to the job's output: a ".txt" file, a ".qcd"
// set or the standard output, named "<Constant> - Dec|Hex - <Algorithm>" in the output
// directory. Files are written under working names and renamed only when complete; with
// `read_back` set, every file is read back and its digit counts and hash compared with what
// was sent (AlgorithmFailedException from verify_written_digits() on a mismatch), and files
// that fail it are renamed back to their working names.
// A writer must be built with a ForwardingSink so that no file exists before the digits have
// passed their checks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/compute/compute_settings.h"
#include "qmp/digitfiles/digit_sink.h"
#include "qmp/radix/float_writer.h"

namespace qv {

// A sink whose target is chosen after the writer that feeds it was made.
class ForwardingSink : public qmp::DigitSink {
public:
    qmp::DigitSink* target = nullptr;
    void store_digits(const char* raw, uint64_t position, uint64_t count) override {
        if (target != nullptr) target->store_digits(raw, position, count);
    }
};

// Test hook (see digit_output.cpp): corrupts a written file before its read-back.
inline constexpr const char* kCorruptWrittenFileVariable = "QMP_TEST_CORRUPT_WRITTEN_FILE";

// Writes digits [0, digits) of `writer` (whose sink is `forward`); returns the final paths.
std::vector<std::string> write_digit_output(qmp::FloatWriterB& writer, ForwardingSink& forward, uint64_t digits,
                                            const DigitOutputSettings& output, const std::string& constant_name,
                                            const std::string& algorithm_name, bool read_back);

}  // namespace qv
