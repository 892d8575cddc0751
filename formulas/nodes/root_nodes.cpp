// Roots and the arithmetic-geometric mean:
//   Sqrt x            x * x^(-1/2) (qmp/functions/invsqrt.h, SqrtFloat);
//   Invsqrt x         x^(-1/2); an integer argument n uses the word form and must be positive
//                     ("Argument is invalid: ") and not a perfect square;
//   InvNthRoot [n x]  x^(-1/n), 2 <= n < 65536, by factored Newton roots;
//   AGM [a b] or x    AGM(a, b), or AGM(1, x): a' = (a + b)/2, b' = sqrt(a b) until a and b
//                     agree to p - 1 words; convergence is quadratic once they agree to half
//                     the words, so the number of steps is bounded (max_agm_steps) and a run
//                     that exceeds it (b = 0, say) fails with AlgorithmFailedException.
#include <algorithm>
#include <bit>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "qmp/functions/inv_nth_root.h"
#include "qmp/functions/invsqrt.h"

namespace qmp {

namespace {

// A one-child node whose value is a Newton function of the child: Plan has scratch_bytes() and
// run(y, x, p, scratch, parallelizer, tds) (run_factored for the n-th root).
template <typename Plan>
class FormulaB_RootOf : public FormulaEvaluator {
public:
    FormulaB_RootOf(const char* class_name, std::unique_ptr<FormulaEvaluator> x, uint32_t degree = 0)
        : FormulaEvaluator(class_name), x_(std::move(x)), degree_(degree) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { visit(*x_); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        x_->plan(p, context);
        if constexpr (std::is_same_v<Plan, InvNthRootFloat_BigFloatR_P<uint64_t>>)
            plan_.emplace(*context.table, degree_, p, context.tds);
        else
            plan_.emplace(*context.table, p, context.tds);
        return one_child_plan_sizing(*x_, p, plan_->scratch_bytes());
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        FormulaFloat x;
        evaluate_child(*x_, x, scratch, context);
        context.report("Inverting: ");
        if constexpr (std::is_same_v<Plan, InvNthRootFloat_BigFloatR_P<uint64_t>>)
            plan_->run_factored(out, x, precision(), scratch, context.parallelizer, context.tds);
        else
            plan_->run(out, x, precision(), scratch, context.parallelizer, context.tds);
    }

private:
    std::unique_ptr<FormulaEvaluator> x_;
    uint32_t degree_;
    std::optional<Plan> plan_;
};

class FormulaB_InvsqrtWord : public FormulaEvaluator {
public:
    explicit FormulaB_InvsqrtWord(uint64_t n) : FormulaEvaluator("FormulaB_InvsqrtWord"), n_(n) {}

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        plan_.emplace(*context.table, p, context.tds);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = plan_->scratch_bytes();
        s.checkpoint_bytes = value_bytes(s.output_words);
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        context.report("Inverting: ");
        plan_->run(out, n_, precision(), scratch, context.parallelizer, context.tds);
    }

private:
    uint64_t n_;
    std::optional<InvsqrtWord_BigFloatR<uint64_t>> plan_;
};

class FormulaB_AGM : public FormulaEvaluator {
public:
    // a = nullptr means a = 1.
    FormulaB_AGM(std::unique_ptr<FormulaEvaluator> a, std::unique_ptr<FormulaEvaluator> b)
        : FormulaEvaluator("FormulaB_AGM"), a_(std::move(a)), b_(std::move(b)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        if (a_) visit(*a_);
        visit(*b_);
    }

