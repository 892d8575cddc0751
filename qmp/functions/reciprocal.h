// Reciprocal y = 1/x of a BigFloat by Newton iteration with precision doubling
// (newton_schedule.h): y <- y + y (1 - x y) after each inner run, checked by the error test.
// Precision: for p >= 1 the result holds at most p + 2 words and |y - 1/x| < B^(-p) |1/x|
// (B = 2^32 or 2^64, the word radix); only the top p + 2 words of x are read. p = 0 gives the
// double-precision estimate (about 52 bits, at most 3 words). Sign: y.sign = x.sign.
// Buffers: y's buffer needs p + 3 words and must not overlap x or the scratch; the scratch is
// one AlignedBufferC of scratch_bytes(). x = 0 throws ArithmeticException "Divide by zero.".
#pragma once

#include <cstdint>

#include "qmp/functions/newton_schedule.h"
#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"

namespace qmp {

class Parallelizer;

// The small form for p <= newton_small_max_p: schoolbook products, no table, no threads.
// p above 9: InvalidParametersException "p is larger than plan.".
template <typename W>
class Reciprocal_BigFloatR_E {
public:
    static uint64_t scratch_bytes(uint64_t p);
    static void run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch);
};

// The large form: products through `table` (which must outlive the plan). The plan fixes the
// largest p and tds; run() checks both ("p is larger than plan.", "tds is larger than plan.").
// Runs below 10 words go to the small form.
template <typename W>
class Reciprocal_BigFloatR {
public:
    Reciprocal_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds = 1);

    const NewtonPlanLimits& limits() const noexcept { return limits_; }
    // Scratch for any run the plan allows.
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    static uint64_t scratch_bytes(const AlgorithmTableB& table, uint64_t p);

    void run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
             Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;

private:
    const AlgorithmTableB* table_;
    NewtonPlanLimits limits_;
    uint64_t scratch_bytes_;
};

extern template class Reciprocal_BigFloatR_E<uint32_t>;
extern template class Reciprocal_BigFloatR_E<uint64_t>;
extern template class Reciprocal_BigFloatR<uint32_t>;
extern template class Reciprocal_BigFloatR<uint64_t>;

}  // namespace qmp
