// The shared plan check, the fault-injection hook and the error test of every Newton step.
#include "qmp/functions/newton_schedule.h"

#include <atomic>

#include "qmp/exception.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

std::atomic<NewtonFaultInjector> g_injector{nullptr};

}  // namespace

void NewtonPlanLimits::check(uint64_t p, uint64_t tds, const char* function, const char* tds_message) const {
    if (p > max_p) throw InvalidParametersException(function, "p is larger than plan.");
    if (tds > max_tds) throw InvalidParametersException(function, tds_message);
}

void set_newton_fault_injector(NewtonFaultInjector injector) { g_injector.store(injector); }

NewtonFaultInjector newton_fault_injector() { return g_injector.load(); }

namespace detail {

template <typename W>
bool newton_error_test(W* F, uint64_t k, uint64_t p, uint64_t inner_p, const char* function) {
    if (NewtonFaultInjector injector = g_injector.load()) {
        NewtonErrorWords site{function, p, inner_p, F, k + 1, unsigned(sizeof(W) * 8)};
        injector(site);
    }
    const W top = F[k];
    bool over;
    if (top == 1) {
        over = true;  // z = 1 + frac: |e| = frac
        F[k] = 0;
    } else if (top == 0) {
        over = false;  // z = frac: e = 1 - frac, which is 1 itself when frac = 0
        F[k] = neg(F, F, k) == 0 ? W(1) : W(0);
    } else {
        throw AlgorithmFailedException(function, "Convergence Failure:\n    top = " + std::to_string(top));
    }
    const uint64_t le = normalized_length(F, k + 1);
    if (le == 0) return over;
    // |e| < B^(le - k); its exponent is counted two words lower so that the bound reads
    // "actual <= -p'": |e| < B^(2 - p').
    const int64_t actual = int64_t(le) - int64_t(k) - 2;
    const int64_t maximum = -int64_t(inner_p);
    if (actual > maximum) {
        throw AlgorithmFailedException(
            function, std::string(over ? "Over-Estimate" : "Under-Estimate") +
                          " -> Convergence Failure:\n    Maximum Error = " + std::to_string(maximum) +
                          "\n    Actual Error  = " + std::to_string(actual));
    }
    return over;
}

template bool newton_error_test<uint32_t>(uint32_t*, uint64_t, uint64_t, uint64_t, const char*);
template bool newton_error_test<uint64_t>(uint64_t*, uint64_t, uint64_t, uint64_t, const char*);

}  // namespace detail

}  // namespace qmp
