// Saved job files of a computation: the job object in .cfg syntax after the comment header
// that tells how to run the file, every line ending with "\r\n". Saving writes under the
// working name "<path>.tmp" and renames; loading reads a file as the "config" action does
// (".cfg" appended to a path without extension) and refuses an "Action" other than
// "CustomCompute" with "Invalid Action: " + value.
#pragma once

#include <string>

#include "app/compute/compute_settings.h"

namespace qv {

std::string job_file_header();
std::string job_file_text(const ComputeSettings& settings);
// Returns the path written (with ".cfg" appended when the given one had no extension).
std::string save_job_file(const std::string& path, const ComputeSettings& settings);
void load_job_file(const std::string& path, ComputeSettings& settings);

}  // namespace qv
