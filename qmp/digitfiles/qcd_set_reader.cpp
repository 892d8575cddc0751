#include "qmp/digitfiles/qcd_set_reader.h"

#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"

#include <algorithm>

#include <sys/stat.h>

namespace qmp {

namespace {

constexpr const char* kConstruct = "BasicQcdSetReader::BasicQcdSetReader()";

bool is_regular_file(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

BasicQcdSetReader::BasicQcdSetReader(const std::string& path) {
    if (path.size() < 4) throw InvalidParametersException(kConstruct, "File name is too short.");
    if (path.compare(path.size() - 4, 4, ".qcd") != 0) throw InvalidParametersException(kConstruct, "Invalid Extension");
    const std::string stem = path.substr(0, path.size() - 4);
    const size_t dash = stem.rfind(" - ");
    const std::string id_text = dash == std::string::npos ? std::string() : stem.substr(dash + 3);
    if (id_text.empty() || id_text.size() > 19 ||
        !std::all_of(id_text.begin(), id_text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        throw InvalidParametersException(kConstruct, "File name does not end in a file number.");
    }
    const std::string base_path = stem.substr(0, dash);
    const size_t slash = base_path.rfind('/');
    directories_.push_back(slash == std::string::npos ? std::string() : base_path.substr(0, slash + 1));
    base_name_ = slash == std::string::npos ? base_path : base_path.substr(slash + 1);
    first_id_ = std::stoull(id_text);
    auto file = std::make_unique<BasicQcdFileReader>(path);
    files_.emplace(first_id_, std::move(file));
    check_consistent(*files_.at(first_id_), first_id_);
}

std::string BasicQcdSetReader::file_name(uint64_t id) const { return qcd_file_name(base_name_, id); }

void BasicQcdSetReader::check_consistent(const BasicQcdFileReader& f, uint64_t id_in_name) const {
    const BasicQcdFileReader& first = reference();
    const char* problem = nullptr;
    if (f.file_version() != first.file_version()) problem = "File version does not match.";
    else if (f.radix() != first.radix()) problem = "Radix does not match.";
    else if (f.digits_per_file() != first.digits_per_file()) problem = "Digits per file does not match.";
    else if (f.digits_per_word() != first.digits_per_word()) problem = "Digits per word does not match.";
    else if (f.total_digits() != first.total_digits()) problem = "Total digits does not match.";
    else if (f.file_id() != id_in_name) problem = "File id does not match.";
    if (problem != nullptr) {
        throw DigitViewer2::InconsistentMetaData("BasicQcdSetReader::load_file()",
                                                 "Inconsistent Metadata: \"" + f.path() + "\"\n" + problem);
    }
}

BasicQcdFileReader& BasicQcdSetReader::load_file(uint64_t id) {
    static const char* const place = "BasicQcdSetReader::load_file()";
    const auto found = files_.find(id);
    if (found != files_.end()) return *found->second;
    for (const std::string& dir : directories_) {
        const std::string path = join_path(dir, file_name(id));
        if (!is_regular_file(path)) continue;
        auto file = std::make_unique<BasicQcdFileReader>(path);
        check_consistent(*file, id);
        return *files_.emplace(id, std::move(file)).first->second;
    }
    throw InvalidParametersException(place, "Unable to open file #" + std::to_string(id));
}

std::vector<BasicQcdSetReader::Command> BasicQcdSetReader::make_commands(uint64_t start, uint64_t end) {
    static const char* const place = "BasicQcdSetReader::make_commands()";
    std::vector<Command> commands;
    if (start >= end) return commands;
    const uint64_t total = total_digits();
    if (total != 0 && end > total) throw InvalidParametersException(place, "This digit stream does not have enough digits.");
    const uint64_t per_file = digits_per_file();
    std::vector<std::string> missing;
    for (uint64_t id = start / per_file; id <= (end - 1) / per_file; ++id) {
        const uint64_t s = std::max(start, id * per_file), e = std::min(end, (id + 1) * per_file);
        try {
            load_file(id);
        } catch (const InvalidParametersException&) {
            missing.push_back(file_name(id));
            continue;
        }
        commands.push_back({id, s, e});
    }
    if (!missing.empty()) {
        Console::println("The following needed files are missing or inaccessible:", Console::Colour::Error);
        for (const std::string& name : missing) Console::println(name, Console::Colour::Error);
        throw InvalidParametersException(place, "Missing required files.");
    }
    return commands;
}

void BasicQcdSetReader::load_digits(char* raw, uint64_t start, uint64_t count) {
    for (const Command& c : make_commands(start, start + count)) {
        load_file(c.file_id).load_digits(raw + (c.start - start), c.start, c.end - c.start);
    }
}

}  // namespace qmp
