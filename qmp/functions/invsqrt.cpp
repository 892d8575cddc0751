// Inverse square roots of floats and of words, and the square root as x * x^(-1/2).
#include "qmp/functions/invsqrt.h"

#include <algorithm>
#include <cmath>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/functions/function_checks.h"
#include "qmp/functions/newton_core.h"

namespace qmp {

namespace {

constexpr const char* kNegative = "Square root of negative number.";

}  // namespace

// ---- InvsqrtFloat

template <typename W>
uint64_t InvsqrtFloat_BigFloatR_E<W>::scratch_bytes(uint64_t p) {
    return detail::inv_root_core_bytes<W>(p, 2, detail::ProductRunner<W>{});
}

template <typename W>
void InvsqrtFloat_BigFloatR_E<W>::run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch) {
    const char* function = "InvsqrtFloat_BigFloatR_E::run()";
    NewtonPlanLimits{newton_small_max_p, 1}.check(p, 1, function);
    detail::check_root_argument(x, function, kNegative);
    detail::check_buffers(y, x, p, scratch, scratch_bytes(p), function);
    detail::ProductRunner<W> runner;
    runner.function = function;
    detail::inv_root_core(y, x, 2, p, scratch, runner);
}

template <typename W>
InvsqrtFloat_BigFloatR<W>::InvsqrtFloat_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds)
    : table_(&table),
      limits_{max_p, max_tds},
      scratch_bytes_(detail::plan_bytes(max_p, [&](uint64_t p) { return scratch_bytes(table, p); })) {}

template <typename W>
uint64_t InvsqrtFloat_BigFloatR<W>::scratch_bytes(const AlgorithmTableB& table, uint64_t p) {
    return detail::inv_root_core_bytes<W>(p, 2, detail::runner_for<W>(&table, nullptr, 1, ""));
}

template <typename W>
void InvsqrtFloat_BigFloatR<W>::run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                                    Parallelizer* parallelizer, uint64_t tds) const {
    const char* function = "InvsqrtFloat_BigFloatR::run()";
    limits_.check(p, tds, function);
    detail::check_root_argument(x, function, kNegative);
    detail::check_buffers(y, x, p, scratch, scratch_bytes(*table_, p), function);
    detail::inv_root_core(y, x, 2, p, scratch, detail::runner_for<W>(table_, parallelizer, tds, function));
}

// ---- InvsqrtWord

template <typename W>
uint64_t InvsqrtWord_BigFloatR_E<W>::scratch_bytes(uint64_t p) {
    return detail::invsqrt_word_core_bytes<W>(p, detail::ProductRunner<W>{});
}

template <typename W>
void InvsqrtWord_BigFloatR_E<W>::run(BigFloat<W>& y, W n, uint64_t p, AlignedBufferC scratch) {
    const char* function = "InvsqrtWord_BigFloatR_E::run()";
    NewtonPlanLimits{newton_small_max_p, 1}.check(p, 1, function);
    if (n == 0) throw ArithmeticException(function, "Divide by zero.");
    detail::check_buffers(y, BigFloat<W>(), p, scratch, scratch_bytes(p), function);
    detail::ProductRunner<W> runner;
    runner.function = function;
    detail::invsqrt_word_core(y, n, p, scratch, runner);
}

template <typename W>
InvsqrtWord_BigFloatR<W>::InvsqrtWord_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds)
    : table_(&table),
      limits_{max_p, max_tds},
      scratch_bytes_(detail::plan_bytes(max_p, [&](uint64_t p) { return scratch_bytes(table, p); })) {}

template <typename W>
uint64_t InvsqrtWord_BigFloatR<W>::scratch_bytes(const AlgorithmTableB& table, uint64_t p) {
    return detail::invsqrt_word_core_bytes<W>(p, detail::runner_for<W>(&table, nullptr, 1, ""));
}

template <typename W>
std::string InvsqrtWord_BigFloatR<W>::status_label(W n) {
    return "InvSqrt(" + std::to_string(n) + ")";
}

template <typename W>
void InvsqrtWord_BigFloatR<W>::run(BigFloat<W>& y, W n, uint64_t p, AlignedBufferC scratch,
                                   Parallelizer* parallelizer, uint64_t tds) const {
    const char* function = "InvsqrtWord_BigFloatR::run()";
    limits_.check(p, tds, function);
    if (n == 0) throw ArithmeticException(function, "Divide by zero.");
    detail::check_buffers(y, BigFloat<W>(), p, scratch, scratch_bytes(*table_, p), function);
    if (print_status) Console::println(status_label(n), Console::Colour::Info);
    detail::invsqrt_word_core(y, n, p, scratch, detail::runner_for<W>(table_, parallelizer, tds, function));
}

// ---- Square root

template <typename W>
SqrtFloat_BigFloatR<W>::SqrtFloat_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds)
    : table_(&table),
      limits_{max_p, max_tds},
      scratch_bytes_(detail::plan_bytes(max_p, [&](uint64_t p) { return scratch_bytes(table, p); })) {}

template <typename W>
uint64_t SqrtFloat_BigFloatR<W>::scratch_bytes(const AlgorithmTableB& table, uint64_t p) {
    return detail::sqrt_core_bytes<W>(p, detail::runner_for<W>(&table, nullptr, 1, ""));
}

template <typename W>
void SqrtFloat_BigFloatR<W>::run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                                 Parallelizer* parallelizer, uint64_t tds) const {
    const char* function = "SqrtFloat_BigFloatR::run()";
    limits_.check(p, tds, function);
    if (x.L == 0) {
        y.set_zero();
        y.sign = true;
        return;
    }
    detail::check_root_argument(x, function, kNegative);
    detail::check_buffers(y, x, p, scratch, scratch_bytes(*table_, p), function);
    detail::sqrt_core(y, x, p, scratch, detail::runner_for<W>(table_, parallelizer, tds, function));
}

void check_invsqrt_word_argument(uint64_t n, const char* function) {
    if (n == 0) throw ArithmeticException(function, "Divide by zero.");
    uint64_t s = std::min<uint64_t>(uint64_t(std::sqrt(double(n))), 0xFFFFFFFFu);
    while (s * s > n) --s;
    while (s < 0xFFFFFFFFu && (s + 1) * (s + 1) <= n) ++s;
    if (s * s == n) throw InvalidParametersException(function, "Argument is a perfect square: " + std::to_string(n));
}

template class InvsqrtFloat_BigFloatR_E<uint32_t>;
template class InvsqrtFloat_BigFloatR_E<uint64_t>;
template class InvsqrtFloat_BigFloatR<uint32_t>;
template class InvsqrtFloat_BigFloatR<uint64_t>;
template class InvsqrtWord_BigFloatR_E<uint32_t>;
template class InvsqrtWord_BigFloatR_E<uint64_t>;
template class InvsqrtWord_BigFloatR<uint32_t>;
template class InvsqrtWord_BigFloatR<uint64_t>;
template class SqrtFloat_BigFloatR<uint32_t>;
template class SqrtFloat_BigFloatR<uint64_t>;

}  // namespace qmp
