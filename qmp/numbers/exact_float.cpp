// ExactFloat construction. A signed 64-bit value becomes one or two 32-bit words through the
// BasicIntO constructor; the exponent is kept exactly as given, so bottom words of the
// magnitude may be zero (the value is what matters, not a canonical form).
#include "qmp/numbers/exact_float.h"

namespace qmp {

ExactFloat::ExactFloat(int64_t x, WordAllocator& allocator) : sign_(x >= 0) {
    // Negating in unsigned arithmetic keeps INT64_MIN exact (2^63).
    if (x != 0) magnitude_.emplace(x < 0 ? uint64_t(0) - uint64_t(x) : uint64_t(x), allocator);
}

ExactFloat::ExactFloat(const BasicIntR& magnitude, int64_t exp32, bool sign, WordAllocator& allocator)
    : exp_(exp32), sign_(sign) {
    magnitude_.emplace(magnitude, allocator);
}

}  // namespace qmp
