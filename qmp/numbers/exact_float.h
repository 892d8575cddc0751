// ExactFloat: a small exact float that owns its storage, for the short-precision Newton forms
// and for exact constants (a seed value, a power of two, a small integer scaled by a power of
// the radix). Value = (sign ? +1 : -1) * M * 2^(32 * exp), where M is a BasicIntO (32-bit words,
// top word never zero) and exp counts 32-bit words whatever the word width of the floats it
// feeds. Zero has no magnitude (a BasicInt cannot be zero); it reports length() 0, exp() 0 and
// sign() true. Nothing is rounded: every constructor keeps the value exactly. Storage comes
// from a WordAllocator (the heap by default) and is given back on destruction.
#pragma once

#include <cstdint>
#include <optional>

#include "qmp/numbers/basic_int.h"

namespace qmp {

class ExactFloat {
public:
    // The signed integer x (0 gives zero). INT64_MIN is exact: its magnitude is 2^63.
    explicit ExactFloat(int64_t x = 0, WordAllocator& allocator = WordAllocator::heap());
    // magnitude * 2^(32 * exp32), negative when !sign. A magnitude of length 0 (never set) is
    // not a number: InvalidParametersException "Zero was encountered." from the BasicInt copy.
    ExactFloat(const BasicIntR& magnitude, int64_t exp32, bool sign = true,
               WordAllocator& allocator = WordAllocator::heap());

    bool is_zero() const noexcept { return !magnitude_.has_value(); }
    // True for a non-negative value.
    bool sign() const noexcept { return sign_; }
    // Exponent in 32-bit words.
    int64_t exp() const noexcept { return exp_; }
    // The magnitude's 32-bit words, least significant first; nullptr and 0 for zero.
    const uint32_t* words() const noexcept { return magnitude_ ? magnitude_->words() : nullptr; }
    uint64_t length() const noexcept { return magnitude_ ? magnitude_->length() : 0; }

    // Flips the sign; zero stays zero with sign() true.
    void negate() noexcept { sign_ = is_zero() || !sign_; }
    ExactFloat operator-() const {
        ExactFloat r(*this);
        r.negate();
        return r;
    }

private:
    std::optional<BasicIntO> magnitude_;
    int64_t exp_ = 0;
    bool sign_ = true;
};

}  // namespace qmp
