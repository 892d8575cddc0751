// The digit viewer's tasks. Every task reads its digits through the DigitReader in blocks of
// a million, so a task over billions of digits runs in constant memory. Recompression writes
// through a statistics tee and reads the new files back before it reports success.
#include "app/digit_viewer.h"

#include "app/prompt.h"
#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/digitfiles/digit_verify.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/digitfiles/qcd_set_writer.h"
#include "qmp/digitfiles/text_reader.h"
#include "qmp/digitfiles/text_writer.h"
#include "qmp/exception.h"

#include <algorithm>
#include <vector>

namespace qv::viewer {

namespace {

using qmp::format_with_commas;
using qmp::Console::Colour;

constexpr uint64_t kBlockDigits = uint64_t(1) << 20;
constexpr int64_t kLargest = int64_t(1) << 62;

void line(const std::string& label, const std::string& value) {
    qmp::Console::print(label, Colour::Label);
    qmp::Console::println(value, Colour::Value);
}

// Positions from 1, asked as "Starting Digit: " / "Ending Digit:   "; the reader refuses what it lacks.
struct Range {
    uint64_t first;  // 1-based, inclusive
    uint64_t last;
    uint64_t count() const { return last - first + 1; }
};

Range ask_range() {
    const int64_t first = prompt_integer("Starting Digit: ", 1, kLargest);
    const int64_t last = prompt_integer("Ending Digit:   ", first, kLargest);
    return {uint64_t(first), uint64_t(last)};
}

char digit_char(char d) { return char(d < 10 ? '0' + d : 'a' + d - 10); }

std::string destination_dir(const std::string& source_dir) {
    const std::string dir = prompt_line("\nEnter the destination path (SPACE for default):\n");
    const bool blank = std::all_of(dir.begin(), dir.end(), [](char c) { return c == ' ' || c == '\r'; });
    return blank ? source_dir : dir;
}

// A name for the new files; blanks around it are dropped and an empty one is asked again.
std::string ask_name() {
    for (;;) {
        std::string name = prompt_line("Enter a name for the digits:\n");
        while (!name.empty() && (name.back() == ' ' || name.back() == '\r' || name.back() == '\t')) name.pop_back();
        while (!name.empty() && name.front() == ' ') name.erase(0, 1);
        if (!name.empty()) return name;
    }
}

// Copies digits [start, end) (0-based) from the reader to a sink in blocks.
void copy_digits(qmp::DigitReader& reader, qmp::DigitSink& sink, uint64_t start, uint64_t end) {
    std::vector<char> block(std::min(kBlockDigits, end - start));
    for (uint64_t p = start; p < end;) {
        const uint64_t n = std::min<uint64_t>(block.size(), end - p);
        reader.load_digits(block.data(), p, n);
        sink.store_digits(block.data(), p, n);
        p += n;
    }
}

std::string integer_part(const qmp::DigitReader& reader) {
    const std::string first = reader.first_digits();
    const size_t point = first.find('.');
    return point == std::string::npos ? first + "." : first.substr(0, point + 1);
}

// Writes digits [start, end) of a stream of `total` digits as a set and reads them back.
void write_set(qmp::DigitReader& reader, const std::string& dir, const std::string& name, uint64_t per_file,
               uint64_t total, uint64_t start, uint64_t end) {
    qmp::BasicQcdSetWriter writer(dir, name, reader.first_digits(), reader.radix(), per_file, total);
    qmp::DigitStatsSink tee(writer, reader.radix());
    copy_digits(reader, tee, start, end);
    std::unique_ptr<qmp::BasicQcdSetReader> written = writer.close_and_get_basic_reader();
    qmp::verify_written_digits(*written, start, end - start, tee.counts(), tee.hash(),
                               qmp::join_path(dir, name));
    line("Files written: ", std::to_string(writer.file_paths().size()));
    for (const std::string& p : writer.file_paths()) qmp::Console::println("    " + p, Colour::Value);
}

}  // namespace

void view_range(qmp::DigitReader& reader) {
    const Range r = ask_range();
    if (r.count() > kMaxViewDigits) {
        qmp::Console::println("Please select at most " + format_with_commas(kMaxViewDigits) + " digits.", Colour::Warning);
        return;
    }
    std::vector<char> digits(r.count());
    try {
        reader.load_digits(digits.data(), r.first - 1, r.count());
    } catch (const qmp::Exception&) {
        qmp::Console::println("This range of digits is not accessible.", Colour::Error);
        return;
    }
    // Rows of 50 digits in groups of 10, each row followed by the position of its last digit.
    qmp::Console::println();
    std::string row;
    for (uint64_t i = 0; i < digits.size(); ++i) {
        row += digit_char(digits[i]);
        const uint64_t position = r.first + i;
        const bool row_end = (i + 1) % 50 == 0 || i + 1 == digits.size();
        if (!row_end && (i + 1) % 10 == 0) row += ' ';
        if (row_end) {
            qmp::Console::print(row, Colour::Value);
            qmp::Console::println("  :  " + format_with_commas(position), Colour::Label);
            row.clear();
        }
    }
}

void compute_stats(qmp::DigitReader& reader) {
    if (auto* text = dynamic_cast<qmp::BasicTextReader*>(&reader); text != nullptr && !text->has_decimal_point()) {
        throw qmp::InvalidParametersException("compute_stats()", "No decimal place found.");
    }
    const Range r = ask_range();
    qmp::Console::println();
    qmp::Console::println("Processing " + format_with_commas(r.count()) + " digits...", Colour::Info);
    line("    From: ", format_with_commas(r.first));
    line("    To  : ", format_with_commas(r.last));
    qmp::DigitCounts counts(reader.radix());
    qmp::DigitHash hash(reader.radix());
    reader.load_stats(counts, hash, r.first - 1, r.last);
    qmp::Console::println();
    qmp::Console::println("Digit Counts (" + format_with_commas(r.first) + " - " + format_with_commas(r.last) + ")",
                          Colour::Header);
    for (uint32_t d = 0; d < reader.radix(); ++d) {
        line(std::string("    ") + digit_char(char(d)) + ": ", format_with_commas(counts[d]));
    }
    qmp::Console::println();
    line("Hash(" + format_with_commas(r.first) + " - " + format_with_commas(r.last) + ")  ",
         std::to_string(hash.value()));
    qmp::Console::println();
    qmp::Console::println("Hash(A - B) are the digits from A - B as an integer modulo (2^61 - 1).", Colour::Info);
}

void extract_to_text(qmp::DigitReader& reader, const std::string& source_dir, const std::string& source_name) {
    qmp::Console::println("\n\nExtract to Text File", Colour::Header);
    const Range r = ask_range();
    const std::string dir = destination_dir(source_dir);
    // The range in the name keeps an extract from replacing the file it came from.
    const std::string name = source_name + " (" + std::to_string(r.first) + " - " + std::to_string(r.last) + ").txt";
    const std::string path = qmp::join_path(dir, name);
    qmp::BasicTextWriter writer(path, integer_part(reader), reader.radix(), r.count());
    std::vector<char> block(std::min(kBlockDigits, r.count()));
    for (uint64_t p = 0; p < r.count();) {
        const uint64_t n = std::min<uint64_t>(block.size(), r.count() - p);
        reader.load_digits(block.data(), r.first - 1 + p, n);
        writer.store_digits(block.data(), p, n);
        p += n;
    }
    writer.close();
    line("Written: ", path);
}

void compress_all(qmp::DigitReader& reader, const std::string& source_dir) {
    qmp::Console::println("\n\nWrite to Compressed File", Colour::Header);
    const uint64_t available = reader.total_digits();
    if (available != 0 && available < kMinCompressDigits) {
        qmp::Console::println("Too few digits to compress.", Colour::Error);
        return;
    }
    qmp::Console::println("Starting Digit: 1", Colour::Label);
    int64_t last = 0;
    for (;;) {
        last = prompt_integer("Ending Digit:   ", 1, available != 0 ? int64_t(available) : kLargest);
        if (uint64_t(last) >= kMinCompressDigits) break;
        qmp::Console::println("Please select at least " + format_with_commas(kMinCompressDigits) + " digits.",
                              Colour::Warning);
    }
    int64_t per_file = 0;
    for (;;) {
        per_file = prompt_integer("Digits per file (0 for single file): ", 0, kLargest);
        if (per_file == 0 || uint64_t(per_file) >= kMinDigitsPerFile) break;
        qmp::Console::println("Must be at least " + format_with_commas(kMinDigitsPerFile), Colour::Warning);
    }
    const std::string name = ask_name();
    const std::string dir = destination_dir(source_dir);
    write_set(reader, dir, name, uint64_t(per_file), uint64_t(last), 0, uint64_t(last));
}

void compress_subset(qmp::DigitReader& reader, const std::string& source_dir) {
    qmp::Console::println("\n\nWrite to Compressed File (partial)", Colour::Header);
    const uint64_t available = reader.total_digits();
    if (available != 0 && available < kMinCompressDigits) {
        qmp::Console::println("Too few digits to compress.", Colour::Error);
        return;
    }
    // The subset is a run of whole files of a set of N digits with P digits per file.
    const int64_t total = prompt_integer("Total digits of the set (N): ", int64_t(kMinCompressDigits),
                                         available != 0 ? int64_t(available) : kLargest);
    const int64_t per_file = prompt_integer("Digits per file: ", int64_t(kMinDigitsPerFile), kLargest);
    const uint64_t files = (uint64_t(total) - 1) / uint64_t(per_file) + 1;
    const int64_t first_id = prompt_integer("First file ID: ", 0, kLargest);
    const int64_t last_id = prompt_integer("Last file ID:  ", first_id, kLargest);
    if (uint64_t(first_id) >= files) {
        qmp::Console::println("No Digits to Recompress.", Colour::Warning);
        return;
    }
    const uint64_t start = uint64_t(first_id) * uint64_t(per_file);
    const uint64_t end = std::min<uint64_t>(uint64_t(total), (std::min<uint64_t>(uint64_t(last_id), files - 1) + 1) *
                                                                 uint64_t(per_file));
    line("Digits per file: ", format_with_commas(uint64_t(per_file)));
    line("Writing digits: ", format_with_commas(start + 1) + " - " + format_with_commas(end));
    const std::string name = ask_name();
    const std::string dir = destination_dir(source_dir);
    write_set(reader, dir, name, uint64_t(per_file), uint64_t(total), start, end);
}

}  // namespace qv::viewer
