// The hyperbolic functions and their inverses, written as formulas over Exp, Log and the
// arithmetic nodes, and Power with a non-integer exponent:
//   Sinh, Cosh  (E -+ 1/E)/2 with E = Exp(x) a scope local;  Sech, Csch  2/(E +- 1/E);
//   Tanh, Coth  (E - 1)/(E + 1) and its inverse with E = Exp(2x);
//   ArcSinh x   ln(x + sqrt(x^2 + 1));     ArcCosh x  ln(x + sqrt(x^2 - 1)), x > 1;
//   ArcTanh x   ln((1 + x)/(1 - x))/2;     ArcCoth x  ln((x + 1)/(x - 1))/2, |x| > 1;
//   ArcSech x   ArcCosh(1/x);              ArcCsch x  ArcSinh(1/x);
//   Power [x y] exp(y ln x) for a node y, inside a scope that shares pi and ln 2.
// Cancellation is not compensated: sinh and tanh of a tiny x, ArcSinh of a negative x and the
// logarithms of arguments near 1 lose the leading words in which the operands agree (about
// log2(1/|x|) bits for sinh x), as in any fixed-precision evaluation. The domain checks run on
// the argument's value ("Argument must be greater than 1: x = "), at build time for an integer.
#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "formulas/language/formula_scope.h"
#include "formulas/nodes/agm_logarithm.h"
#include "formulas/nodes/function_node_text.h"
#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"

