// The digit viewer: opens a ".txt" digit file or a compressed ".qcd" set (by the path of any
// one of its files) and offers, in a menu, to view a range of digits, compute their counts and
// hash, extract them to a text file, recompress them, and (for sets) add directories where the
// set's files are looked for. Positions shown to the user count from 1, the first digit after
// the point. A task that fails prints its error and returns to the menu; a path without an
// extension ("No Extension found.") or with an unknown one ("Unrecognized Extension: .ext")
// fails at "Menu_DigitViewer()". The end of standard input at any prompt ends the viewer.
#pragma once

#include "qmp/digitfiles/digit_reader.h"

#include <memory>
#include <string>

namespace qv {

inline constexpr const char* kDigitViewerTitle = "quorvalith Digit Viewer v2.5.314";

// Opens the reader that a path's extension names.
std::unique_ptr<qmp::DigitReader> open_digit_source(const std::string& path);

// Runs the viewer on `path`, asking for one when it is empty.
void run_digit_viewer(std::string path);

// The tasks of the menu (digit_viewer_tasks.cpp); `source_dir` is the default destination.
namespace viewer {
inline constexpr uint64_t kMinCompressDigits = 100;
inline constexpr uint64_t kMinDigitsPerFile = 100;
inline constexpr uint64_t kMaxViewDigits = 100000;

void view_range(qmp::DigitReader& reader);
void compute_stats(qmp::DigitReader& reader);
void extract_to_text(qmp::DigitReader& reader, const std::string& source_dir, const std::string& source_name);
void compress_all(qmp::DigitReader& reader, const std::string& source_dir);
void compress_subset(qmp::DigitReader& reader, const std::string& source_dir);
}  // namespace viewer

}  // namespace qv
