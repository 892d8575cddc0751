// V = ((CQ + CP S) / CD)^Power over a child evaluator that gives S; see series_value.h.
// CP S is one word product, CQ one signed addition; Power 1 then divides by the word CD,
// Power -1 takes the Newton reciprocal of the sum and multiplies it by CD. The sum keeps p
// words, so a CQ that cancels most of CP S loses what it cancels (as LinearCombination does).
#include "formulas/nodes/series_value.h"

#include "qmp/exception.h"
#include "qmp/functions/reciprocal.h"

namespace qmp {

namespace {

uint64_t magnitude(int64_t x) { return x < 0 ? uint64_t(0) - uint64_t(x) : uint64_t(x); }

class FormulaB_SeriesValue : public FormulaEvaluator {
public:
    FormulaB_SeriesValue(const char* class_name, std::unique_ptr<FormulaEvaluator> sum, SeriesNodeCoefficients c)
        : FormulaEvaluator(class_name), sum_(std::move(sum)), c_(c) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*sum_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        sum_->plan(p, context);
        reciprocal_.emplace(*context.table, p, context.tds);
        const uint64_t n = node_value_words(p);
        FormulaSizing s;
        s.output_words = n;
        // The child's value, the scaled sum, the word CQ, then the reciprocal's scratch.
        s.scratch_bytes = std::max(sum_->total_bytes(), value_bytes(sum_->sizing().output_words) + 2 * value_bytes(n) +
                                                            value_bytes(1) + reciprocal_->scratch_bytes());
        s.checkpoint_bytes = value_bytes(n);
        s.buffers = {{"m_sum_words", sum_->sizing().output_words}, {"m_scaled_words", n}, {"m_shifted_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const uint64_t p = precision(), n = node_value_words(p);
        FormulaFloat S;
        evaluate_child(*sum_, S, scratch, context);
        // evaluate_child() left `scratch` above the child's value.
        AlignedBufferC& rest = scratch;
        FormulaFloat scaled = carve_value(rest, n), shifted = carve_value(rest, n), cq = carve_value(rest, 1);
        scaled.set_mul_uW(S, magnitude(c_.c.CP));
        scaled.sign = S.sign == (c_.c.CP > 0);
        FormulaFloat* value = &scaled;
        if (c_.c.CQ != 0) {
            set_integer(cq, c_.c.CQ);
            context.report("Adding:  ");
            signed_add(shifted, scaled, cq, p);
            value = &shifted;
        }
        if (c_.power == 1) {
            if (c_.c.CD == 1) {
                out.set_BigFloat(*value);  // every word of the sum: it fits the result buffer
                return;
            }
            context.report("Dividing: ");
            value->set_BigFloat(*value, p);
            out.set_div_sW(*value, c_.c.CD, p, context.parallelizer, context.tds);
            return;
        }
        context.report("Inverting: ");
        reciprocal_->run(out, *value, p, rest, context.parallelizer, context.tds);
        if (c_.c.CD != 1) out.mul_uW(uint64_t(c_.c.CD));
    }

private:
    std::unique_ptr<FormulaEvaluator> sum_;
    SeriesNodeCoefficients c_;
    std::optional<Reciprocal_BigFloatR<uint64_t>> reciprocal_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_series_value_evaluator(const char* class_name,
                                                              std::unique_ptr<FormulaEvaluator> sum,
                                                              const SeriesNodeCoefficients& coefficients) {
    return std::make_unique<FormulaB_SeriesValue>(class_name, std::move(sum), coefficients);
}

std::unique_ptr<FormulaEvaluator> build_composite(FormulaBuilder& builder, const ConfigObject& tree) {
    return builder.build(tree);
}

void read_reduced_memory(const ConfigObject& argument, const char* function) {
    // The in-memory form has one path: the key is checked for its type and selects nothing.
    if (argument.contains("ReducedMemory")) argument.get_bool("ReducedMemory", function);
}

}  // namespace qmp
