// Digit files of a computation, and their read-back check.
#include "app/compute/digit_output.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/digitfiles/digit_verify.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/digitfiles/qcd_set_writer.h"
#include "qmp/digitfiles/text_reader.h"
#include "qmp/digitfiles/text_writer.h"
#include "qmp/exception.h"

namespace qv {
namespace {

constexpr const char* kFunction = "DigitOutput::write()";

// Digits that failed their read-back go back under their working names, so that no file
// under a final name holds digits that were not confirmed; then the failure goes on up.
// Test hook: with QMP_TEST_CORRUPT_WRITTEN_FILE set, the last byte of a finished file is
// changed before it is read back ('0'..'8' of a text file become the next digit, '9' becomes
// '0'; a compressed file's last byte has its low bit flipped, which keeps it a valid word).
void corrupt_written_file_for_test(const std::string& path, bool text) {
    const char* hook = std::getenv(kCorruptWrittenFileVariable);
    if (hook == nullptr || *hook == '\0') return;
    std::FILE* f = std::fopen(path.c_str(), "r+b");
    if (f == nullptr) return;
    if (std::fseek(f, -1, SEEK_END) == 0) {
        const int c = std::fgetc(f);
        const int changed = text ? (c == '9' ? '0' : c + 1) : (c ^ 1);
        std::fseek(f, -1, SEEK_END);
        std::fputc(changed, f);
    }
    std::fclose(f);
}

template <typename Check>
void read_back_or_demote(const std::vector<std::string>& final_paths, const std::vector<std::string>& working_paths,
                         Check&& check) {
    try {
        check();
    } catch (...) {
        for (size_t i = 0; i < final_paths.size(); ++i) std::rename(final_paths[i].c_str(), working_paths[i].c_str());
        throw;
    }
}

class StdoutSink : public qmp::DigitSink {
public:
    explicit StdoutSink(uint32_t radix) : radix_(radix) {}
    void store_digits(const char* raw, uint64_t, uint64_t count) override {
        static const char kChars[] = "0123456789abcdef";
        std::string text(count, '0');
        for (uint64_t i = 0; i < count; ++i) text[i] = kChars[uint8_t(raw[i]) % radix_];
        std::fwrite(text.data(), 1, text.size(), stdout);
    }

private:
    uint32_t radix_;
};

}  // namespace

std::vector<std::string> write_digit_output(qmp::FloatWriterB& writer, ForwardingSink& forward, uint64_t digits,
                                            const DigitOutputSettings& output, const std::string& constant_name,
                                            const std::string& algorithm_name, bool read_back) {
    const uint32_t radix = writer.radix();
    const std::string first_digits = std::to_string(writer.integer_part()) + ".";
    const std::string base = qmp::digit_file_base_name(constant_name, radix, algorithm_name);

    if (output.writer == "stdout") {
        // Straight from the converted words: the digits stay one unbroken line of the output.
        std::fflush(stdout);
        std::fputs(first_digits.c_str(), stdout);
        StdoutSink sink(radix);
        constexpr uint64_t kBlock = uint64_t(1) << 20;
        std::vector<char> raw(std::min(digits, kBlock));
        for (uint64_t at = 0; at < digits; at += kBlock) {
            const uint64_t n = std::min(kBlock, digits - at);
            writer.digits(raw.data(), at, n);
            sink.store_digits(raw.data(), at, n);
        }
        std::fputs("\n", stdout);
        std::fflush(stdout);
        return {};
    }

    std::vector<std::string> files;
    if (output.extension == "txt") {
        const std::string path = qmp::join_path(output.path, base + ".txt");
        qmp::Console::println("Writing " + path);
        qmp::BasicTextWriter file(path, first_digits, radix, digits, output.files.raw_io);
        qmp::DigitStatsSink stats(file, radix);
        forward.target = &stats;
        writer.write();
        forward.target = nullptr;
        if (!file.close()) throw qmp::AlgorithmFailedException(kFunction, "Digit file is incomplete: " + path);
        files.push_back(path);
        if (read_back) {
            qmp::Console::println("Verifying " + path);
            corrupt_written_file_for_test(path, true);
            read_back_or_demote(files, {qmp::TextWriter::working_path_for(path)}, [&] {
                qmp::BasicTextReader reader(path, radix);
                qmp::verify_written_digits(reader, 0, digits, stats.counts(), stats.hash(), path);
            });
        }
        return files;
    }

    qmp::Console::println("Writing " + qmp::join_path(output.path, base) + " (.qcd)");
    qmp::BasicQcdSetWriter set(output.path, base, first_digits, radix, output.files.digits_per_file, digits,
                               output.files.raw_io);
    qmp::DigitStatsSink stats(set, radix);
    forward.target = &stats;
    writer.write();
    forward.target = nullptr;
    files = set.file_paths();
    if (!set.close() || files.empty())
        throw qmp::AlgorithmFailedException(kFunction, "Digit file set is incomplete: " + base);
    if (read_back) {
        qmp::Console::println("Verifying " + qmp::join_path(output.path, base) + " (.qcd)");
        corrupt_written_file_for_test(files.back(), false);
        std::vector<std::string> working;
        for (uint64_t id = 0; id < files.size(); ++id)
            working.push_back(qmp::join_path(output.path, qmp::qcd_working_name(base, id)));
        read_back_or_demote(files, working, [&] {
            qmp::BasicQcdSetReader reader(files.front());
            qmp::verify_written_digits(reader, 0, digits, stats.counts(), stats.hash(), base);
        });
    }
    return files;
}

}  // namespace qv
