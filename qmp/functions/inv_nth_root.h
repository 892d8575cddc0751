// Inverse n-th roots y = x^(-1/n), n >= 2, by Newton iteration (newton_schedule.h):
// y <- y + y (1 - x y^n) / n. run_expanded() raises y to the n-th power by squarings in every
// step; run_factored() splits n into its prime factors q1 <= q2 <= ... and takes one root at a
// time: r = x, r <- r^(1/q) for every factor but the last (sqrt(r) for q = 2, with its last
// step folded in; r (r^(-1/q))^(q-1) otherwise), then y = r^(-1/q_last). Precision and buffers as for
// the reciprocal (reciprocal.h). Failures: n < 2 "Degree must be greater than 1.", x = 0
// "Divide by zero.", x < 0 "Nth root of negative number.".
#pragma once

#include <cstdint>
#include <string>

#include "qmp/functions/newton_schedule.h"
#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"

namespace qmp {

class Parallelizer;

template <typename W>
class InvNthRootFloat_BigFloatR_E {
public:
    static uint64_t scratch_bytes(uint64_t p, uint32_t n);
    static void run(BigFloat<W>& y, const BigFloat<W>& x, uint32_t n, uint64_t p, AlignedBufferC scratch);
};

// The plan is made for one degree n. print_status: print "Radical x^(-1/" n ")" when a run starts.
template <typename W>
class InvNthRootFloat_BigFloatR_P {
public:
    InvNthRootFloat_BigFloatR_P(const AlgorithmTableB& table, uint32_t n, uint64_t max_p, uint64_t max_tds = 1);

    const NewtonPlanLimits& limits() const noexcept { return limits_; }
    uint32_t degree() const noexcept { return n_; }
    // Enough for either form.
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    static uint64_t scratch_bytes(const AlgorithmTableB& table, uint32_t n, uint64_t p);
    static std::string status_label(uint32_t n);  // "Radical x^(-1/4)"

    void run_expanded(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                      Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;
    void run_factored(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                      Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;

    bool print_status = false;

private:
    const AlgorithmTableB* table_;
    uint32_t n_;
    NewtonPlanLimits limits_;
    uint64_t scratch_bytes_;
};

extern template class InvNthRootFloat_BigFloatR_E<uint32_t>;
extern template class InvNthRootFloat_BigFloatR_E<uint64_t>;
extern template class InvNthRootFloat_BigFloatR_P<uint32_t>;
extern template class InvNthRootFloat_BigFloatR_P<uint64_t>;

}  // namespace qmp
