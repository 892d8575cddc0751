// The fixed texts by which system-call failures are reported, and the helpers that raise them
// as qmp::FileIO::FileException. The message of a system-call failure is
//     "<what failed>\nError Code: <errno> (<C library text>)\n<fixed text>"
// (the first line only when the caller names the step), so the fixed text is always the last
// line: callers and tests can match it exactly while the report still shows the errno number.
#pragma once

#include <string>

namespace qmp::FileIO {

// The fixed text for an errno value; anything outside the table gives
// "Unknown POSIX or runtime error.".
const char* posix_error_text(int errnum);

// The message layout above. `step` may be empty.
std::string system_error_message(const std::string& step, int errnum);

// Throws FileException(place, path, system_error_message(step, errnum)).
[[noreturn]] void throw_system_error(const char* place, const std::string& path, int errnum,
                                     const std::string& step = {});

// Throws FileException(place, path, message) for failures that are not system errors
// ("File isn't open.", "Incomplete Read: 12").
[[noreturn]] void throw_file_error(const char* place, const std::string& path,
                                   const std::string& message);

// Reports an error met while an object is being destroyed: prints the exception and the line
// "Exception thrown on destruction path." and records both in the event log. Never throws.
void report_destruction_error(const std::exception& e) noexcept;

}  // namespace qmp::FileIO
