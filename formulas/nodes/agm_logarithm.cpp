// The AGM logarithm kernel; see agm_logarithm.h.
#include "formulas/nodes/agm_logarithm.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>
#include <utility>

#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"

namespace qmp {

namespace {

// Target size of s = x 2^m in bits: s^2 >= 2^(64 q) * 4 ln s with a margin of 2^8.
int64_t agm_target_bits(uint64_t q) { return int64_t(32 * q + 8 + uint64_t(std::bit_width(64 * q))); }

// The kernel works one word beyond the precision it is asked for: the AGM stops when a and b
// agree to all but one of its words, and the subtraction of m ln 2 costs up to ~50 bits.
constexpr uint64_t internal_guard_words = 1;
constexpr uint64_t agm_values = 8;  // a, b, sum, product, root, agm part, m ln 2, ln 2

}  // namespace

int64_t floor_log2(const FormulaFloat& x) {
    return 64 * (x.top() - 1) + int64_t(std::bit_width(x.T[x.L - 1])) - 1;
}

double to_double(const FormulaFloat& x) {
    if (x.L == 0) return 0.0;
    double v = double(x.T[x.L - 1]);
    if (x.L > 1) v += std::ldexp(double(x.T[x.L - 2]), -64);
    const int64_t e = 64 * (x.top() - 1);
    const double r = std::ldexp(v, int(std::clamp<int64_t>(e, -100000, 100000)));
    return x.sign ? r : -r;
}

uint64_t AgmLogarithm::max_steps(uint64_t q) { return 2 * uint64_t(std::bit_width(64 * q)) + 16; }

void AgmLogarithm::plan(const FormulaContext& context, uint64_t max_q) {
    max_q += internal_guard_words;
    sqrt_.emplace(*context.table, max_q, context.tds);
    reciprocal_.emplace(*context.table, max_q, context.tds);
    const uint64_t tail =
        std::max({node_mul_scratch_bytes(context, max_q), sqrt_->scratch_bytes(), reciprocal_->scratch_bytes()});
    scratch_bytes_ = agm_values * value_bytes(node_value_words(max_q)) + tail;
}

void AgmLogarithm::agm_part(FormulaFloat& out, const FormulaFloat& x, int64_t m, const FormulaFloat& pi, uint64_t q,
                            AlignedBufferC& scratch, FormulaContext& context, const char* function) const {
    const uint64_t n = node_value_words(q);
    FormulaFloat a = carve_value(scratch, n), b = carve_value(scratch, n), sum = carve_value(scratch, n);
    FormulaFloat product = carve_value(scratch, n), root = carve_value(scratch, n);
    // b = 4/s = 2^(2 - m) / x, a = 1.
    context.report("Inverting: ");
    root.set_BigFloat(x, q);
    reciprocal_->run(b, root, q, scratch, context.parallelizer, context.tds);
    shift_in_place(b, 2 - m);
    set_integer(a, 1);
    for (uint64_t step = 0;; step++) {
        product.set_usub(a, b, q);
        if (product.L == 0 || a.top() - product.top() >= int64_t(q) - 1) break;
        if (step == max_steps(q)) throw AlgorithmFailedException(function, "AGM did not converge.");
        context.report("Multiplying: ");
        sum.set_uadd(a, b, q);
        shift_in_place(sum, -1);
        product.set_mul(a, b, q, *context.table, scratch, context.parallelizer, context.tds);
        sqrt_->run(root, product, q, scratch, context.parallelizer, context.tds);
        std::swap(a, sum);
        std::swap(b, root);
    }
    // out = pi / (2 a).
    context.report("Inverting: ");
    reciprocal_->run(root, a, q, scratch, context.parallelizer, context.tds);
    product.set_BigFloat(pi, q);
    out.set_mul(product, root, q, *context.table, scratch, context.parallelizer, context.tds);
    shift_in_place(out, -1);
}

void AgmLogarithm::log(FormulaFloat& out, const FormulaFloat& x, const FormulaFloat& pi, const FormulaFloat& log2,
                       uint64_t q, AlignedBufferC scratch, FormulaContext& context, const char* function) const {
    if (x.L == 0 || !x.sign) throw AlgorithmFailedException(function, "Argument must be positive.");
    const int64_t e = floor_log2(x);
    if (e > max_argument_bits || e < -max_argument_bits)
        throw InvalidParametersException(function, "Argument is too large: 2^" + std::to_string(e));
    q += internal_guard_words;
    const uint64_t n = node_value_words(q);
    FormulaFloat part = carve_value(scratch, n), scaled = carve_value(scratch, n);
    const int64_t m = agm_target_bits(q) - e;
    agm_part(part, x, m, pi, q, scratch, context, function);
    // ln x = part - m ln 2.
    context.report("Adding:  ");
    FormulaFloat l2 = carve_value(scratch, n);
    l2.set_BigFloat(log2, q);
    scaled.set_mul_uW(l2, m < 0 ? uint64_t(0) - uint64_t(m) : uint64_t(m));
    scaled.sign = m < 0;
    // At the working precision: the difference cancels the leading bits of m ln 2.
    signed_add(out, part, scaled, q);
}

void AgmLogarithm::log2(FormulaFloat& out, const FormulaFloat& pi, uint64_t q, AlignedBufferC scratch,
                        FormulaContext& context, const char* function) const {
    q += internal_guard_words;
    const uint64_t n = node_value_words(q);
    FormulaFloat one = carve_value(scratch, n), part = carve_value(scratch, n);
    set_integer(one, 1);
    const int64_t m = agm_target_bits(q);
    agm_part(part, one, m, pi, q, scratch, context, function);
    part.set_BigFloat(part, q - internal_guard_words);
    out.set_div_sW(part, m, q - internal_guard_words, context.parallelizer, context.tds);
}

}  // namespace qmp
