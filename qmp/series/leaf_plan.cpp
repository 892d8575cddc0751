// The readable form of a leaf block plan, for logs and reports.
#include <cstdio>
#include <string>

#include "qmp/series/bsr_engine.h"

namespace qmp::BinarySplitting {

std::string LeafPlan::print() const {
    std::string text = "Leaf block [" + std::to_string(a) + ", " + std::to_string(b) + "): tds " + std::to_string(tds) +
                       " (max " + std::to_string(max_tds) + "), output words";
    for (unsigned i = 0; i < 8; ++i)
        if (outputs & (1u << i)) text += " " + std::to_string(output_words[i]);
    char bytes[64];
    std::snprintf(bytes, sizeof bytes, ", scratch %.1f KiB", double(memory_bytes) / 1024.0);
    return text + bytes;
}

}  // namespace qmp::BinarySplitting
