// The interactive "Custom Compute a Constant" menu: shows the settings with their values (a
// disabled feature shows " (Disabled)"), lets the user change each one, load or save a job
// file, and ends with "  0     Start Computation!" (or "  0     Finish" when it only edits).
// Returns true when the user chose 0; the end of standard input ends it through EndOfInput.
#pragma once

#include <string>
#include <vector>

#include "app/compute/compute_settings.h"

namespace qv {

enum class ComputeMenuPurpose { Run, Edit };

// The menu's lines for these settings, without colours (also what tests compare).
std::vector<std::string> compute_menu_lines(const ComputeSettings& settings, ComputeMenuPurpose purpose,
                                            const std::string& memory_needed);

bool compute_menu(ComputeSettings& settings, ComputeMenuPurpose purpose);

}  // namespace qv
