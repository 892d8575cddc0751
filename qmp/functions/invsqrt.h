// Inverse square roots y = x^(-1/2) by Newton iteration (newton_schedule.h):
// y <- y + y (1 - x y^2) / 2. InvsqrtFloat takes a BigFloat, InvsqrtWord a one-word integer n
// (whose product with y^2 is a word multiplication). Square roots are x * x^(-1/2)
// (SqrtFloat_BigFloatR). Starting estimate: x = d B^e with a double d; -e even: 1/sqrt(d) at
// exponent -e/2; -e odd: sqrt(B)/sqrt(d) at exponent (-e-1)/2 (sqrt(B) = 2^16 for 32-bit words,
// 2^32 for 64-bit words). Precision and buffers as for the reciprocal (reciprocal.h): at most
// p + 2 words, relative error < B^(-p), result buffer p + 3 words. x = 0: ArithmeticException
// "Divide by zero."; x < 0: InvalidParametersException "Square root of negative number.".
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
class InvsqrtFloat_BigFloatR_E {
public:
    static uint64_t scratch_bytes(uint64_t p);
    static void run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch);
};

template <typename W>
class InvsqrtFloat_BigFloatR {
public:
    InvsqrtFloat_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds = 1);

    const NewtonPlanLimits& limits() const noexcept { return limits_; }
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    static uint64_t scratch_bytes(const AlgorithmTableB& table, uint64_t p);

    void run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
             Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;

private:
    const AlgorithmTableB* table_;
    NewtonPlanLimits limits_;
    uint64_t scratch_bytes_;
};

// n^(-1/2) for a word n >= 1 (n = 0: "Divide by zero.").
template <typename W>
class InvsqrtWord_BigFloatR_E {
public:
    static uint64_t scratch_bytes(uint64_t p);
    static void run(BigFloat<W>& y, W n, uint64_t p, AlignedBufferC scratch);
};

// print_status: print "InvSqrt(" n ")" on the console when a run starts.
template <typename W>
class InvsqrtWord_BigFloatR {
public:
    InvsqrtWord_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds = 1);

    const NewtonPlanLimits& limits() const noexcept { return limits_; }
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    static uint64_t scratch_bytes(const AlgorithmTableB& table, uint64_t p);

    void run(BigFloat<W>& y, W n, uint64_t p, AlignedBufferC scratch, Parallelizer* parallelizer = nullptr,
             uint64_t tds = 1) const;
    static std::string status_label(W n);  // "InvSqrt(10005)"

    bool print_status = false;

private:
    const AlgorithmTableB* table_;
    NewtonPlanLimits limits_;
    uint64_t scratch_bytes_;
};

// y = sqrt(x) = x * x^(-1/2). Below 10 words: the inverse root at p + 1 words times x. Above:
// r = x^(-1/2) at about p/2 words, s0 = x r, and the last Newton step folded into the root,
// s = s0 + r (x - s0^2) / 2, whose residual is checked like the division's ("Convergence
// Failure:\n    topA = " ... "\n    topB = "). x = 0 gives y = 0; x < 0 throws "Square root of
// negative number.". Same precision and buffer contract as the inverse root.
template <typename W>
class SqrtFloat_BigFloatR {
public:
    SqrtFloat_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds = 1);

    const NewtonPlanLimits& limits() const noexcept { return limits_; }
    uint64_t scratch_bytes() const noexcept { return scratch_bytes_; }
    static uint64_t scratch_bytes(const AlgorithmTableB& table, uint64_t p);

    void run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
             Parallelizer* parallelizer = nullptr, uint64_t tds = 1) const;

private:
    const AlgorithmTableB* table_;
    NewtonPlanLimits limits_;
    uint64_t scratch_bytes_;
};

// For integer arguments of a formula: n = 0 "Divide by zero." (ArithmeticException); a perfect
// square n throws InvalidParametersException "Argument is a perfect square: " n, naming
// `function`.
void check_invsqrt_word_argument(uint64_t n, const char* function);

extern template class InvsqrtFloat_BigFloatR_E<uint32_t>;
extern template class InvsqrtFloat_BigFloatR_E<uint64_t>;
extern template class InvsqrtFloat_BigFloatR<uint32_t>;
extern template class InvsqrtFloat_BigFloatR<uint64_t>;
extern template class InvsqrtWord_BigFloatR_E<uint32_t>;
extern template class InvsqrtWord_BigFloatR_E<uint64_t>;
extern template class InvsqrtWord_BigFloatR<uint32_t>;
extern template class InvsqrtWord_BigFloatR<uint64_t>;
extern template class SqrtFloat_BigFloatR<uint32_t>;
extern template class SqrtFloat_BigFloatR<uint64_t>;

}  // namespace qmp
