// Products: Multiply [x0 x1 ...], Square x, and CheckedMultiply {ReducedMemory, Input0,
// Input1}. Products go through the multiplication table and keep the top p words. The checked
// product is formed in full in m_product and verified before it is cut to p words: with
// r(.) the residue modulo 2^61 - 1 of a word array, r(C) * 2^(64 k) = r(A) r(B), where k is the
// number of zero words the product dropped below its lowest word. A mismatch is
// AlgorithmFailedException "Checksum Mismatch. Multiplication Failed.". ReducedMemory must be a
// Boolean; in memory it selects nothing (the product has no lower-memory variant here).
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "qmp/words/mod_m61.h"

namespace qmp {

namespace {

class FormulaB_Multiply : public FormulaEvaluator {
public:
    explicit FormulaB_Multiply(std::vector<std::unique_ptr<FormulaEvaluator>> factors)
        : FormulaEvaluator("FormulaB_Multiply"), factors_(std::move(factors)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        for (const auto& f : factors_) visit(*f);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        for (auto& f : factors_) f->plan(p, context);
        const uint64_t n = node_value_words(p);
        // The first factor goes straight into the result; each later one into m_factor.
        uint64_t scratch = std::max(factors_[0]->sizing().scratch_bytes, value_bytes(n) + node_mul_scratch_bytes(context, p));
        for (uint64_t i = 1; i < factors_.size(); i++) scratch = std::max(scratch, value_bytes(n) + factors_[i]->sizing().scratch_bytes);
        FormulaSizing s;
        s.output_words = n;
        s.scratch_bytes = scratch;
        s.checkpoint_bytes = value_bytes(n);
        s.buffers = {{"m_product_words", n}, {"m_factor_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        factors_[0]->evaluate(out, buffer_of(out), scratch, context);
        AlignedBufferC factor_buffer = scratch.spawn_words<uint64_t>(node_value_words(precision()));
        FormulaFloat factor;
        for (uint64_t i = 1; i < factors_.size(); i++) {
            factors_[i]->evaluate(factor, factor_buffer, scratch, context);
            context.report("Multiplying: ");
            out.set_mul(out, factor, precision(), *context.table, scratch, context.parallelizer, context.tds);
            check_exponent(out);
        }
    }

private:
    std::vector<std::unique_ptr<FormulaEvaluator>> factors_;
};

class FormulaB_Square : public FormulaEvaluator {
public:
    explicit FormulaB_Square(std::unique_ptr<FormulaEvaluator> x) : FormulaEvaluator("FormulaB_Square"), x_(std::move(x)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*x_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        x_->plan(p, context);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = std::max(x_->sizing().scratch_bytes, node_mul_scratch_bytes(context, p));
        s.checkpoint_bytes = value_bytes(s.output_words);
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        x_->evaluate(out, buffer_of(out), scratch, context);
        check_exponent(out);
        context.report("Multiplying: ");
        out.set_sqr(out, precision(), *context.table, scratch, context.parallelizer, context.tds);
    }

private:
    std::unique_ptr<FormulaEvaluator> x_;
};

class FormulaB_CheckedMultiply : public FormulaEvaluator {
public:
    FormulaB_CheckedMultiply(std::unique_ptr<FormulaEvaluator> a, std::unique_ptr<FormulaEvaluator> b)
        : FormulaEvaluator("FormulaB_CheckedMultiply"), a_(std::move(a)), b_(std::move(b)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        visit(*a_);
        visit(*b_);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        a_->plan(p, context);
        b_->plan(p, context);
        const uint64_t n = node_value_words(p);
        const uint64_t full = 2 * n;
        FormulaSizing s;
        s.output_words = n;
        s.scratch_bytes = std::max({a_->total_bytes(), value_bytes(n) + b_->total_bytes(),
                                    2 * value_bytes(n) + value_bytes(full) +
                                        FormulaFloat::mul_scratch_bytes(*context.table, n, n)});
        s.checkpoint_bytes = value_bytes(n);
        s.buffers = {{"m_bufferA_x_words", n}, {"m_bufferB_x_words", n}, {"m_product_words", full}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const uint64_t n = node_value_words(precision());
        FormulaFloat a, b;
        evaluate_child(*a_, a, scratch, context);
        evaluate_child(*b_, b, scratch, context);
        FormulaFloat c = carve_value(scratch, 2 * n);
        context.report("Multiplying: ");
        c.set_mul(a, b, FormulaFloat::full_precision, *context.table, scratch, context.parallelizer, context.tds);
        if (context.product_hook) context.product_hook(c.T, c.L);

        if (context.status) context.status("Verify Large Multiply");
        const uint64_t ra = mod_m61(a.T, a.L), rb = mod_m61(b.T, b.L);
        // The product may start above A.exp + B.exp when its low words were zero.
        const int64_t dropped_words = c.L == 0 ? 0 : c.exp - a.exp - b.exp;
        uint64_t rc = mod_m61(c.T, c.L);
        if (dropped_words > 0) rc = mul_pow2_m61(rc, uint64_t(dropped_words) * 64 % 61);
        const bool zero_ok = (a.L == 0 || b.L == 0) == (c.L == 0);
        if (dropped_words < 0 || !zero_ok || rc != mul_m61(ra, rb))
            throw AlgorithmFailedException(run_name(), "Checksum Mismatch. Multiplication Failed.");
        out.set_BigFloat(c, precision());
    }

private:
    std::unique_ptr<FormulaEvaluator> a_, b_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_multiply_node(const FormulaNode& node, FormulaBuilder& builder) {
    const std::vector<ConfigObject>& set = node.argument().as_array("Multiply");
    if (set.size() < 2)
        throw InvalidParametersException("FormulaB_Multiply::FormulaB_Multiply()", "Set must have at least 2 terms.");
    std::vector<std::unique_ptr<FormulaEvaluator>> factors;
    for (const ConfigObject& x : set) factors.push_back(builder.build(x));
    return std::make_unique<FormulaB_Multiply>(std::move(factors));
}

std::unique_ptr<FormulaEvaluator> make_square_node(const FormulaNode& node, FormulaBuilder& builder) {
    return std::make_unique<FormulaB_Square>(builder.build(node.argument()));
}

std::unique_ptr<FormulaEvaluator> make_checked_multiply_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_CheckedMultiply::FormulaB_CheckedMultiply()";
    const ConfigObject& argument = node.argument().as_object("CheckedMultiply");
    argument.get_bool("ReducedMemory", function);
    auto a = builder.build(argument.get("Input0", function));
    auto b = builder.build(argument.get("Input1", function));
    return std::make_unique<FormulaB_CheckedMultiply>(std::move(a), std::move(b));
}

}  // namespace qmp
