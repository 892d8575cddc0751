// Renaming an open file: close, remove the target, rename, reopen. On a failure before the
// rename took place the file is reopened under its old name, so a failed rename never leaves
// the caller with a closed file it did not close.
#include "qmp/farmemory/base_file.h"

#include "qmp/farmemory/posix_errors.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace qmp {

void BaseFile::try_reopen() noexcept {
    try {
        reopen();
    } catch (const std::exception&) {
        // The object stays closed; the caller already has the error that matters.
    }
}

void BaseFile::rename(const std::string& new_path) {
    static const char* const place = "BaseFile::rename()";
    if (!open_) FileIO::throw_file_error(place, path_, "File isn't open.");
    close();

    // The target is removed first so that the rename cannot fail on systems or file kinds where
    // replacing is refused, and so a failure to remove is reported as what it is.
    struct stat target;
    if (::lstat(new_path.c_str(), &target) == 0 && new_path != path_) {
        if (::unlink(new_path.c_str()) != 0) {
            const int errnum = errno;
            try_reopen();
            FileIO::throw_system_error(
                place, new_path, errnum,
                "Unable to rename file because the existing one can't be deleted.");
        }
    }
    if (std::rename(path_.c_str(), new_path.c_str()) != 0) {
        const int errnum = errno;
        try_reopen();
        FileIO::throw_system_error(place, path_, errnum, "Unable to rename file.");
    }
    path_ = new_path;
    reopen();
}

}  // namespace qmp
