// The benchmark validation file: a ValidationRecord laid out as "\r\n"-ended text, field by
// field in a fixed order (labels from validation_labels.h), with blank lines between groups,
// and sealed by the two checksum lines (seal.h). write_validation_file() writes it under the
// working name "<path>.tmp" and renames it to `path` only when every byte is on disk; failures
// raise qmp::FileIO::FileException under "ValidationFile::write()".
#pragma once

#include "app/report/validation_record.h"

#include <string>

namespace qv {

// The text above the seal.
std::string render_validation_body(const ValidationRecord& record);
// The whole file: the body followed by its seal.
std::string render_validation_file(const ValidationRecord& record);
void write_validation_file(const std::string& path, const ValidationRecord& record);

// Seconds as written in the file: three decimals, then " seconds".
std::string format_seconds(double seconds);

}  // namespace qv
