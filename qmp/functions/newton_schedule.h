// What every Newton-iteration function shares: the precision schedule, the plan limits, the
// test of the error word after each step with its failure messages, and a fault-injection hook.
//
// Schedule: a run at p words first runs itself at p' = newton_inner_precision(p) words
// (floor(p/2) + 1 for p >= 3, 1 for p = 2, 0 for p = 1); p = 0 is the double-precision
// estimate. Runs below newton_small_max_p + 1 words use the small (schoolbook) form.
//
// Error test: after the inner call the step forms z = x * y (or x * y^2, x * y^n) as a
// fixed-point array F[0, k] of words: F[k] is the word at position 0 (the integer part) and
// F[0, k) the fraction down to position -k. F[k] = 1 means z >= 1 (over-estimate, e = z - 1),
// F[k] = 0 means z < 1 (under-estimate, e = 1 - z); any other value is "Convergence Failure:
// \n    top = " F[k] (an integer part of two words or more reads as all-ones). The error's
// exponent is t - 2, where t is the word position just above the top non-zero word of |e| (so
// |e| < B^(t)); a step after an inner run at p' words requires t - 2 <= -p', i.e. |e| < B^(2-p'),
// and prints -p' as the maximum and t - 2 as the actual error otherwise. Positions are in
// words of the float's own word type: with 64-bit words the bound is B = 2^64 per word.
#pragma once

#include <cstdint>
#include <string>

namespace qmp {

// Largest precision (words) served by the small forms ("_E").
inline constexpr uint64_t newton_small_max_p = 9;

constexpr uint64_t newton_inner_precision(uint64_t p) {
    return p >= 3 ? p / 2 + 1 : p == 2 ? 1 : 0;
}

// The largest p and tds a plan allows. check() throws InvalidParametersException naming
// `function`: "p is larger than plan." or `tds_message` ("tds is larger than plan." for most
// functions, "Mismatching tds." for the division).
struct NewtonPlanLimits {
    uint64_t max_p = 0;
    uint64_t max_tds = 1;
    void check(uint64_t p, uint64_t tds, const char* function,
               const char* tds_message = "tds is larger than plan.") const;
};

// The error words of one step, handed to the fault injector before they are tested. `words`
// points at F[0, n_words) (n_words = k + 1) of `word_bits`-bit words, top word at the end; the
// injector may change any of them (not the count). The large division and square root hand over
// their residual window instead (b q0 or s0^2, the words subtracted from a or x, top at the
// end; inner_p = h, the precision of their inner run).
struct NewtonErrorWords {
    const char* function;  // e.g. "Reciprocal_BigFloatR::run()"
    uint64_t p;            // precision of the step being taken
    uint64_t inner_p;      // p' of the inner run
    void* words;
    uint64_t n_words;
    unsigned word_bits;
};
// A test hook that sees (and may corrupt) every step's error words; null (the default) is none.
// Not for production use. Process-wide; set it only while no Newton function runs.
using NewtonFaultInjector = void (*)(NewtonErrorWords& site);
void set_newton_fault_injector(NewtonFaultInjector injector);
NewtonFaultInjector newton_fault_injector();

namespace detail {

// Applies the error test to F[0, k] (words of type W), after giving the fault injector its
// turn: throws AlgorithmFailedException naming `function` with the messages above, else turns F
// into |e| in place (F[k] = 0 unless e = 1 exactly) and returns true for an over-estimate.
template <typename W>
bool newton_error_test(W* F, uint64_t k, uint64_t p, uint64_t inner_p, const char* function);

}  // namespace detail

}  // namespace qmp
