// The natural logarithm of a positive big float by the arithmetic-geometric mean, the kernel
// of the Log-AGM, Log and Exp nodes. With s = x 2^m >= 2^(32 q + 10) (q words of precision),
//   ln x = pi / (2 AGM(1, 4/s)) - m ln 2,
// whose truncation error is below 4 ln(s)/s^2 < 2^(-64 q). pi and ln 2 are given; ln 2 itself
// is ln(2^M)/M with M chosen the same way (x = 1). Every operation keeps q words; the result's
// absolute error is a few units of 2^(-64 q) times max(|ln x|, m ln 2), so near x = 1 the
// relative error grows like 1/|ln x| (the subtraction cancels). All scratch comes from the
// caller's buffer, sized by scratch_bytes(q) of a plan made for the largest q.
#pragma once

#include <cstdint>
#include <optional>

#include "formulas/language/formula_evaluator.h"
#include "qmp/functions/invsqrt.h"
#include "qmp/functions/reciprocal.h"

namespace qmp {

class AgmLogarithm {
public:
    // Arguments whose binary exponent exceeds this are refused ("Argument is too large: ").
    static constexpr int64_t max_argument_bits = int64_t(1) << 46;

    void plan(const FormulaContext& context, uint64_t max_q);
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    // Bound on the AGM steps for q words (the start is far from the limit: a/b ~ s).
    static uint64_t max_steps(uint64_t q);

    // out = ln x at q words (out needs q + 4 words); x > 0 else AlgorithmFailedException.
    void log(FormulaFloat& out, const FormulaFloat& x, const FormulaFloat& pi, const FormulaFloat& log2, uint64_t q,
             AlignedBufferC scratch, FormulaContext& context, const char* function) const;
    // out = ln 2 at q words from pi alone.
    void log2(FormulaFloat& out, const FormulaFloat& pi, uint64_t q, AlignedBufferC scratch, FormulaContext& context,
              const char* function) const;

private:
    // out = pi / (2 AGM(1, 2^(2 - m) / x)) at q words.
    void agm_part(FormulaFloat& out, const FormulaFloat& x, int64_t m, const FormulaFloat& pi, uint64_t q,
                  AlignedBufferC& scratch, FormulaContext& context, const char* function) const;

    std::optional<SqrtFloat_BigFloatR<uint64_t>> sqrt_;
    std::optional<Reciprocal_BigFloatR<uint64_t>> reciprocal_;
    uint64_t scratch_bytes_ = 0;
};

// floor(log2 |x|) for x != 0.
int64_t floor_log2(const FormulaFloat& x);
// The value of x as a double (0 for x = 0; +-inf beyond the double range).
double to_double(const FormulaFloat& x);

}  // namespace qmp
