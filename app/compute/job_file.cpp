// Saving and loading computation job files.
#include "app/compute/job_file.h"

#include <cstdio>

#include "app/version.h"
#include "qmp/exception.h"

namespace qv {
namespace {

std::string with_extension(std::string path) {
    const size_t slash = path.find_last_of('/');
    const size_t name_start = slash == std::string::npos ? 0 : slash + 1;
    if (path.find('.', name_start) == std::string::npos) path += ".cfg";
    return path;
}

}  // namespace

std::string job_file_header() {
    return std::string("//  ") + kProgramName + " Configuration File\r\n" +
           "//  Version: " + kProgramVersion + "\r\n" +
           "//  Load this from " + kProgramName + " or run directly:\r\n" +
           "//      " + kProgramName + " config filename.cfg\r\n" +
           "//  If you're copying Windows file paths into here, be sure to replace\r\n"
           "//  all backslashes \"\\\" with forward slashes \"/\". Backslash is an\r\n"
           "//  escape character.\r\n";
}

std::string job_file_text(const ComputeSettings& settings) {
    return job_file_header() + qmp::write_cfg(settings.to_config(), true);
}

std::string save_job_file(const std::string& path, const ComputeSettings& settings) {
    const std::string final_path = with_extension(path);
    const std::string working = final_path + ".tmp";
    const std::string text = job_file_text(settings);
    std::FILE* f = std::fopen(working.c_str(), "wb");
    bool written = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f != nullptr && std::fclose(f) != 0) written = false;
    if (!written || std::rename(working.c_str(), final_path.c_str()) != 0) {
        std::remove(working.c_str());
        throw qmp::InvalidParametersException("JobFile::save()", "Unable to write the configuration file: " + final_path);
    }
    return final_path;
}

void load_job_file(const std::string& path, ComputeSettings& settings) {
    const qmp::ConfigObject job = qmp::parse_using_extension(with_extension(path));
    const std::string& action = job.get_string("Action", "JobFile::load()");
    if (action != "CustomCompute") throw qmp::InvalidParametersException("JobFile::load()", "Invalid Action: " + action);
    ComputeSettings loaded = settings;
    loaded.load_config(job);
    settings = loaded;
}

}  // namespace qv
