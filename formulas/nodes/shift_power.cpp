// Shift [x s] = x * 2^s, exact after x is cut to p words; Power [x e] = x^e for an integer
// e != 0 by left-to-right binary powering (squarings and products that keep p words; the
// relative error grows by about one unit of word p per step, 2 log2|e| steps at most), and
// e < 0 as the reciprocal of x^|e|. Shifts are limited to |s| < 2^48 bits so that exponents
// stay far from overflow. A non-integer exponent y gives exp(y ln x) (hyperbolic_nodes.cpp).
#include <algorithm>
#include <bit>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "qmp/functions/reciprocal.h"

namespace qmp {

namespace {

constexpr int64_t max_shift_bits = int64_t(1) << 48;

class FormulaB_Shift : public FormulaEvaluator {
public:
    FormulaB_Shift(std::unique_ptr<FormulaEvaluator> x, int64_t bits)
        : FormulaEvaluator("FormulaB_Shift"), x_(std::move(x)), bits_(bits) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*x_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        x_->plan(p, context);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = x_->sizing().scratch_bytes;
        s.checkpoint_bytes = value_bytes(s.output_words);
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        x_->evaluate(out, buffer_of(out), scratch, context);
        context.report("Shifting:  ");
        out.set_BigFloat(out, precision());
        shift_in_place(out, bits_);
    }

private:
    std::unique_ptr<FormulaEvaluator> x_;
    int64_t bits_;
};

class FormulaB_Power : public FormulaEvaluator {
public:
    FormulaB_Power(std::unique_ptr<FormulaEvaluator> x, int64_t exponent)
        : FormulaEvaluator("FormulaB_Power"), x_(std::move(x)), exponent_(exponent) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*x_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        x_->plan(p, context);
        const uint64_t n = node_value_words(p);
        uint64_t tail = node_mul_scratch_bytes(context, p);
        if (exponent_ < 0) {
            reciprocal_.emplace(*context.table, p, context.tds);
            tail = std::max(tail, reciprocal_->scratch_bytes());
        }
        FormulaSizing s;
        s.output_words = n;
        s.scratch_bytes = std::max(x_->total_bytes(), 2 * value_bytes(n) + tail);
        s.checkpoint_bytes = 2 * value_bytes(n);
        s.buffers = {{"m_base_words", n}, {"m_power_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const uint64_t p = precision();
        FormulaFloat base;
        evaluate_child(*x_, base, scratch, context);
        FormulaFloat power = carve_value(scratch, node_value_words(p));
        context.report("Powering:  ");
        const uint64_t e = exponent_ < 0 ? uint64_t(0) - uint64_t(exponent_) : uint64_t(exponent_);
        power.set_BigFloat(base, p);
        for (int bit = 62 - std::countl_zero(e); bit >= 0; bit--) {
            power.set_sqr(power, p, *context.table, scratch, context.parallelizer, context.tds);
            check_exponent(power);
            if ((e >> bit) & 1) {
                power.set_mul(power, base, p, *context.table, scratch, context.parallelizer, context.tds);
                check_exponent(power);
            }
        }
        if (exponent_ > 0) {
            out.set_BigFloat(power);
        } else {
            reciprocal_->run(out, power, p, scratch, context.parallelizer, context.tds);
        }
    }

private:
    std::unique_ptr<FormulaEvaluator> x_;
    int64_t exponent_;
    std::optional<Reciprocal_BigFloatR<uint64_t>> reciprocal_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_shift_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_Shift::FormulaB_Shift()";
    const std::vector<ConfigObject>& set = node.argument().as_array("Shift");
    if (set.size() != 2) throw InvalidParametersException(function, "Set must have 2 terms.");
    const int64_t bits = FormulaNode(set[1]).get_as_integer();
    if (bits <= -max_shift_bits || bits >= max_shift_bits)
        throw LimitExceededException(function, "Shift is out of range.");
    return std::make_unique<FormulaB_Shift>(builder.build(set[0]), bits);
}

std::unique_ptr<FormulaEvaluator> make_power_node(const FormulaNode& node, FormulaBuilder& builder) {
    const std::vector<ConfigObject>& set = node.argument().as_array_exact(2, "Power");
    // A non-integer exponent is exp(y ln x) (make_real_power_node).
    if (!FormulaNode(set[1]).is_integer()) return make_real_power_node(node, builder);
    const int64_t exponent = FormulaNode(set[1]).get_as_integer();
    if (exponent == 0) throw InvalidParametersException("FormulaB_Power::FormulaB_Power()", "Exponent cannot be zero.");
    return std::make_unique<FormulaB_Power>(builder.build(set[0]), exponent);
}

}  // namespace qmp
