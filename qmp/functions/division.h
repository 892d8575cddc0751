// Division q = a / b of BigFloats. p < 10: y = 1/b by the small reciprocal to p words, q = a y.
// p >= 10 ("Large Division"): y = 1/b to h = floor(p/2) + 2 words, q0 = a y to h + 2 words, then
// the residual r = a - b q0 (its two words just above the retained window, topA of a and topB
// of b q0, must agree up to a borrow, else "Convergence Failure:\n    topA = " ...
// "\n    topB = ") and q = q0 + y r. Precision and buffers as for the reciprocal: q holds at most
// p + 2 words with |q - a/b| < B^(-p) |a/b|; q's buffer p + 3 words, no overlap with a, b or
// the scratch. a = 0 gives q = 0 (L = 0, sign cleared); b = 0 throws "Divide by zero.".
#pragma once

#include <cstdint>

#include "qmp/functions/newton_schedule.h"
#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"

namespace qmp {

class Parallelizer;

// The plan fixes the largest p and tds: "p is larger than plan.", "Mismatching tds.".
// print_status: print "Large Division" on the console when a large run starts.
template <typename W>
class Division_BigFloatR {
public:
    Division_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds = 1);

    const NewtonPlanLimits& limits() const noexcept { return limits_; }
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    static uint64_t scratch_bytes(const AlgorithmTableB& table, uint64_t p);

    void run(BigFloat<W>& q, const BigFloat<W>& a, const BigFloat<W>& b, uint64_t p, AlignedBufferC scratch,
             Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;

    bool print_status = false;

private:
    const AlgorithmTableB* table_;
    NewtonPlanLimits limits_;
    uint64_t scratch_bytes_;
};

extern template class Division_BigFloatR<uint32_t>;
extern template class Division_BigFloatR<uint64_t>;

}  // namespace qmp
