// Reciprocal x = 1/x, and Divide [a b] in three forms chosen when the tree is built:
//   FormulaB_Divide_LL  a / b, both nodes: Newton division (qmp/functions/division.h);
//   FormulaB_Divide_LW  a / d, d an integer: a cut to p words, then one word division;
//   FormulaB_Divide_WL  n / b, n an integer: n * (1/b), an exact word product of the reciprocal.
// A denominator that is a power of two (or its negative) is refused: a shift is exact. An integer
// zero denominator is ArithmeticException "Divide by zero." before anything runs; a node that
// evaluates to zero raises the same from the reciprocal at run time.
#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "qmp/functions/division.h"
#include "qmp/functions/reciprocal.h"

namespace qmp {

namespace {

class FormulaB_Reciprocal : public FormulaEvaluator {
public:
    // quotient: the word-by-large quotient numerator / x ("FormulaB_Divide_WL").
    FormulaB_Reciprocal(const char* class_name, std::unique_ptr<FormulaEvaluator> x, int64_t numerator, bool quotient)
        : FormulaEvaluator(class_name), x_(std::move(x)), numerator_(numerator), quotient_(quotient) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*x_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        x_->plan(p, context);
        plan_.emplace(*context.table, p, context.tds);
        return one_child_plan_sizing(*x_, p, plan_->scratch_bytes());
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        FormulaFloat x;
        evaluate_child(*x_, x, scratch, context);
        context.report(quotient_ ? "Dividing: " : "Inverting: ");
        plan_->run(out, x, precision(), scratch, context.parallelizer, context.tds);
        if (numerator_ == 1) return;
        const bool negative = numerator_ < 0;
        out.mul_uW(negative ? uint64_t(0) - uint64_t(numerator_) : uint64_t(numerator_));
        if (negative) out.sign = !out.sign;
    }

private:
    std::unique_ptr<FormulaEvaluator> x_;
    int64_t numerator_;
    bool quotient_;
    std::optional<Reciprocal_BigFloatR<uint64_t>> plan_;
};

class FormulaB_Divide_LL : public FormulaEvaluator {
public:
    FormulaB_Divide_LL(std::unique_ptr<FormulaEvaluator> a, std::unique_ptr<FormulaEvaluator> b)
        : FormulaEvaluator("FormulaB_Divide_LL"), a_(std::move(a)), b_(std::move(b)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        visit(*a_);
        visit(*b_);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        a_->plan(p, context);
        b_->plan(p, context);
        plan_.emplace(*context.table, p, context.tds);
        const uint64_t a_bytes = value_bytes(a_->sizing().output_words);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = std::max({a_->total_bytes(), a_bytes + b_->total_bytes(),
                                    a_bytes + value_bytes(b_->sizing().output_words) + plan_->scratch_bytes()});
        s.checkpoint_bytes = value_bytes(s.output_words);
        s.buffers = {{"m_bufferA_x_words", a_->sizing().output_words}, {"m_bufferB_x_words", b_->sizing().output_words}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        FormulaFloat a, b;
        evaluate_child(*a_, a, scratch, context);
        evaluate_child(*b_, b, scratch, context);
        context.report("Dividing: ");
        plan_->run(out, a, b, precision(), scratch, context.parallelizer, context.tds);
    }

private:
    std::unique_ptr<FormulaEvaluator> a_, b_;
    std::optional<Division_BigFloatR<uint64_t>> plan_;
};

class FormulaB_Divide_LW : public FormulaEvaluator {
public:
    FormulaB_Divide_LW(std::unique_ptr<FormulaEvaluator> a, int64_t d)
        : FormulaEvaluator("FormulaB_Divide_LW"), a_(std::move(a)), d_(d) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*a_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        a_->plan(p, context);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = a_->total_bytes();
        s.checkpoint_bytes = value_bytes(s.output_words);
        s.buffers = {{"m_bufferA_x_words", a_->sizing().output_words}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        FormulaFloat a;
        evaluate_child(*a_, a, scratch, context);
        context.report("Dividing: ");
        // The quotient has p words: a's top p words divided, the rest expands the remainder.
        a.set_BigFloat(a, precision());
        out.set_div_sW(a, d_, precision(), context.parallelizer, context.tds);
    }

private:
    std::unique_ptr<FormulaEvaluator> a_;
    int64_t d_;
};

bool is_power_of_two_magnitude(int64_t d) {
    const uint64_t m = d < 0 ? uint64_t(0) - uint64_t(d) : uint64_t(d);
    return m != 0 && (m & (m - 1)) == 0;
}

}  // namespace

std::unique_ptr<FormulaEvaluator> make_reciprocal_node(const FormulaNode& node, FormulaBuilder& builder) {
    return std::make_unique<FormulaB_Reciprocal>("FormulaB_Reciprocal", builder.build(node.argument()), 1, false);
}

std::unique_ptr<FormulaEvaluator> make_divide_node(const FormulaNode& node, FormulaBuilder& builder) {
    const std::vector<ConfigObject>& set = node.argument().as_array_exact(2, "Divide");
    const FormulaNode numerator(set[0]), denominator(set[1]);
    if (denominator.is_integer()) {
        const char* function = "FormulaB_Divide_LW::FormulaB_Divide_LW()";
        const int64_t d = denominator.get_as_integer();
        if (d == 0) throw ArithmeticException(function, "Divide by zero.");
        if (is_power_of_two_magnitude(d))
            throw InvalidParametersException(function, "Use Shift() to divide by a power-of-two.");
        return std::make_unique<FormulaB_Divide_LW>(builder.build(numerator), d);
    }
    if (numerator.is_integer())
        return std::make_unique<FormulaB_Reciprocal>("FormulaB_Divide_WL", builder.build(denominator),
                                                     numerator.get_as_integer(), true);
    auto a = builder.build(numerator);
    return std::make_unique<FormulaB_Divide_LL>(std::move(a), builder.build(denominator));
}

}  // namespace qmp
