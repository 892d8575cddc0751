// The part of every file object that does not depend on how bytes move: its path, whether it
// is open, and renaming. rename(new_path) closes the file, removes an existing file of the new
// name, renames, and reopens through the derived class without truncating. Failures raise
// qmp::FileIO::FileException at "BaseFile::rename()"; a failed removal or rename reopens the
// file under its old name first, so the object stays usable.
#pragma once

#include <cstdint>
#include <string>

namespace qmp {

class BaseFile {
public:
    explicit BaseFile(std::string path) : path_(std::move(path)) {}
    virtual ~BaseFile() = default;
    BaseFile(const BaseFile&) = delete;
    BaseFile& operator=(const BaseFile&) = delete;

    const std::string& path() const noexcept { return path_; }
    bool is_open() const noexcept { return open_; }

    // The file's current size in bytes (the file must be open).
    virtual uint64_t size_bytes() const = 0;
    // Closes the file; closing a closed file does nothing.
    virtual void close() = 0;
    // Renames the open file to new_path, replacing any file of that name ("File isn't open."
    // when closed). Afterwards path() is new_path and the file is open again.
    void rename(const std::string& new_path);

protected:
    // Opens path() again for the same kind of access, keeping the contents; throws on failure.
    virtual void reopen() = 0;
    void set_open(bool open) noexcept { open_ = open; }

private:
    // Best-effort reopening under the old name after a failed rename; the rename's own error is
    // the one reported.
    void try_reopen() noexcept;

    std::string path_;
    bool open_ = false;
};

}  // namespace qmp
