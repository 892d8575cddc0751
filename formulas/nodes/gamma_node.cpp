// Gamma {Numerator a, Denominator b} = Gamma(a/b) for 1 <= b <= a < 65535, by the incomplete
// gamma series. With s = a/b and an integer N,
//   Gamma(s) = e^-N N^s sum_{k>=0} N^k / (s (s+1) ... (s+k)) + int_N^inf t^(s-1) e^-t dt,
// a series of positive terms (no cancellation) with the term ratio N b / (a + k b), summed by
// binary splitting (SeriesHypergeometric {CoefficientQ b, CoefficientP b, CoefficientD a}).
// The tail is below 2 N^(s-1) e^-N for N >= 2 s, so N is the least integer with
// N - (s - 1) ln N >= 64 (p + 1) ln 2 + 2 and N >= 2 s: the tail stays below 2^(-64 p) Gamma(s)
// (Gamma(s) > 0.88 for s >= 1). The series takes about 3.6 N terms. N depends on the precision,
// so the formula is built when the node is planned. N b must fit 62 bits ("Internal overflow.").
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "formulas/nodes/function_node_text.h"
#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"

namespace qmp {

namespace {

namespace ft = function_text;

constexpr int64_t gamma_limit = 65535;
constexpr double max_series_coefficient = 4611686018427387904.0;  // 2^62

ConfigObject integers(std::initializer_list<int64_t> values) {
    ConfigObject a = ConfigObject::make_array();
    for (int64_t v : values) a.push_back(ft::integer(v));
    return a;
}

class FormulaB_Gamma : public FormulaEvaluator {
public:
    FormulaB_Gamma(int64_t a, int64_t b) : FormulaEvaluator("FormulaB_Gamma"), a_(a), b_(b) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        if (body_) visit(*body_);
    }

    // The N of the header for p words.
    static double series_point(int64_t a, int64_t b, uint64_t p) {
        const double s = double(a) / double(b);
        const double target = 64.0 * double(p + 1) * std::log(2.0) + 2.0;
        double n = std::max(target, 2.0 * s);
        for (int i = 0; i < 64; i++) n = std::max(target + (s - 1.0) * std::log(n), 2.0 * s);
        return std::ceil(n) + 1.0;
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        const double n = series_point(a_, b_, p);
        if (!(n * double(b_) < max_series_coefficient))
            throw InvalidParametersException("FormulaB_Gamma::plan()", "Internal overflow.");
        const int64_t N = int64_t(n);
        ConfigObject series = ConfigObject::make_object();
        series.add_integer("Power", 1);
        series.add_integer("CoefficientP", b_);
        series.add_integer("CoefficientQ", b_);
        series.add_integer("CoefficientD", a_);
        series.add_node("PolynomialP", integers({N * b_}));
        series.add_node("PolynomialQ", integers({a_, b_}));
        series.add_node("PolynomialR", integers({N * b_}));
        series.add_integer("TermsGrouped", 1);
        ConfigObject e_series = ConfigObject::make_object();  // e^-1
        e_series.add_integer("Power", 1);
        e_series.add_integer("CoefficientP", 1);
        e_series.add_integer("CoefficientQ", 0);
        e_series.add_integer("CoefficientD", 1);
        e_series.add_bool("Alternating", true);
        ConfigObject n_power = ft::node("Power", ft::array({ft::integer(N), ft::integer(a_)}));  // N^a
        if (b_ > 1)  // N^(a/b) = 1 / (N^a)^(-1/b)
            n_power = ft::node("Reciprocal", ft::node("InvNthRoot", ft::array({ft::integer(b_), std::move(n_power)})));
        const ConfigObject text = ft::node(
            "Multiply", ft::array({ft::node("SeriesHypergeometric", std::move(series)), std::move(n_power),
                                   ft::node("Power", ft::array({ft::node("SeriesETaylor", std::move(e_series)), ft::integer(N)}))}));
        FormulaBuilder builder(builtin_node_registry());
        body_ = builder.build(text);
        body_->plan(p, context);
        FormulaSizing s;
        s.output_words = body_->sizing().output_words;
        s.scratch_bytes = body_->sizing().scratch_bytes;
        s.checkpoint_bytes = body_->sizing().checkpoint_bytes;
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        body_->evaluate(out, buffer_of(out), scratch, context);
    }

private:
    int64_t a_, b_;
    std::unique_ptr<FormulaEvaluator> body_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_gamma_node(const FormulaNode& node, FormulaBuilder&) {
    const char* function = "FormulaB_Gamma::FormulaB_Gamma()";
    const ConfigObject& argument = node.argument().as_object("Gamma");
    const int64_t a = argument.get_integer("Numerator", function);
    const int64_t b = argument.get_integer("Denominator", function);
    if (a < 1 || a >= gamma_limit) throw InvalidParametersException(function, "a must be in: [1, 65535)");
    if (b < 1 || b >= gamma_limit) throw InvalidParametersException(function, "b must be in: [1, 65535)");
    if (a < b) throw InvalidParametersException(function, "Failed: a < b");
    return std::make_unique<FormulaB_Gamma>(a, b);
}

}  // namespace qmp
