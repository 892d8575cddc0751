// Reciprocal: plan and run checks around the Newton recursion of newton_cores.cpp.
#include "qmp/functions/reciprocal.h"

#include "qmp/exception.h"
#include "qmp/functions/function_checks.h"
#include "qmp/functions/newton_core.h"

namespace qmp {

template <typename W>
uint64_t Reciprocal_BigFloatR_E<W>::scratch_bytes(uint64_t p) {
    return detail::reciprocal_core_bytes<W>(p, detail::ProductRunner<W>{});
}

template <typename W>
void Reciprocal_BigFloatR_E<W>::run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch) {
    const char* function = "Reciprocal_BigFloatR_E::run()";
    NewtonPlanLimits{newton_small_max_p, 1}.check(p, 1, function);
    detail::check_divisor(x, function);
    detail::check_buffers(y, x, p, scratch, scratch_bytes(p), function);
    detail::ProductRunner<W> runner;
    runner.function = function;
    detail::reciprocal_core(y, x, p, scratch, runner);
    y.sign = x.sign;
}

template <typename W>
Reciprocal_BigFloatR<W>::Reciprocal_BigFloatR(const AlgorithmTableB& table, uint64_t max_p, uint64_t max_tds)
    : table_(&table),
      limits_{max_p, max_tds},
      scratch_bytes_(detail::plan_bytes(max_p, [&](uint64_t p) { return scratch_bytes(table, p); })) {}

template <typename W>
uint64_t Reciprocal_BigFloatR<W>::scratch_bytes(const AlgorithmTableB& table, uint64_t p) {
    return detail::reciprocal_core_bytes<W>(p, detail::runner_for<W>(&table, nullptr, 1, ""));
}

template <typename W>
void Reciprocal_BigFloatR<W>::run(BigFloat<W>& y, const BigFloat<W>& x, uint64_t p, AlignedBufferC scratch,
                                  Parallelizer* parallelizer, uint64_t tds) const {
    const char* function = "Reciprocal_BigFloatR::run()";
    limits_.check(p, tds, function);
    detail::check_divisor(x, function);
    detail::check_buffers(y, x, p, scratch, scratch_bytes(*table_, p), function);
    detail::reciprocal_core(y, x, p, scratch, detail::runner_for<W>(table_, parallelizer, tds, function));
    y.sign = x.sign;
}

template class Reciprocal_BigFloatR_E<uint32_t>;
template class Reciprocal_BigFloatR_E<uint64_t>;
template class Reciprocal_BigFloatR<uint32_t>;
template class Reciprocal_BigFloatR<uint64_t>;

}  // namespace qmp
