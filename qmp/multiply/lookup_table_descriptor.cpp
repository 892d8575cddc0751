// Validation of transform factor sets.
#include "qmp/multiply/lookup_table_descriptor.h"

#include "qmp/exception.h"

namespace qmp {

namespace {

bool is_supported_radix(uint32_t r) {
    return r == 2 || r == 3 || r == 4 || r == 5 || r == 7 || r == 8;
}

[[noreturn]] void reject() {
    throw InvalidParametersException("FullLookupTableDescriptor::set()",
                                     "Invalid factor set from generic table.");
}

}  // namespace

void FullLookupTableDescriptor::set(const std::vector<uint32_t>& radices, uint64_t expected_length) {
    if (radices.empty() || radices.size() > max_factors) reject();
    uint64_t length = 1;
    for (uint32_t r : radices) {
        if (!is_supported_radix(r)) reject();
        if (length > (uint64_t(1) << 63) / r) reject();
        length *= r;
    }
    if (length != expected_length) reject();
    radices_ = radices;
    length_ = length;
}

uint64_t FullLookupTableDescriptor::stride(uint64_t level) const {
    uint64_t s = 1;
    for (uint64_t i = level + 1; i < radices_.size(); ++i) s *= radices_[i];
    return s;
}

}  // namespace qmp
