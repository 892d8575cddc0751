// Tuning profiles: where the multiplication tables come from. A trained profile lists named
// table entries measured on one machine; the heuristic profile "NT" uses no training data and
// builds the tables from the rules in make_default_table(). Only "NT" exists in this build.
#pragma once

#include <string>
#include <vector>

#include "qmp/multiply/algorithm_table.h"

namespace qmp {

class AlgorithmRegistry;

struct TuningProfile {
    std::string name;
    std::string description;
};

// "NT": "No Training. Disable all training tables and use heuristics."
const TuningProfile& heuristic_profile();

// The named entries of the heuristic table: "BKT" up to its cross-over with "FFTv4" and, when
// the registry has "FFTv4", "FFTv4" above it up to fft_max_product_words and "SFTv4" (when
// registered) for the largest products; otherwise "BKT" up to its own default largest product.
std::vector<NamedAlgorithmEntry> default_table_entries(const AlgorithmRegistry& registry);
AlgorithmTableB make_default_table(const AlgorithmRegistry& registry);

}  // namespace qmp
