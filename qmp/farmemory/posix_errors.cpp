// errno -> fixed text, and the raising of system-call failures as FileException with the
// errno number and the C library's own text beside the fixed one.
#include "qmp/farmemory/posix_errors.h"

#include "qmp/console.h"
#include "qmp/exception.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>

namespace qmp::FileIO {

const char* posix_error_text(int errnum) {
    switch (errnum) {
        case ENOENT: return "Path does not exist.";
        case EIO: return "Hardware Error";
        case ENOMEM: return "Not Enough Memory";
        case EACCES: return "Access Denied";
        case EINVAL: return "Invalid parameter. This can happen if the sector alignment is too small.";
        case EMFILE: return "Too many open files. Try increasing the ulimit for file handles.";
        case ENOSPC: return "Disk is Full";
        default: return "Unknown POSIX or runtime error.";
    }
}

std::string system_error_message(const std::string& step, int errnum) {
    std::string message;
    if (!step.empty()) message = step + "\n";
    // strerror_r in its GNU form returns the text, possibly in a static buffer of its own.
    char buffer[128];
    const char* library_text = strerror_r(errnum, buffer, sizeof buffer);
    message += "Error Code: " + std::to_string(errnum) + " (" + library_text + ")\n";
    message += posix_error_text(errnum);
    return message;
}

void throw_system_error(const char* place, const std::string& path, int errnum,
                        const std::string& step) {
    throw FileException(place, path, system_error_message(step, errnum));
}

void throw_file_error(const char* place, const std::string& path, const std::string& message) {
    throw FileException(place, path, message);
}

void report_destruction_error(const std::exception& e) noexcept {
    try {
        if (const auto* qe = dynamic_cast<const qmp::Exception*>(&e)) {
            qe->print();
        } else {
            Console::println(e.what(), Console::Colour::Error);
        }
        Console::println("Exception thrown on destruction path.", Console::Colour::Error);
        EventLog::append(e.what());
        EventLog::append("Exception thrown on destruction path.");
    } catch (...) {
        // Printing itself failed (out of memory); nothing more can be done in a destructor.
    }
}

}  // namespace qmp::FileIO
