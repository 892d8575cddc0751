// The built-in constants as nodes: Pi, Log2, GoldenRatio, Lemniscate, Zeta3, Catalan and
// EulerGamma take an object of options ({} for the defaults) and compile the catalog's primary
// formula of their constant as a sub-tree, so that a formula computes a constant exactly as
// the catalog does. Log2 takes an optional Coefficient c (default 1) and gives c log 2.
// EulerGamma's formula depends on the precision (the Brent-McMillan n = 2^k is sized from the
// digits), so its sub-tree is generated and compiled when the node is planned.
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "formulas/catalog/formula_generator.h"
#include "formulas/catalog/formula_text.h"
#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "formulas/nodes/series_value.h"

namespace qmp {

namespace {

ConfigObject primary_formula(const char* constant, uint64_t digits = 0) {
    qv::FormulaRequest request;
    request.constant = constant;
    request.digits = digits;
    return parse_cfg(qv::generate_formula(request).text);
}

std::unique_ptr<FormulaEvaluator> make_constant(const FormulaNode& node, FormulaBuilder& builder, const char* name,
                                                const char* constant) {
    node.argument().as_object(name);
    return build_composite(builder, primary_formula(constant));
}

// Decimal digits held by p words: 64 log10(2) per word.
constexpr double kDigitsPerWord = 19.265919722494796;

class FormulaB_EulerGamma : public FormulaEvaluator {
public:
    FormulaB_EulerGamma() : FormulaEvaluator("FormulaB_EulerGamma") {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        if (formula_) visit(*formula_);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        FormulaBuilder builder(builtin_node_registry());
        formula_ = builder.build(primary_formula("gamma", uint64_t(std::ceil(double(p) * kDigitsPerWord))));
        formula_->plan(p, context);
        FormulaSizing s = formula_->sizing();
        s.output_words = std::max(s.output_words, node_value_words(p));
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        formula_->evaluate(out, buffer_of(out), scratch, context);
    }

private:
    std::unique_ptr<FormulaEvaluator> formula_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_pi_constant_node(const FormulaNode& node, FormulaBuilder& builder) {
    return make_constant(node, builder, "Pi", "pi");
}

std::unique_ptr<FormulaEvaluator> make_golden_ratio_constant_node(const FormulaNode& node, FormulaBuilder& builder) {
    return make_constant(node, builder, "GoldenRatio", "goldenratio");
}

std::unique_ptr<FormulaEvaluator> make_lemniscate_constant_node(const FormulaNode& node, FormulaBuilder& builder) {
    return make_constant(node, builder, "Lemniscate", "lemniscate");
}

std::unique_ptr<FormulaEvaluator> make_zeta3_constant_node(const FormulaNode& node, FormulaBuilder& builder) {
    return make_constant(node, builder, "Zeta3", "zeta3");
}

std::unique_ptr<FormulaEvaluator> make_catalan_constant_node(const FormulaNode& node, FormulaBuilder& builder) {
    return make_constant(node, builder, "Catalan", "catalan");
}

std::unique_ptr<FormulaEvaluator> make_log2_constant_node(const FormulaNode& node, FormulaBuilder& builder) {
    const ConfigObject& argument = node.argument().as_object("Log2");
    const int64_t c = argument.contains("Coefficient") ? argument.get_integer("Coefficient", "FormulaB_Log2::FormulaB_Log2()") : 1;
    qv::FormulaRequest request;
    request.constant = "log";
    request.argument = 2;
    ConfigObject tree = parse_cfg(qv::generate_formula(request).text);
    if (c != 1) tree = qv::formula_text::linear_combination({{c, std::move(tree)}});
    return build_composite(builder, tree);
}

std::unique_ptr<FormulaEvaluator> make_euler_gamma_constant_node(const FormulaNode& node, FormulaBuilder&) {
    node.argument().as_object("EulerGamma");
    return std::make_unique<FormulaB_EulerGamma>();
}

}  // namespace qmp
