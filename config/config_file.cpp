// Loading a configuration file by its path: the extension of the file name picks the syntax
// ("cfg" or "json"); a name without any extension is read as "<path>.cfg". The file is read
// whole into memory before parsing. A file that cannot be opened or read throws
// qmp::FileIO::FileException naming the path and the system's reason; an unknown extension
// throws qmp::InvalidParametersException "Extension must be .cfg or .json.".
#include "config/config_object.h"

#include "qmp/exception.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace qmp {

namespace {

constexpr const char* kFunction = "ConfigObject::parse_using_extension()";

std::string system_reason(int error) {
    std::string reason = std::strerror(error);
    reason += ".";
    return reason;
}

std::string read_whole_file(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw FileIO::FileException(kFunction, path, "Unable to open file: " + system_reason(errno));
    }
    std::string text;
    char block[65536];
    while (true) {
        ssize_t got = ::read(fd, block, sizeof(block));
        if (got < 0) {
            if (errno == EINTR) continue;
            int error = errno;
            ::close(fd);
            throw FileIO::FileException(kFunction, path,
                                        "Unable to read file: " + system_reason(error));
        }
        if (got == 0) break;
        text.append(block, uint64_t(got));
    }
    ::close(fd);
    return text;
}

}  // namespace

ConfigObject parse_using_extension(const std::string& path) {
    // The extension is looked for in the last path component only, so "jobs.d/pi" has none,
    // and a leading dot of the file name (".settings") does not start one. A trailing dot
    // ("settings.") leaves an empty extension, which counts as none: only a non-empty
    // extension other than "cfg" or "json" is refused. Either way ".cfg" is appended.
    uint64_t name_start = path.rfind('/');
    name_start = name_start == std::string::npos ? 0 : name_start + 1;
    uint64_t dot = path.rfind('.');
    std::string extension;
    if (dot != std::string::npos && dot > name_start) extension = path.substr(dot + 1);
    if (extension.empty()) return parse_cfg(read_whole_file(path + ".cfg"));
    if (extension == "cfg") return parse_cfg(read_whole_file(path));
    if (extension == "json") return parse_json(read_whole_file(path));
    throw InvalidParametersException(kFunction, "Extension must be .cfg or .json.");
}

}  // namespace qmp
