// Argument and buffer checks that every Newton function runs before it starts (internal).
#pragma once

#include <algorithm>
#include <cstdint>

#include "qmp/exception.h"
#include "qmp/functions/newton_core.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"
#include "qmp/numbers/number_checks.h"

namespace qmp::detail {

// x = 0: ArithmeticException "Divide by zero.".
template <typename W>
void check_divisor(const BigFloat<W>& x, const char* function) {
    if (x.L == 0) throw ArithmeticException(function, "Divide by zero.");
}

// Roots: zero as a divisor, then the sign (`negative_message`).
template <typename W>
void check_root_argument(const BigFloat<W>& x, const char* function, const char* negative_message) {
    check_divisor(x, function);
    if (!x.sign) throw InvalidParametersException(function, negative_message);
}

// The result buffer must hold p + 3 words and not overlap x; the scratch must hold `need` bytes.
template <typename W>
void check_buffers(const BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch, uint64_t need,
                   const char* function) {
    if (y.capacity < p + 3) throw BufferTooSmallException(function, y.capacity, p + 3);
    if (x.L > 0 && ranges_overlap<W>(y.base, y.capacity, x.T, x.L))
        throw InvalidParametersException(function, "Output overlaps an input.");
    if (scratch.size_bytes() < need) throw BufferTooSmallException(function, scratch.size_bytes(), need);
}

// The scratch a plan reports for runs up to max_p words: the larger of the needs at max_p and
// just below the wrapped steps (whose full products need more than the wrapped ones above
// them), with 1/16 to spare, since the need of a slightly smaller p may be a little larger
// (another transform size): for plans of up to 20000 words the largest need of a smaller run
// was 0.94 of this. Every run checks its exact need against the buffer it is given.
template <typename Need>
uint64_t plan_bytes(uint64_t max_p, const Need& need) {
    const uint64_t bytes = std::max(need(max_p), need(std::min<uint64_t>(max_p, wrapped_min_p - 1)));
    return AlignedBufferC::round_up(bytes + bytes / 16);
}

}  // namespace qmp::detail