namespace qmp {

namespace {

namespace ft = function_text;

constexpr const char* greater_than_one = "Argument must be greater than 1: x = ";

// True when x > 1 (or |x| > 1 when `absolute`).
bool exceeds_one(const FormulaFloat& x, bool absolute) {
    if (x.L == 0 || (!x.sign && !absolute)) return false;
    const int64_t e = floor_log2(x);
    if (e != 0) return e > 0;
    // 1 <= |x| < 2: greater than 1 unless every word below the top one is zero.
    if (x.T[x.L - 1] != 1) return true;
    for (uint64_t i = 0; i + 1 < x.L; i++)
        if (x.T[i] != 0) return true;
    return false;
}

std::string describe(double x) {
    std::ostringstream text;
    text.precision(17);
    text << x;
    return text.str();
}

using Text = ConfigObject;

Text exp_of(Text x) { return ft::node("Exp", std::move(x)); }
Text log_of(Text x) {
    ConfigObject argument = ConfigObject::make_object();
    argument.add_node("x", std::move(x));
    return ft::node("Log", std::move(argument));
}
Text shift(Text x, int64_t bits) { return ft::node("Shift", ft::array({std::move(x), ft::integer(bits)})); }
Text reciprocal(Text x) { return ft::node("Reciprocal", std::move(x)); }
Text divide(Text a, Text b) { return ft::node("Divide", ft::array({std::move(a), std::move(b)})); }

enum class Hyperbolic { Sinh, Cosh, Tanh, Coth, Sech, Csch };

Text hyperbolic_text(Hyperbolic f, const Text& x) {
    const std::string e = ft::fresh_name("exp");
    const Text E = ft::reference(e);
    switch (f) {
        case Hyperbolic::Sinh:
            return ft::scope1(e, exp_of(x), shift(ft::linear({{1, E}, {-1, reciprocal(E)}}), -1));
        case Hyperbolic::Cosh:
            return ft::scope1(e, exp_of(x), shift(ft::linear({{1, E}, {1, reciprocal(E)}}), -1));
        case Hyperbolic::Sech:
            return ft::scope1(e, exp_of(x), shift(reciprocal(ft::linear({{1, E}, {1, reciprocal(E)}})), 1));
        case Hyperbolic::Csch:
            return ft::scope1(e, exp_of(x), shift(reciprocal(ft::linear({{1, E}, {-1, reciprocal(E)}})), 1));
        case Hyperbolic::Tanh:
            return ft::scope1(e, exp_of(shift(x, 1)),
                              divide(ft::linear({{1, E}, {-1, ft::integer(1)}}), ft::linear({{1, E}, {1, ft::integer(1)}})));
        case Hyperbolic::Coth:
            return ft::scope1(e, exp_of(shift(x, 1)),
                              divide(ft::linear({{1, E}, {1, ft::integer(1)}}), ft::linear({{1, E}, {-1, ft::integer(1)}})));
    }
    return x;
}

// ln(x + sqrt(x^2 + sign)) for a checked or plain x.
Text arc_sinh_cosh_text(Text x, int64_t sign) {
    const std::string v = ft::fresh_name("x");
    const Text X = ft::reference(v);
    const Text root = ft::node("Sqrt", ft::linear({{1, ft::node("Square", X)}, {sign, ft::integer(1)}}));
    return ft::scope1(v, std::move(x), log_of(ft::linear({{1, X}, {1, root}})));
}

// ln((1 + x)/(1 - x))/2 when `inverted` is false, ln((x + 1)/(x - 1))/2 when true.
Text arc_tanh_coth_text(Text x, bool inverted) {
    const std::string v = ft::fresh_name("x");
    const Text X = ft::reference(v);
    const Text plus = ft::linear({{1, ft::integer(1)}, {1, X}});
    const Text minus = inverted ? ft::linear({{1, X}, {-1, ft::integer(1)}}) : ft::linear({{1, ft::integer(1)}, {-1, X}});
    return ft::scope1(v, std::move(x), shift(log_of(divide(plus, minus)), -1));
}

// A scope of one local, the function's argument, checked to exceed 1 (in magnitude when
// `absolute`) before the body that loads it runs.
class FormulaB_CheckedArgument : public FormulaEvaluator {
public:
    FormulaB_CheckedArgument(std::unique_ptr<VariableSlot> slot, std::unique_ptr<FormulaEvaluator> x,
                             std::unique_ptr<FormulaEvaluator> body, bool absolute)
        : FormulaEvaluator("FormulaB_CheckedArgument"), slot_(std::move(slot)), x_(std::move(x)),
          body_(std::move(body)), absolute_(absolute) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        visit(*x_);
        visit(*body_);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        x_->plan(p, context);
        body_->plan(p, context);
        const uint64_t local = value_bytes(x_->sizing().output_words);
        FormulaSizing s;
        s.output_words = body_->sizing().output_words;
        s.scratch_bytes = local + std::max(x_->sizing().scratch_bytes, body_->sizing().scratch_bytes);
        s.checkpoint_bytes = local;
        s.buffers = {{"m_x_words", x_->sizing().output_words}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        AlignedBufferC local = scratch.spawn_words<uint64_t>(x_->sizing().output_words);
        struct Expire {
            VariableSlot& slot;
            ~Expire() { slot.ready = false; }
        } expire{*slot_};
        x_->evaluate(slot_->value, local, scratch, context);
        if (!exceeds_one(slot_->value, absolute_))
            throw InvalidParametersException(run_name(), greater_than_one + describe(to_double(slot_->value)));
        slot_->ready = true;
        body_->evaluate(out, buffer_of(out), scratch, context);
    }

private:
    std::unique_ptr<VariableSlot> slot_;
    std::unique_ptr<FormulaEvaluator> x_, body_;
    bool absolute_;
};

// Builds make_text(reference to the checked argument) with that argument as a checked local.
// An integer argument is checked at once.
std::unique_ptr<FormulaEvaluator> build_checked(const ConfigObject& x, bool absolute, FormulaBuilder& builder,
                                                const char* function, Text (*make_text)(const Text&)) {
    const FormulaNode argument(x);
    if (argument.is_integer()) {
        const int64_t n = argument.get_as_integer();
        if (absolute ? (n > -2 && n < 2) : n < 2)
            throw InvalidParametersException(function, greater_than_one + std::to_string(n));
    }
    auto slot = std::make_unique<VariableSlot>();
    slot->name = ft::fresh_name("arg");
    std::unique_ptr<FormulaEvaluator> x_node = builder.build(x);
    FormulaScopeStack& scopes = builder.scopes();
    scopes.push();
    bool open = true;
    struct Unwind {
        FormulaScopeStack& scopes;
        bool& open;
        ~Unwind() {
            if (open) scopes.pop_unchecked();
        }
    } unwind{scopes, open};
    scopes.declare(*slot);
    slot->defined = true;
    std::unique_ptr<FormulaEvaluator> body = builder.build(make_text(ft::reference(slot->name)));
    open = false;
    scopes.pop_checked();
    return std::make_unique<FormulaB_CheckedArgument>(std::move(slot), std::move(x_node), std::move(body), absolute);
}

Text arccosh_text(const Text& x) { return arc_sinh_cosh_text(x, -1); }
Text arccoth_text(const Text& x) { return arc_tanh_coth_text(x, true); }

}  // namespace

#define QMP_HYPERBOLIC_FACTORY(NAME, KIND)                                                            \
    std::unique_ptr<FormulaEvaluator> NAME(const FormulaNode& node, FormulaBuilder& builder) {          \
        return builder.build(hyperbolic_text(Hyperbolic::KIND, node.argument()));                      \
    }
QMP_HYPERBOLIC_FACTORY(make_sinh_node, Sinh)
QMP_HYPERBOLIC_FACTORY(make_cosh_node, Cosh)
QMP_HYPERBOLIC_FACTORY(make_tanh_node, Tanh)
QMP_HYPERBOLIC_FACTORY(make_coth_node, Coth)
QMP_HYPERBOLIC_FACTORY(make_sech_node, Sech)
QMP_HYPERBOLIC_FACTORY(make_csch_node, Csch)
#undef QMP_HYPERBOLIC_FACTORY

}  // namespace qmp

