// The digit viewer's opening and its menu. The menu for a compressed set lists all six tasks;
// a text file gets the ones that apply to it (no extraction to text, no search directories),
// under the same numbers.
#include "app/digit_viewer.h"

#include "app/prompt.h"
#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/digitfiles/qcd_set_reader.h"
#include "qmp/digitfiles/text_reader.h"
#include "qmp/exception.h"

#include <vector>

namespace qv {

namespace {

using qmp::Console::Colour;

std::string extension_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
    return path.substr(dot);
}

std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string stem_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

// A pasted path often arrives quoted or with trailing blanks.
std::string clean_path(std::string path) {
    while (!path.empty() && (path.back() == ' ' || path.back() == '\r' || path.back() == '\t')) path.pop_back();
    while (!path.empty() && path.front() == ' ') path.erase(0, 1);
    if (path.size() >= 2 && path.front() == '"' && path.back() == '"') path = path.substr(1, path.size() - 2);
    return path;
}

struct MenuEntry {
    int number;
    std::string text;
};

void run_task(const MenuEntry& entry, qmp::DigitReader& reader, qmp::BasicQcdSetReader* set,
              const std::string& dir, const std::string& name) {
    switch (entry.number) {
        case 1: return viewer::view_range(reader);
        case 2: return viewer::compute_stats(reader);
        case 3: return viewer::extract_to_text(reader, dir, name);
        case 4: return viewer::compress_all(reader, dir);
        case 5: return viewer::compress_subset(reader, dir);
        default: set->add_search_directory(clean_path(prompt_line("\nEnter directory: ")));
    }
}

}  // namespace

std::unique_ptr<qmp::DigitReader> open_digit_source(const std::string& path) {
    const std::string ext = extension_of(path);
    if (ext.empty()) throw qmp::InvalidParametersException("Menu_DigitViewer()", "No Extension found.");
    if (ext == ".txt") return std::make_unique<qmp::BasicTextReader>(path);
    if (ext == ".qcd") return std::make_unique<qmp::BasicQcdSetReader>(path);
    throw qmp::InvalidParametersException("Menu_DigitViewer()", "Unrecognized Extension: " + ext);
}

void run_digit_viewer(std::string path) {
    qmp::Console::println(kDigitViewerTitle, Colour::Header);
    qmp::Console::println();
    if (path.empty()) {
        qmp::Console::println("Enter the path of the file (include .txt or .qcd extensions):", Colour::Prompt);
        path = prompt_line("");
    }
    path = clean_path(path);
    std::unique_ptr<qmp::DigitReader> reader = open_digit_source(path);
    auto* set = dynamic_cast<qmp::BasicQcdSetReader*>(reader.get());
    const std::string dir = directory_of(path);
    const std::string name = set != nullptr ? set->base_name() : stem_of(path);

    std::vector<MenuEntry> entries = {{1, "View a small range of digits."}, {2, "Compute Stats (Digit Counts + Hash)."}};
    if (set != nullptr) entries.push_back({3, "Extract digits into a .txt file."});
    entries.push_back({4, "Compress digits 1 - N into one or more .qcd files."});
    entries.push_back({5, "Compress a subset of digits into .qcd files."});
    if (set != nullptr) entries.push_back({6, "Add search directory. (if .qcd files are in multiple paths)"});

    for (;;) {
        qmp::Console::println(set != nullptr ? "\n\nCompressed Digit File" : "\n\nText File", Colour::Header);
        qmp::Console::print("Digits after Decimal Place: ", Colour::Label);
        const uint64_t total = set != nullptr ? set->total_digits()
                               : static_cast<qmp::BasicTextReader*>(reader.get())->has_decimal_point() ? reader->total_digits()
                                                                                                       : 0;
        qmp::Console::println(total != 0 ? qmp::format_with_commas(total) : "Unknown - Extended File Format", Colour::Value);
        if (set != nullptr) {
            qmp::Console::print("Digits per File: ", Colour::Label);
            qmp::Console::println(qmp::format_with_commas(set->digits_per_file()), Colour::Value);
        }
        qmp::Console::println();
        qmp::Console::println("What would you like to do?\n", Colour::Header);
        for (const MenuEntry& e : entries) {
            qmp::Console::println("  " + std::to_string(e.number) + "   " + e.text, Colour::Label);
        }
        const MenuEntry* chosen = nullptr;
        while (chosen == nullptr) {
            const int64_t choice = prompt_integer("\nEnter your choice: ", entries.front().number, entries.back().number);
            for (const MenuEntry& e : entries) {
                if (e.number == choice) chosen = &e;
            }
            if (chosen == nullptr) qmp::Console::println("That choice is not available for this file.", Colour::Warning);
        }
        qmp::Console::println();
        try {
            run_task(*chosen, *reader, set, dir, name);
        } catch (const qmp::Exception& e) {
            e.print();
        }
    }
}

}  // namespace qv
