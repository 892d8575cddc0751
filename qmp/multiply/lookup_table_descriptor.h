// Describes the factor set of a mixed-radix transform for building its twiddle lookup tables:
// the transform length is the product of the radices, applied in the order given (outermost
// first). Radices are 2, 3, 4, 5, 7 or 8 (the kernels that exist); a set is at most 32 radices
// long and its product must fit 63 bits and equal the expected length. set() rejects anything
// else with qmp::InvalidParametersException "Invalid factor set from generic table." and
// leaves the descriptor unchanged.
#pragma once

#include <cstdint>
#include <vector>

namespace qmp {

class FullLookupTableDescriptor {
public:
    static constexpr uint64_t max_factors = 32;

    void set(const std::vector<uint32_t>& radices, uint64_t expected_length);

    uint64_t length() const noexcept { return length_; }
    const std::vector<uint32_t>& radices() const noexcept { return radices_; }
    // Twiddle-table stride of level `level`: the product of the radices after it.
    uint64_t stride(uint64_t level) const;

private:
    std::vector<uint32_t> radices_;
    uint64_t length_ = 0;
};

}  // namespace qmp
