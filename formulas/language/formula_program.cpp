// A compiled formula as a whole; see formula_program.h.
#include "formulas/language/formula_program.h"

#include <string>

#include "qmp/exception.h"

namespace qmp {

namespace {

void visit_post_order(const FormulaEvaluator& node, const std::function<void(const FormulaEvaluator&)>& visit) {
    node.for_each_child([&](const FormulaEvaluator& child) { visit_post_order(child, visit); });
    visit(node);
}

}  // namespace

FormulaProgram::FormulaProgram(const ConfigObject& formula, const FormulaFactoryRegistry& registry,
                               std::function<void(std::string_view)> warn) {
    FormulaBuilder builder(registry, std::move(warn));
    root_ = builder.build(formula);
}

uint64_t FormulaProgram::plan(uint64_t p, const FormulaContext& context) {
    if (context.table == nullptr)
        throw InvalidParametersException("FormulaProgram::plan()", "No multiplication table.");
    root_->plan(p + guard_words, context);
    return required_bytes();
}

uint64_t FormulaProgram::required_bytes() const noexcept { return root_->total_bytes(); }

uint64_t FormulaProgram::checkpoint_bytes() const noexcept {
    uint64_t total = 0;
    visit_post_order(*root_, [&](const FormulaEvaluator& node) { total += node.sizing().checkpoint_bytes; });
    return total;
}

uint64_t FormulaProgram::node_count() const noexcept {
    uint64_t count = 0;
    visit_post_order(*root_, [&](const FormulaEvaluator&) { count++; });
    return count;
}

std::string FormulaProgram::sizing_report() const {
    std::string text;
    visit_post_order(*root_, [&](const FormulaEvaluator& node) {
        const FormulaSizing& s = node.sizing();
        text += node.class_name() + ": memory " + std::to_string(node.total_bytes()) + " bytes";
        for (const auto& [name, size] : s.buffers) text += ", " + name + " = " + std::to_string(size);
        text += ", checkpoint " + std::to_string(s.checkpoint_bytes) + " bytes\n";
    });
    return text;
}

FormulaFloat FormulaProgram::evaluate(AlignedBufferC memory, FormulaContext& context) {
    if (!root_->planned()) throw InvalidParametersException("FormulaProgram::evaluate()", "Formula has not been planned.");
    if (memory.size_bytes() < required_bytes())
        throw BufferTooSmallException("FormulaProgram::evaluate()", memory.size_bytes(), required_bytes());
    AlignedBufferC out = memory.spawn_words<uint64_t>(root_->sizing().output_words);
    FormulaFloat result;
    root_->evaluate(result, out, memory, context);
    return result;
}

}  // namespace qmp
