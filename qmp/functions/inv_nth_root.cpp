// Inverse n-th roots: the expanded form is one Newton recursion with y^n by squarings; the
// factored form takes one prime factor at a time (inv_nth_root.h). Scratch of the factored
// form, carved in this order:
//   [ r, r' (p + 4 words each) | s = r^(-1/q) | power buffers A, B | product | the inner run ]
#include "qmp/functions/inv_nth_root.h"

#include <algorithm>
#include <vector>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/functions/function_checks.h"
#include "qmp/functions/newton_core.h"

namespace qmp {

namespace {

constexpr const char* kNegative = "Nth root of negative number.";

void check_degree(uint32_t n, const char* function) {
    if (n < 2) throw InvalidParametersException(function, "Degree must be greater than 1.");
}

// Prime factors of n, smallest first, with multiplicity.
std::vector<uint32_t> prime_factors(uint32_t n) {
    std::vector<uint32_t> factors;
    for (uint32_t f = 2; uint64_t(f) * f <= n; ++f)
        while (n % f == 0) {
            factors.push_back(f);
            n /= f;
        }
    if (n > 1) factors.push_back(n);
    return factors;
}

// Words of the intermediate roots r: one more than the result, so that their errors (each root
// divides the relative error of its input by its degree) stay below the result's last word.
constexpr uint64_t stage_words(uint64_t p) { return p + 4; }

template <typename W>
uint64_t factored_bytes(const detail::ProductRunner<W>& runner, uint32_t n, uint64_t p) {
    const std::vector<uint32_t> factors = prime_factors(n);
    if (factors.size() == 1) return detail::inv_root_core_bytes<W>(p, n, runner);
    const uint64_t sw = stage_words(p);
    const auto mul = runner.at(p + 1);
    uint64_t inner = detail::inv_root_core_bytes<W>(p, factors.back(), runner);
    for (size_t i = 0; i + 1 < factors.size(); ++i)
        inner = std::max(inner, factors[i] == 2 ? detail::sqrt_core_bytes<W>(p + 1, runner)
                                                : detail::inv_root_core_bytes<W>(p + 1, factors[i], runner));
    const uint64_t products = std::max(mul.sqr_bytes(sw), mul.mul_bytes(sw, sw));
    return 3 * detail::words_bytes<W>(sw) + 3 * detail::words_bytes<W>(2 * sw) + std::max(inner, products);
}

}  // namespace

template <typename W>
uint64_t InvNthRootFloat_BigFloatR_E<W>::scratch_bytes(uint64_t p, uint32_t n) {
    return detail::inv_root_core_bytes<W>(p, n, detail::ProductRunner<W>{});
}

template <typename W>
void InvNthRootFloat_BigFloatR_E<W>::run(BigFloat<W>& y, const BigFloat<W>& x, uint32_t n, uint64_t p,
                                         AlignedBufferC scratch) {
    const char* function = "InvNthRootFloat_BigFloatR_E::run()";
    check_degree(n, function);
    NewtonPlanLimits{newton_small_max_p, 1}.check(p, 1, function);
    detail::check_root_argument(x, function, kNegative);
    detail::check_buffers(y, x, p, scratch, scratch_bytes(p, n), function);
    detail::ProductRunner<W> runner;
    runner.function = function;
    detail::inv_root_core(y, x, n, p, scratch, runner);
}

template <typename W>
InvNthRootFloat_BigFloatR_P<W>::InvNthRootFloat_BigFloatR_P(const AlgorithmTableB& table, uint32_t n,
                                                            uint64_t max_p, uint64_t max_tds)
    : table_(&table), n_(n), limits_{max_p, max_tds}, scratch_bytes_(0) {
    check_degree(n, "InvNthRootFloat_BigFloatR_P::InvNthRootFloat_BigFloatR_P()");
    scratch_bytes_ = detail::plan_bytes(max_p, [&](uint64_t p) { return scratch_bytes(table, n, p); });
}

template <typename W>
uint64_t InvNthRootFloat_BigFloatR_P<W>::scratch_bytes(const AlgorithmTableB& table, uint32_t n, uint64_t p) {
    const auto runner = detail::runner_for<W>(&table, nullptr, 1, "");
    return std::max(detail::inv_root_core_bytes<W>(p, n, runner), factored_bytes<W>(runner, n, p));
}

template <typename W>
std::string InvNthRootFloat_BigFloatR_P<W>::status_label(uint32_t n) {
    return "Radical x^(-1/" + std::to_string(n) + ")";
}

template <typename W>
void InvNthRootFloat_BigFloatR_P<W>::run_expanded(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p,
                                                  AlignedBufferC scratch, Parallelizer* parallelizer,
                                                  uint64_t tds) const {
    const char* function = "InvNthRootFloat_BigFloatR_P::run_expanded()";
    limits_.check(p, tds, function);
    detail::check_root_argument(x, function, kNegative);
    const auto runner = detail::runner_for<W>(table_, parallelizer, tds, function);
    detail::check_buffers(y, x, p, scratch, detail::inv_root_core_bytes<W>(p, n_, runner), function);
    if (print_status) Console::println(status_label(n_), Console::Colour::Info);
    detail::inv_root_core(y, x, n_, p, scratch, runner);
}

template <typename W>
void InvNthRootFloat_BigFloatR_P<W>::run_factored(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p,
                                                  AlignedBufferC scratch, Parallelizer* parallelizer,
                                                  uint64_t tds) const {
    const char* function = "InvNthRootFloat_BigFloatR_P::run_factored()";
    limits_.check(p, tds, function);
    detail::check_root_argument(x, function, kNegative);
    const auto runner = detail::runner_for<W>(table_, parallelizer, tds, function);
    detail::check_buffers(y, x, p, scratch, factored_bytes<W>(runner, n_, p), function);
    if (print_status) Console::println(status_label(n_), Console::Colour::Info);
    const std::vector<uint32_t> factors = prime_factors(n_);
    if (factors.size() == 1) {
        detail::inv_root_core(y, x, n_, p, scratch, runner);
        return;
    }
    const uint64_t sw = stage_words(p);
    BigFloat<W> r_buffers[2] = {BigFloat<W>(scratch.spawn_words<W>(sw)), BigFloat<W>(scratch.spawn_words<W>(sw))};
    BigFloat<W> s(scratch.spawn_words<W>(sw));
    W* A = scratch.extract_aligned<W>(2 * sw);
    W* B = scratch.extract_aligned<W>(2 * sw);
    W* P = scratch.extract_aligned<W>(2 * sw);
    const auto mul = runner.at(p + 1);
    BigFloat<W> r = detail::top_view(x, sw);
    for (size_t i = 0; i + 1 < factors.size(); ++i) {
        const uint32_t q = factors[i];
        BigFloat<W>& next = r_buffers[i % 2];
        if (q == 2) {
            // The square root with its last step folded in.
            detail::sqrt_core(next, r, p + 1, scratch, runner);
            r = next;
            continue;
        }
        // r <- r^(1/q) = r * (r^(-1/q))^(q - 1).
        detail::inv_root_core(s, r, q, p + 1, scratch, runner);
        const BigFloat<W> sq = detail::power_top(s, q - 1, sw, A, B, mul, scratch);
        mul.mul(P, r.T, r.L, sq.T, sq.L, scratch);
        next.set_BigFloat(detail::word_view(P, r.L + sq.L, r.exp + sq.exp), sw);
        r = next;
    }
    detail::inv_root_core(y, r, factors.back(), p, scratch, runner);
}

template class InvNthRootFloat_BigFloatR_E<uint32_t>;
template class InvNthRootFloat_BigFloatR_E<uint64_t>;
template class InvNthRootFloat_BigFloatR_P<uint32_t>;
template class InvNthRootFloat_BigFloatR_P<uint64_t>;

}  // namespace qmp
