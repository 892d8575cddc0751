#include "app/active_profile.h"

#include "app/prompt.h"
#include "qmp/console.h"
#include "qmp/exception.h"

#include <string>

namespace qv {
namespace {

size_t active_index = 0;  // into tuning_profiles()

// Trained profiles carry measurements of one machine; only the heuristics are portable.
bool is_trained(const qmp::TuningProfile& profile) {
    return profile.name != qmp::heuristic_profile().name;
}

}  // namespace

const std::vector<qmp::TuningProfile>& tuning_profiles() {
    static const std::vector<qmp::TuningProfile> profiles = {qmp::heuristic_profile()};
    return profiles;
}

const qmp::TuningProfile* find_tuning_profile(std::string_view name) {
    for (const qmp::TuningProfile& p : tuning_profiles())
        if (p.name == name) return &p;
    return nullptr;
}

const qmp::TuningProfile& active_tuning_profile() { return tuning_profiles()[active_index]; }

void set_active_tuning_profile(std::string_view name) {
    const std::vector<qmp::TuningProfile>& profiles = tuning_profiles();
    for (size_t i = 0; i < profiles.size(); ++i) {
        if (profiles[i].name == name) {
            active_index = i;
            return;
        }
    }
    throw qmp::InvalidParametersException("TuningProfile::set_active()",
                                          "Unknown tuning profile: " + std::string(name));
}

void choose_tuning_profile_menu() {
    using qmp::Console::Colour;
    const std::vector<qmp::TuningProfile>& profiles = tuning_profiles();
    qmp::Console::println();
    qmp::Console::println("Tuning Profile:", Colour::Header);
    qmp::Console::println();
    bool any_trained = false;
    for (size_t i = 0; i < profiles.size(); ++i) {
        const qmp::TuningProfile& p = profiles[i];
        any_trained |= is_trained(p);
        std::string line = "  " + std::to_string(i) + "    " + p.name;
        if (i == active_index) line += "  (active)";
        qmp::Console::println(line, Colour::Label);
        qmp::Console::println("       " + p.description, Colour::Info);
    }
    if (any_trained) {
        qmp::Console::println();
        qmp::Console::warning(
            "Trained profiles are overfit to the machine they were trained on. On other\n"
            "hardware they can be slower than the heuristics.");
    }
    qmp::Console::println();
    const int64_t choice = prompt_integer("Profile: ", 0, static_cast<int64_t>(profiles.size()) - 1);
    active_index = static_cast<size_t>(choice);
    qmp::Console::println("Active tuning profile: " + profiles[active_index].name, Colour::Value);
}

}  // namespace qv
