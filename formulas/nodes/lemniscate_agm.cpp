// 2 varpi by one arithmetic-geometric mean, with no separate pi (see lemniscate_agm.h).
//
// The Gauss-Legendre iteration from a = 1, b = 1/sqrt 2 gives M = AGM(1, 1/sqrt 2) and
// D = 1 - sum_{j>=1} 2^(j+1) c_j^2, c_j = (a_{j-1} - b_{j-1}) / 2, with pi = 4 M^2 / D. Since
// AGM(1, sqrt 2) = sqrt 2 M and varpi = pi / AGM(1, sqrt 2):
//   2 varpi = 4 sqrt 2 M / D.
// The AGM runs at p + 1 words (its steps lose nothing but rounding); c_j shrinks quadratically,
// so c_j^2 is formed only to the words that reach the precision of D.
#include "formulas/nodes/lemniscate_agm.h"

#include <algorithm>
#include <bit>
#include <optional>

#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"
#include "qmp/functions/division.h"
#include "qmp/functions/invsqrt.h"

namespace qmp {

namespace {

constexpr uint64_t kGuardWords = 1;
constexpr uint64_t kValues = 10;  // scale, sqrt 2, a, b, sum, product, root, c^2, D, D'

class FormulaB_LemniscateAGM : public FormulaEvaluator {
public:
    FormulaB_LemniscateAGM(const char* class_name, std::unique_ptr<FormulaEvaluator> scale)
        : FormulaEvaluator(class_name), scale_(std::move(scale)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        visit(*scale_);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        scale_->plan(p, context);
        const uint64_t q = p + kGuardWords;
        sqrt_.emplace(*context.table, q, context.tds);
        division_.emplace(*context.table, q, context.tds);
        const uint64_t n = node_value_words(q);
        const uint64_t tail =
            std::max({node_mul_scratch_bytes(context, q), sqrt_->scratch_bytes(), division_->scratch_bytes()});
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = std::max(scale_->total_bytes(), value_bytes(scale_->sizing().output_words) +
                                                              (kValues - 1) * value_bytes(n) + tail);
        s.checkpoint_bytes = 3 * value_bytes(n);
        s.buffers = {{"m_sqrt2_words", n}, {"m_a_words", n}, {"m_b_words", n}, {"m_sum_words", n}, {"m_product_words", n},
                     {"m_root_words", n}, {"m_square_words", n}, {"m_denominator_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const uint64_t p = precision(), q = p + kGuardWords, n = node_value_words(q);
        FormulaFloat scale;
        evaluate_child(*scale_, scale, scratch, context);
        FormulaFloat root2 = carve_value(scratch, n);
        FormulaFloat a = carve_value(scratch, n), b = carve_value(scratch, n), sum = carve_value(scratch, n);
        FormulaFloat product = carve_value(scratch, n), root = carve_value(scratch, n);
        FormulaFloat square = carve_value(scratch, n), D = carve_value(scratch, n), next = carve_value(scratch, n);
        Parallelizer* par = context.parallelizer;
        const uint64_t tds = context.tds;

        // b = sqrt(2) / 2; sqrt 2 is kept for the end.
        context.report("Square Root: ");
        set_integer(product, 2);
        sqrt_->run(root2, product, q, scratch, par, tds);
        b.set_BigFloat(root2);
        shift_in_place(b, -1);
        set_integer(a, 1);
        set_integer(D, 1);
        for (uint64_t j = 1;; ++j) {
            product.set_usub(a, b, q);  // a >= b throughout
            if (product.L == 0 || a.top() - product.top() >= int64_t(q) - 1) break;
            if (j > max_steps(q)) throw AlgorithmFailedException(run_name(), "AGM did not converge.");
            context.report("Multiplying: ");
            // D -= 2^(j+1) c_j^2 = 2^(j-1) (a - b)^2, to the words that reach 2^(-64 q).
            const int64_t lost = 2 * (a.top() - product.top());
            const uint64_t words = lost >= int64_t(q) ? 1 : q - uint64_t(lost);
            square.set_mul(product, product, words, *context.table, scratch, par, tds);
            shift_in_place(square, int64_t(j) - 1);
            square.sign = false;
            signed_add(next, D, square, q);
            std::swap(D, next);
            // The AGM step.
            sum.set_uadd(a, b, q);
            shift_in_place(sum, -1);
            product.set_mul(a, b, q, *context.table, scratch, par, tds);
            sqrt_->run(root, product, q, scratch, par, tds);
            std::swap(a, sum);
            std::swap(b, root);
        }
        // 2 varpi = 4 sqrt(2) M / D.
        context.report("Dividing: ");
        product.set_mul(root2, a, q, *context.table, scratch, par, tds);
        shift_in_place(product, 2);
        division_->run(sum, product, D, q, scratch, par, tds);
        context.report("Multiplying: ");
        out.set_mul(sum, scale, p, *context.table, scratch, par, tds);
    }

private:
    static uint64_t max_steps(uint64_t q) { return 2 * uint64_t(std::bit_width(64 * q)) + 16; }

    std::unique_ptr<FormulaEvaluator> scale_;
    std::optional<SqrtFloat_BigFloatR<uint64_t>> sqrt_;
    std::optional<Division_BigFloatR<uint64_t>> division_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_lemniscate_agm_evaluator(const char* class_name,
                                                                std::unique_ptr<FormulaEvaluator> scale) {
    return std::make_unique<FormulaB_LemniscateAGM>(class_name, std::move(scale));
}

}  // namespace qmp
