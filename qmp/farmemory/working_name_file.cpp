// The commit and abandon paths of WorkingNameFile. Commit order: size, fdatasync, rename,
// close; abandon: close, then remove (unless kept) even when the close failed; when both
// fail, the removal error is the one thrown, as the file left behind matters more.
#include "qmp/farmemory/working_name_file.h"

#include "qmp/farmemory/posix_errors.h"

#include <cerrno>
#include <exception>
#include <string>

#include <unistd.h>

namespace qmp {

namespace {
std::string working_name(const std::string& final_path, std::string working_path) {
    return working_path.empty() ? final_path + WorkingNameFile::default_suffix : working_path;
}
}  // namespace

WorkingNameFile::WorkingNameFile(std::string final_path, bool raw_io, uint8_t alignment_k,
                                 OnAbandon on_abandon, std::string working_path)
    : final_path_(std::move(final_path)),
      working_path_(working_name(final_path_, std::move(working_path))),
      on_abandon_(on_abandon),
      file_(working_path_, RawFile::OpenMode::Create, raw_io, alignment_k) {}

WorkingNameFile::~WorkingNameFile() {
    try {
        abandon();
    } catch (const std::exception& e) {
        FileIO::report_destruction_error(e);
    }
}

AlignedAccessFile& WorkingNameFile::file() {
    if (committed_ || abandoned_) {
        FileIO::throw_file_error("WorkingNameFile::file()", working_path_, "File isn't open.");
    }
    return file_;
}

void WorkingNameFile::commit(std::optional<uint64_t> final_size) {
    static const char* const place = "WorkingNameFile::commit()";
    if (committed_) FileIO::throw_file_error(place, final_path_, "File has already been committed.");
    if (abandoned_) FileIO::throw_file_error(place, working_path_, "File isn't open.");
    if (final_size) file_.set_size(*final_size);
    // The data reaches the device before the name does: after a crash the final name holds
    // either the previous complete file or the new complete one.
    file_.sync();
    try {
        file_.rename(final_path_);
    } catch (...) {
        // The rename itself happened when only the reopening failed; the file is then complete
        // under its final name and must not be removed as abandoned.
        if (file_.path() == final_path_) committed_ = true;
        throw;
    }
    committed_ = true;
    file_.close();
}

void WorkingNameFile::abandon() {
    if (committed_ || abandoned_) return;
    abandoned_ = true;
    // A failed close must not keep the half-written file from being removed.
    std::exception_ptr close_error;
    try {
        file_.close();
    } catch (...) {
        close_error = std::current_exception();
    }
    if (on_abandon_ == OnAbandon::Remove && ::unlink(working_path_.c_str()) != 0 &&
        errno != ENOENT) {
        FileIO::throw_system_error("WorkingNameFile::abandon()", working_path_, errno,
                                   "Unable to remove the working file.");
    }
    if (close_error) std::rethrow_exception(close_error);
}

}  // namespace qmp
