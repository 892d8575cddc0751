// LinearCombination [[c0 x0] [c1 x1] ...] = sum of c_i * x_i with integer coefficients c_i.
// Each term is evaluated into m_term, scaled exactly by |c_i| (one word multiplication) and
// added with its sign into the running sum, which alternates between m_sumA and m_sumB because
// a sum may not overlap its operands. A zero coefficient skips its node. Every sum keeps p
// words, so the error is below one unit of word p per term, relative to the largest partial
// sum: cancellation between terms is not compensated (see formula_program.h).
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"

namespace qmp {

namespace {

// More terms than this print a warning: such a set is more likely a generator's mistake.
constexpr uint64_t huge_set_terms = 1000;

struct Term {
    int64_t coefficient;
    std::unique_ptr<FormulaEvaluator> node;
};

class FormulaB_LinearCombination : public FormulaEvaluator {
public:
    explicit FormulaB_LinearCombination(std::vector<Term> terms)
        : FormulaEvaluator("FormulaB_LinearCombination"), terms_(std::move(terms)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        for (const Term& term : terms_) visit(*term.node);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        uint64_t child_bytes = 0;
        for (Term& term : terms_) {
            term.node->plan(p, context);
            child_bytes = std::max(child_bytes, term.node->sizing().scratch_bytes);
        }
        const uint64_t n = node_value_words(p);
        FormulaSizing s;
        s.output_words = n;
        s.scratch_bytes = 4 * value_bytes(n) + child_bytes;
        s.checkpoint_bytes = value_bytes(n);  // the running sum
        s.buffers = {{"m_sumA_words", n}, {"m_sumB_words", n}, {"m_term_words", n}, {"m_scaled_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const uint64_t n = node_value_words(precision());
        FormulaFloat sum = carve_value(scratch, n), next = carve_value(scratch, n);
        FormulaFloat scaled = carve_value(scratch, n);
        AlignedBufferC term_buffer = scratch.spawn_words<uint64_t>(n);
        FormulaFloat term;
        for (Term& t : terms_) {
            if (t.coefficient == 0) continue;
            t.node->evaluate(term, term_buffer, scratch, context);
            const uint64_t magnitude = t.coefficient < 0 ? uint64_t(0) - uint64_t(t.coefficient) : uint64_t(t.coefficient);
            scaled.set_mul_uW(term, magnitude);
            scaled.sign = term.sign == (t.coefficient > 0);
            context.report("Adding:  ");
            signed_add(next, sum, scaled, precision());
            std::swap(sum, next);
        }
        out.set_BigFloat(sum);
    }

private:
    std::vector<Term> terms_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_linear_combination_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_LinearCombination::FormulaB_LinearCombination()";
    const std::vector<ConfigObject>& set = node.argument().as_array("LinearCombination");
    if (set.empty()) throw InvalidParametersException(function, "Set is empty.");
    if (set.size() > huge_set_terms)
        builder.warn("Really?!?! You're gonna make me sum up " + std::to_string(set.size()) + " elements?");
    std::vector<Term> terms;
    for (const ConfigObject& element : set) {
        if (element.kind() != ConfigKind::Array || element.as_array().size() != 2)
            throw InvalidParametersException(function, "Each term must have two parts.");
        const std::vector<ConfigObject>& parts = element.as_array();
        const int64_t coefficient = FormulaNode(parts[0]).get_as_integer();
        terms.push_back({coefficient, builder.build(parts[1])});
    }
    return std::make_unique<FormulaB_LinearCombination>(std::move(terms));
}

}  // namespace qmp
