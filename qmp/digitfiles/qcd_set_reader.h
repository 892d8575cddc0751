// BasicQcdSetReader: a compressed digit set opened from the path of any one of its files,
// "<dir>/<base> - <id>.qcd" ("File name is too short." under 4 characters, "Invalid
// Extension" without ".qcd", "File name does not end in a file number." without " - <id>").
// Files are loaded on demand from the file's own directory, then from the added search
// directories, and each is checked against the first one loaded: any difference in version,
// radix, digits per file, digits per word or total, a header id that differs from the id in the
// name, or an id loaded twice is DigitViewer2::InconsistentMetaData ("Inconsistent Metadata:
// \"<path>\"\n<what differs>"); a file found nowhere is "Unable to open file #<id>".
// make_commands() lists the files that serve a digit range: a range past a nonzero total is
// "This digit stream does not have enough digits."; missing files are listed on the console
// under "The following needed files are missing or inaccessible:" and then refused with
// "Missing required files.".
#pragma once

#include "qmp/digitfiles/digit_reader.h"
#include "qmp/digitfiles/qcd_file_reader.h"
#include "qmp/exception.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace qmp {

namespace DigitViewer2 {
class InconsistentMetaData : public Exception {
public:
    using Exception::Exception;
    const char* type_name() const noexcept override { return "DigitViewer2::InconsistentMetaData"; }
};
}  // namespace DigitViewer2

class BasicQcdSetReader : public DigitReader {
public:
    // One piece of a digit range: the digits [start, end) read from file `file_id`.
    struct Command {
        uint64_t file_id;
        uint64_t start;
        uint64_t end;
    };

    explicit BasicQcdSetReader(const std::string& path);

    const std::string& base_name() const noexcept { return base_name_; }
    void add_search_directory(const std::string& directory) { directories_.push_back(directory); }
    BasicQcdFileReader& load_file(uint64_t file_id);
    std::vector<Command> make_commands(uint64_t start, uint64_t end);

    uint64_t digits_per_file() const noexcept { return reference().digits_per_file(); }
    uint32_t radix() const override { return reference().radix(); }
    std::string first_digits() const override { return reference().first_digits(); }
    uint64_t total_digits() const override { return reference().total_digits(); }
    void load_digits(char* raw, uint64_t start, uint64_t count) override;

private:
    const BasicQcdFileReader& reference() const { return *files_.at(first_id_); }
    void check_consistent(const BasicQcdFileReader& file, uint64_t id_in_name) const;
    std::string file_name(uint64_t id) const;

    std::string base_name_;                 // file name without " - <id>.qcd", no directory
    std::vector<std::string> directories_;  // the first one is the opened file's own
    uint64_t first_id_ = 0;
    std::map<uint64_t, std::unique_ptr<BasicQcdFileReader>> files_;
};

}  // namespace qmp
