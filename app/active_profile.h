// The tuning profile that is active for this run, chosen from the profiles the multiplication
// layer carries (qmp/multiply/tuning_profile.h; this build has only "NT", the heuristics). The
// environment file names the profile active at start-up; main menu entry 9 lets the user choose.
// The main thread owns the choice: menus and start-up are the only writers.
#pragma once

#include <string_view>
#include <vector>

#include "qmp/multiply/tuning_profile.h"

namespace qv {

// Every profile of this build, in menu order.
const std::vector<qmp::TuningProfile>& tuning_profiles();
// The profile with this exact name, or nullptr.
const qmp::TuningProfile* find_tuning_profile(std::string_view name);

const qmp::TuningProfile& active_tuning_profile();
// Throws qmp::InvalidParametersException "Unknown tuning profile: <name>" for a name that is
// not in the list.
void set_active_tuning_profile(std::string_view name);

// The interactive choice (main menu entry 9): lists the profiles and sets the chosen one.
void choose_tuning_profile_menu();

}  // namespace qv
