// The sizing and run wrappers common to every evaluator; see formula_evaluator.h.
#include "formulas/language/formula_evaluator.h"

#include <string>

#include "qmp/console.h"
#include "qmp/exception.h"

namespace qmp {

void FormulaContext::report(std::string_view verb) {
    ++steps_done;
    if (status) status(std::string(verb) + std::to_string(steps_done));
}

std::function<void(std::string_view)> FormulaContext::console_status() {
    return [](std::string_view line) { Console::println(line, Console::Colour::Info); };
}

void FormulaEvaluator::plan(uint64_t p, const FormulaContext& context) {
    if (p == 0) throw InvalidParametersException(class_name_ + "::plan()", "Precision must be positive.");
    sizing_ = size_node(p, context);
    // Whole aligned pieces: a buffer is always cut in multiples of the alignment.
    sizing_.scratch_bytes = AlignedBufferC::round_up(sizing_.scratch_bytes);
    p_ = p;
    planned_ = true;
}

uint64_t FormulaEvaluator::total_bytes() const noexcept {
    return value_bytes(sizing_.output_words) + sizing_.scratch_bytes;
}

void FormulaEvaluator::evaluate(FormulaFloat& out, AlignedBufferC out_buffer, AlignedBufferC scratch,
                                FormulaContext& context) {
    if (!planned_) throw InvalidParametersException(run_name(), "Evaluator has not been planned.");
    if (out_buffer.capacity_words<uint64_t>() < sizing_.output_words)
        throw BufferTooSmallException(run_name(), out_buffer.size_bytes(), value_bytes(sizing_.output_words));
    if (scratch.size_bytes() < sizing_.scratch_bytes)
        throw BufferTooSmallException(run_name(), scratch.size_bytes(), sizing_.scratch_bytes);
    out = FormulaFloat(out_buffer);
    run(out, scratch, context);
    check_exponent(out);
}

void FormulaEvaluator::for_each_child(const std::function<void(const FormulaEvaluator&)>&) const {}

void FormulaEvaluator::check_exponent(const FormulaFloat& x) const {
    if (x.L == 0) return;
    const int64_t lo = x.exp, hi = x.exp + int64_t(x.L);
    if (lo < -max_exponent_words || hi > max_exponent_words)
        throw LimitExceededException(run_name(), "Exponent is out of range.");
}

FormulaFloat carve_value(AlignedBufferC& scratch, uint64_t n_words) {
    FormulaFloat x(scratch.spawn_words<uint64_t>(n_words));
    x.set_zero();
    return x;
}

void evaluate_child(FormulaEvaluator& child, FormulaFloat& value, AlignedBufferC& scratch, FormulaContext& context) {
    AlignedBufferC out = scratch.spawn_words<uint64_t>(child.sizing().output_words);
    child.evaluate(value, out, scratch, context);
}

}  // namespace qmp