namespace qmp {

std::unique_ptr<FormulaEvaluator> make_arcsinh_node(const FormulaNode& node, FormulaBuilder& builder) {
    return builder.build(arc_sinh_cosh_text(node.argument(), 1));
}
std::unique_ptr<FormulaEvaluator> make_arccosh_node(const FormulaNode& node, FormulaBuilder& builder) {
    return build_checked(node.argument(), false, builder, "FormulaB_ArcCosh::FormulaB_ArcCosh()", arccosh_text);
}
std::unique_ptr<FormulaEvaluator> make_arctanh_node(const FormulaNode& node, FormulaBuilder& builder) {
    return builder.build(arc_tanh_coth_text(node.argument(), false));
}
std::unique_ptr<FormulaEvaluator> make_arccoth_function_node(const FormulaNode& node, FormulaBuilder& builder) {
    return build_checked(node.argument(), true, builder, "FormulaB_ArcCoth::FormulaB_ArcCoth()", arccoth_text);
}
std::unique_ptr<FormulaEvaluator> make_arcsech_node(const FormulaNode& node, FormulaBuilder& builder) {
    // arcsech x = arccosh(1/x): 1/x > 1 for 0 < x < 1.
    return build_checked(reciprocal(node.argument()), false, builder, "FormulaB_ArcSech::FormulaB_ArcSech()",
                         arccosh_text);
}
std::unique_ptr<FormulaEvaluator> make_arccsch_node(const FormulaNode& node, FormulaBuilder& builder) {
    return builder.build(arc_sinh_cosh_text(reciprocal(node.argument()), 1));
}

std::unique_ptr<FormulaEvaluator> make_real_power_node(const FormulaNode& node, FormulaBuilder& builder) {
    // x^y = exp(y ln x); the logarithm and the exponential share one pi and one ln 2.
    const std::vector<ConfigObject>& set = node.argument().as_array_exact(2, "Power");
    const std::string pi = ft::fresh_name("pi"), log2 = ft::fresh_name("log2");
    const Text pi_node = ft::default_pi();
    const Text log2_node = ft::builtin_has("Log2") ? ft::default_log2(pi_node) : [&] {
        ConfigObject argument = ConfigObject::make_object();
        argument.add_node("Pi", ft::reference(pi));
        argument.add_integer("Argument", 2);
        return ft::node("Log-AGM", std::move(argument));
    }();
    ConfigObject log_argument = ConfigObject::make_object();
    log_argument.add_node("x", set[0]);
    log_argument.add_node("Pi", ft::reference(pi));
    log_argument.add_node("Log2", ft::reference(log2));
    ConfigObject exp_argument = ConfigObject::make_object();
    exp_argument.add_node("x", ft::node("Multiply", ft::array({set[1], ft::node("Log", std::move(log_argument))})));
    exp_argument.add_node("Pi", ft::reference(pi));
    exp_argument.add_node("Log2", ft::reference(log2));
    ConfigObject scope = ConfigObject::make_object();
    scope.add_node("Locals", ft::array({ft::node(pi, pi_node), ft::node(log2, log2_node)}));
    scope.add_node("Formula", ft::node("Exp", std::move(exp_argument)));
    return builder.build(ft::node("Scope", std::move(scope)));
}

}  // namespace qmp
