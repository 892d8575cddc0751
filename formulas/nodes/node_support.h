// Helpers shared by the in-memory formula nodes: the result size every node provides, signed
// sums, exact scaling by powers of two and small integers, and the scratch bound of a product.
// Every node works at the one precision p its plan received; a node's result holds at most
// p + 3 words (the Newton functions return up to p + 2, a scaled sum p + 1), and its result
// buffer node_value_words(p) = p + 4 words leaves room for one in-place word multiplication.
#pragma once

#include <cstdint>
#include <memory>

#include "formulas/language/formula_builder.h"
#include "formulas/language/formula_evaluator.h"

namespace qmp {

inline uint64_t node_value_words(uint64_t p) { return p + 4; }

// The view of the buffer that `x` lives on (the whole capacity).
AlignedBufferC buffer_of(const FormulaFloat& x);

// x = v exactly (one word).
void set_integer(FormulaFloat& x, int64_t v);

// r = a + b with the signs of a and b, keeping p words; r must not overlap a or b.
void signed_add(FormulaFloat& r, const FormulaFloat& a, const FormulaFloat& b, uint64_t p);

// x *= 2^bits in place, exactly (x needs room for L + 1 words).
void shift_in_place(FormulaFloat& x, int64_t bits);

// Scratch of a product of two node results at precision p.
uint64_t node_mul_scratch_bytes(const FormulaContext& context, uint64_t p);

// The sizing of a node that evaluates one planned child x and then runs a Newton plan on it:
// x's own evaluation, or x's value held while the plan runs, whichever needs more scratch.
FormulaSizing one_child_plan_sizing(const FormulaEvaluator& x, uint64_t p, uint64_t plan_scratch_bytes);

// Builds the child given by a configuration value.
inline std::unique_ptr<FormulaEvaluator> build_child(FormulaBuilder& builder, const ConfigObject& node) {
    return builder.build(node);
}

}  // namespace qmp