    // Steps for p words: the start may be far from convergence (a/b up to 2^(64 p), which takes
    // about log2(64 p) steps to bring a/b near 1), then log2(64 p) doubling steps; twice that
    // plus a margin.
    static uint64_t max_agm_steps(uint64_t p) { return 2 * uint64_t(std::bit_width(64 * p)) + 16; }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        if (a_) a_->plan(p, context);
        b_->plan(p, context);
        sqrt_.emplace(*context.table, p, context.tds);
        const uint64_t n = node_value_words(p);
        uint64_t children = b_->sizing().scratch_bytes;
        if (a_) children = std::max(children, a_->sizing().scratch_bytes);
        const uint64_t tail = std::max(node_mul_scratch_bytes(context, p), sqrt_->scratch_bytes());
        FormulaSizing s;
        s.output_words = n;
        s.scratch_bytes = 5 * value_bytes(n) + std::max(children, tail);
        s.checkpoint_bytes = 2 * value_bytes(n);
        s.buffers = {{"m_bufferA_x_words", n}, {"m_bufferB_x_words", n}, {"m_sum_words", n},
                     {"m_product_words", n}, {"m_root_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const uint64_t p = precision(), n = node_value_words(p);
        AlignedBufferC a_buffer = scratch.spawn_words<uint64_t>(n), b_buffer = scratch.spawn_words<uint64_t>(n);
        FormulaFloat a(a_buffer), b(b_buffer);
        FormulaFloat sum = carve_value(scratch, n), product = carve_value(scratch, n), root = carve_value(scratch, n);
        if (a_)
            a_->evaluate(a, a_buffer, scratch, context);
        else
            set_integer(a, 1);
        b_->evaluate(b, b_buffer, scratch, context);
        if (a.L == 0 || b.L == 0 || !a.sign || !b.sign)
            throw InvalidParametersException(run_name(), "Argument is invalid: the means need positive values.");
        a.set_BigFloat(a, p);
        b.set_BigFloat(b, p);
        for (uint64_t step = 0;; step++) {
            // Converged when |a - b| < B^(1 - p) a.
            product.set_usub(a, b, p);
            if (product.L == 0 || a.top() - product.top() >= int64_t(p) - 1) break;
            if (step == max_agm_steps(p)) throw AlgorithmFailedException(run_name(), "AGM did not converge.");
            context.report("Multiplying: ");
            sum.set_uadd(a, b, p);
            shift_in_place(sum, -1);
            product.set_mul(a, b, p, *context.table, scratch, context.parallelizer, context.tds);
            sqrt_->run(root, product, p, scratch, context.parallelizer, context.tds);
            std::swap(a, sum);
            std::swap(b, root);
        }
        out.set_BigFloat(a);
    }

private:
    std::unique_ptr<FormulaEvaluator> a_, b_;
    std::optional<SqrtFloat_BigFloatR<uint64_t>> sqrt_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_sqrt_node(const FormulaNode& node, FormulaBuilder& builder) {
    return std::make_unique<FormulaB_RootOf<SqrtFloat_BigFloatR<uint64_t>>>("FormulaB_Sqrt", builder.build(node.argument()));
}

std::unique_ptr<FormulaEvaluator> make_invsqrt_node(const FormulaNode& node, FormulaBuilder& builder) {
    const FormulaNode argument(node.argument());
    if (argument.is_integer()) {
        const char* function = "FormulaB_InvsqrtWord::FormulaB_InvsqrtWord()";
        const int64_t n = argument.get_as_integer();
        if (n <= 0) throw InvalidParametersException(function, "Argument is invalid: " + std::to_string(n));
        check_invsqrt_word_argument(uint64_t(n), function);
        return std::make_unique<FormulaB_InvsqrtWord>(uint64_t(n));
    }
    return std::make_unique<FormulaB_RootOf<InvsqrtFloat_BigFloatR<uint64_t>>>("FormulaB_Invsqrt",
                                                                              builder.build(argument));
}

std::unique_ptr<FormulaEvaluator> make_inv_nth_root_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_InvNthRoot::FormulaB_InvNthRoot()";
    const std::vector<ConfigObject>& set = node.argument().as_array_exact(2, "InvNthRoot");
    const int64_t degree = FormulaNode(set[0]).get_as_integer();
    if (degree < 2) throw InvalidParametersException(function, "Degree must be greater than 1.");
    if (degree > 65535) throw InvalidParametersException(function, "Degree must be less than 65536.");
    return std::make_unique<FormulaB_RootOf<InvNthRootFloat_BigFloatR_P<uint64_t>>>(
        "FormulaB_InvNthRoot", builder.build(set[1]), uint32_t(degree));
}

std::unique_ptr<FormulaEvaluator> make_agm_node(const FormulaNode& node, FormulaBuilder& builder) {
    if (node.argument().kind() != ConfigKind::Array)
        return std::make_unique<FormulaB_AGM>(nullptr, builder.build(node.argument()));
    const std::vector<ConfigObject>& set = node.argument().as_array();
    if (set.size() != 2) throw InvalidParametersException("FormulaB_AGM::FormulaB_AGM()", "Set must have exactly 2 terms.");
    auto a = builder.build(set[0]);
    return std::make_unique<FormulaB_AGM>(std::move(a), builder.build(set[1]));
}

}  // namespace qmp
