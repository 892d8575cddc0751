// A file written under a working name and given its final name only when the writer says it is
// complete, so that a crash or an error never leaves a half-written file under the final name.
// The working name is the final path plus ".tmp" unless the caller names another (the digit
// files use their own " (incomplete)" form). commit() sets the final size if asked, forces the
// data to the device, renames (replacing an existing final file) and closes. Destruction
// without a commit closes the file and, by default, removes it; OnAbandon::Keep leaves it
// under the working name for inspection or resumption. Errors on the destruction path are
// reported, never thrown.
#pragma once

#include "qmp/farmemory/aligned_access_file.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qmp {

class WorkingNameFile {
public:
    enum class OnAbandon { Remove, Keep };
    static constexpr const char* default_suffix = ".tmp";

    // Creates (truncating) the working file. An empty working_path means final_path + ".tmp".
    WorkingNameFile(std::string final_path, bool raw_io,
                    uint8_t alignment_k = AlignedAccessFile::default_alignment_k,
                    OnAbandon on_abandon = OnAbandon::Remove, std::string working_path = {});
    ~WorkingNameFile();
    WorkingNameFile(const WorkingNameFile&) = delete;
    WorkingNameFile& operator=(const WorkingNameFile&) = delete;

    const std::string& final_path() const noexcept { return final_path_; }
    const std::string& working_path() const noexcept { return working_path_; }
    bool committed() const noexcept { return committed_; }

    // The file being written, for load/store/set_size. Valid until commit() or abandon().
    AlignedAccessFile& file();

    // Completes the file (see above); "File has already been committed." on a second call.
    void commit(std::optional<uint64_t> final_size = std::nullopt);
    // Gives up now: closes and applies the OnAbandon rule. Does nothing after a commit.
    void abandon();

private:
    std::string final_path_;
    std::string working_path_;
    OnAbandon on_abandon_;
    bool committed_ = false;
    bool abandoned_ = false;
    AlignedAccessFile file_;
};

}  // namespace qmp
