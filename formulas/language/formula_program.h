// FormulaProgram: a formula compiled, sized and run as a whole. The root is planned at
// p + guard_words words; every node of the tree works at that one precision. Each node's error
// is a few units of its last word relative to its value (products, quotients and roots keep the
// top words; sums drop words below the working window), so two guard words absorb the errors of
// up to ~2^120 operations. Cancellation in a LinearCombination is not covered: a difference of
// nearly equal values loses the words in which they agree, as it would in any fixed-precision
// evaluation. The whole tree is sized before anything runs; a memory block smaller than the
// plan is refused with BufferTooSmallException before any node runs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "config/config_object.h"
#include "formulas/language/formula_builder.h"
#include "formulas/language/formula_evaluator.h"

namespace qmp {

class FormulaProgram {
public:
    static constexpr uint64_t guard_words = 2;

    FormulaProgram(const ConfigObject& formula, const FormulaFactoryRegistry& registry,
                   std::function<void(std::string_view)> warn = {});

    // The sizing pass for a result of p words. Returns the bytes evaluate() needs.
    uint64_t plan(uint64_t p, const FormulaContext& context);
    uint64_t required_bytes() const noexcept;
    uint64_t checkpoint_bytes() const noexcept;
    uint64_t node_count() const noexcept;
    // One line per node, in evaluation order: its class, memory, named buffers and checkpoint.
    std::string sizing_report() const;

    // Runs the planned tree in `memory`; the result (at most p + guard_words + 3 words, relative
    // error below a few units of word p + guard_words) lives at the bottom of `memory`.
    FormulaFloat evaluate(AlignedBufferC memory, FormulaContext& context);

    const FormulaEvaluator& root() const noexcept { return *root_; }

private:
    std::unique_ptr<FormulaEvaluator> root_;
};

}  // namespace qmp
