// Log-AGM, Log and Exp.
//   Log-AGM {Pi, Log2, Argument}  ln(Argument) by the AGM kernel (agm_logarithm.h). Pi and Log2
//       are usually references to locals of an enclosing scope, so that several logarithms share
//       them; any node is accepted. Without Pi the default pi subtree is built; without Log2,
//       ln 2 is computed by a second AGM from pi.
//   Log {x, Pi, Log2} or integer n  the same for x; n = 1 gives 0; an n whose prime factors are
//       at most 97 uses the registered Machin-like LogMachin node, any other n the AGM.
//   Exp {x, Pi, Log2} or node  e^x by Newton's iteration on the AGM logarithm,
//       y <- y + y (x - ln y), which doubles the correct bits per step. It starts from the double
//       value 2^k e^r (x = k ln 2 + r) and runs at word counts that roughly double up to p, so
//       the whole costs about two logarithms at p words. The result's relative error is the
//       absolute error of ln y, a few units of word p times max(|x|, 1); |x| is limited to 2^40.
// All three work at the precision they are planned at; the tree's guard words absorb the
// log2(m) bits that the subtraction of m ln 2 and a large |x| cost.
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formulas/nodes/agm_logarithm.h"
#include "formulas/nodes/function_node_text.h"
#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"

namespace qmp {

namespace {

namespace ft = function_text;

constexpr uint64_t machin_largest_prime_factor = 97;
constexpr double max_exp_argument = 1099511627776.0;  // 2^40

// The three inputs of a logarithm or exponential: x, pi and (optionally) ln 2.
struct LogInputs {
    std::unique_ptr<FormulaEvaluator> x, pi, log2;

    void visit(const std::function<void(const FormulaEvaluator&)>& f) const {
        f(*x);
        f(*pi);
        if (log2) f(*log2);
    }
    void plan(uint64_t p, const FormulaContext& context) {
        x->plan(p, context);
        pi->plan(p, context);
        if (log2) log2->plan(p, context);
    }
    uint64_t value_bytes_total() const {
        return value_bytes(x->sizing().output_words) + value_bytes(pi->sizing().output_words) +
               (log2 ? value_bytes(log2->sizing().output_words) : 0);
    }
    uint64_t child_scratch() const {
        uint64_t s = std::max(x->sizing().scratch_bytes, pi->sizing().scratch_bytes);
        return log2 ? std::max(s, log2->sizing().scratch_bytes) : s;
    }
};

// Evaluates x, pi and ln 2 into buffers carved from `scratch` (ln 2 by the kernel when absent).
struct LoadedInputs {
    FormulaFloat x, pi, log2;
};
LoadedInputs load_inputs(LogInputs& in, const AgmLogarithm& kernel, uint64_t p, AlignedBufferC& scratch,
                         FormulaContext& context, const char* function) {
    LoadedInputs v;
    AlignedBufferC xb = scratch.spawn_words<uint64_t>(in.x->sizing().output_words);
    AlignedBufferC pb = scratch.spawn_words<uint64_t>(in.pi->sizing().output_words);
    AlignedBufferC lb = scratch.spawn_words<uint64_t>(in.log2 ? in.log2->sizing().output_words : node_value_words(p));
    in.x->evaluate(v.x, xb, scratch, context);
    in.pi->evaluate(v.pi, pb, scratch, context);
    if (in.log2) {
        in.log2->evaluate(v.log2, lb, scratch, context);
    } else {
        v.log2 = FormulaFloat(lb);
        kernel.log2(v.log2, v.pi, p, scratch, context, function);
    }
    return v;
}

uint64_t inputs_bytes(const LogInputs& in, uint64_t p) {
    return in.value_bytes_total() + (in.log2 ? 0 : value_bytes(node_value_words(p)));
}

class FormulaB_LogAGM : public FormulaEvaluator {
public:
    explicit FormulaB_LogAGM(LogInputs in) : FormulaEvaluator("FormulaB_LogAGM"), in_(std::move(in)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { in_.visit(visit); }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        in_.plan(p, context);
        kernel_.plan(context, p);
        FormulaSizing s;
        s.output_words = node_value_words(p);
        s.scratch_bytes = inputs_bytes(in_, p) + std::max(in_.child_scratch(), kernel_.scratch_bytes());
        s.checkpoint_bytes = value_bytes(s.output_words);
        s.buffers = {{"m_x_words", in_.x->sizing().output_words}, {"m_pi_words", in_.pi->sizing().output_words},
                     {"m_log2_words", node_value_words(p)}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const std::string function = run_name();
        LoadedInputs v = load_inputs(in_, kernel_, precision(), scratch, context, function.c_str());
        kernel_.log(out, v.x, v.pi, v.log2, precision(), scratch, context, function.c_str());
    }

private:
    LogInputs in_;
    AgmLogarithm kernel_;
};

class FormulaB_Exp : public FormulaEvaluator {
public:
    explicit FormulaB_Exp(LogInputs in) : FormulaEvaluator("FormulaB_Exp"), in_(std::move(in)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override { in_.visit(visit); }

    // Word counts of the Newton steps, rising to p: each is a little over half the next, so a
    // step's doubled accuracy covers the next count. A value near 1 holds about 64 (q - 1) bits
    // in q words (its top word is the integer part), so the first count is 2 words.
    static std::vector<uint64_t> schedule(uint64_t p) {
        std::vector<uint64_t> q{std::max<uint64_t>(p, 2)};
        while (q.back() > 2) {
            const uint64_t half = std::max<uint64_t>((q.back() + 1) / 2 + 1, 2);
            q.push_back(half < q.back() ? half : q.back() - 1);
        }
        std::reverse(q.begin(), q.end());
        return q;
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        in_.plan(p, context);
        kernel_.plan(context, std::max<uint64_t>(p, 2));
        const uint64_t n = node_value_words(std::max<uint64_t>(p, 2));
        const uint64_t tail = std::max(kernel_.scratch_bytes(), node_mul_scratch_bytes(context, p));
        FormulaSizing s;
        s.output_words = n;
        s.scratch_bytes = inputs_bytes(in_, p) + std::max(in_.child_scratch(), 4 * value_bytes(n) + tail);
        s.checkpoint_bytes = value_bytes(n);
        s.buffers = {{"m_x_words", in_.x->sizing().output_words}, {"m_pi_words", in_.pi->sizing().output_words},
                     {"m_log2_words", n}, {"m_y_words", n}, {"m_log_words", n}, {"m_step_words", n},
                     {"m_next_words", n}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const std::string function = run_name();
        const uint64_t p = precision(), n = node_value_words(std::max<uint64_t>(p, 2));
        LoadedInputs v = load_inputs(in_, kernel_, p, scratch, context, function.c_str());
        if (v.x.L == 0) {
            set_integer(out, 1);
            return;
        }
        const double xd = to_double(v.x);
        if (!(std::fabs(xd) <= max_exp_argument))
            throw LimitExceededException(function, "Exponent is out of range.");
        FormulaFloat y = carve_value(scratch, n), log_y = carve_value(scratch, n);
        FormulaFloat step = carve_value(scratch, n), next = carve_value(scratch, n);
        // y = 2^k e^r with x ~ k ln 2 + r, |r| <= ln 2 / 2.
        const double k = std::nearbyint(xd / std::log(2.0));
        y.set_double(std::exp(xd - k * std::log(2.0)));
        shift_in_place(y, int64_t(k));
        const std::vector<uint64_t> counts = schedule(p);
        for (uint64_t i = 0; i < counts.size(); i++) {
            const uint64_t q = counts[i];
            // The start may hold only ~13 bits for a large |x|: three steps at the first count.
            for (int repeat = 0; repeat < (i == 0 ? 3 : 1); repeat++) {
                kernel_.log(log_y, y, v.pi, v.log2, q, scratch, context, function.c_str());
                log_y.sign = !log_y.sign;
                signed_add(next, v.x, log_y, q);  // x - ln y
                if (next.L == 0) continue;        // y is exact at this precision
                context.report("Multiplying: ");
                step.set_mul(y, next, q, *context.table, scratch, context.parallelizer, context.tds);
                step.sign = next.sign;
                signed_add(next, y, step, q);
                std::swap(y, next);
                check_exponent(y);
            }
        }
        out.set_BigFloat(y, p);
    }

private:
    LogInputs in_;
    AgmLogarithm kernel_;
};

// Pi and Log2 members of a parameter object: a reference needs an enclosing scope.
std::unique_ptr<FormulaEvaluator> build_shared(const ConfigObject& argument, const char* key, FormulaBuilder& builder,
                                               const char* function) {
    const ConfigObject* value = argument.find(key);
    if (!value) return nullptr;
    if (value->kind() == ConfigKind::String && builder.scopes().depth() == 0)
        throw InvalidParametersException(function, "Cannot load values for Pi or Log2 without an enclosing scope.");
    return builder.build(*value);
}

// Inputs from {x-key, Pi, Log2}: a missing Pi is the default pi subtree; a missing Log2 is the
// registered Log2 node when there is one, else computed by the kernel.
LogInputs build_inputs(const ConfigObject& argument, const char* x_key, FormulaBuilder& builder, const char* function) {
    LogInputs in;
    in.x = builder.build(argument.get(x_key, function));
    in.pi = build_shared(argument, "Pi", builder, function);
    const bool own_pi = !in.pi;
    if (own_pi) in.pi = builder.build(ft::default_pi());
    in.log2 = build_shared(argument, "Log2", builder, function);
    if (!in.log2 && ft::builtin_has("Log2")) in.log2 = builder.build(ft::default_log2(ft::default_pi()));
    return in;
}

LogInputs build_inputs_of_node(const ConfigObject& x, FormulaBuilder& builder) {
    ConfigObject argument = ConfigObject::make_object();
    argument.add_node("x", x);
    return build_inputs(argument, "x", builder, "");
}

uint64_t largest_prime_factor(uint64_t n) {
    uint64_t largest = 1;
    for (uint64_t d = 2; d * d <= n; d++)
        while (n % d == 0) {
            largest = d;
            n /= d;
        }
    return n > 1 ? std::max(largest, n) : largest;
}

}  // namespace

std::unique_ptr<FormulaEvaluator> make_log_agm_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_LogAGM::FormulaB_LogAGM()";
    const ConfigObject& argument = node.argument().as_object("Log-AGM");
    return std::make_unique<FormulaB_LogAGM>(build_inputs(argument, "Argument", builder, function));
}

std::unique_ptr<FormulaEvaluator> make_log_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_Log::FormulaB_Log()";
    const ConfigObject& value = node.argument();
    // An integer, bare or {Integer: n}; a parameter object may have several members.
    const bool integer = value.kind() == ConfigKind::Integer ||
                         (value.kind() == ConfigKind::Object && value.member_count() == 1 && value.contains("Integer"));
    if (integer) {
        const int64_t n = FormulaNode(value).get_as_integer();
        if (n <= 0) throw InvalidParametersException(function, "Argument must be positive: " + std::to_string(n));
        if (n == 1) return builder.build(ft::integer(0));
        if (largest_prime_factor(uint64_t(n)) <= machin_largest_prime_factor && ft::builtin_has("LogMachin"))
            return builder.build(ft::node("LogMachin", ft::integer(n)));
        return std::make_unique<FormulaB_LogAGM>(build_inputs_of_node(ft::integer(n), builder));
    }
    const ConfigObject& object = node.argument().as_object("Log");
    if (object.contains("x")) return std::make_unique<FormulaB_LogAGM>(build_inputs(object, "x", builder, function));
    return std::make_unique<FormulaB_LogAGM>(build_inputs_of_node(object, builder));
}

std::unique_ptr<FormulaEvaluator> make_exp_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_Exp::FormulaB_Exp()";
    const ConfigObject& argument = node.argument();
    if (argument.kind() == ConfigKind::Object && argument.contains("x"))
        return std::make_unique<FormulaB_Exp>(build_inputs(argument, "x", builder, function));
    return std::make_unique<FormulaB_Exp>(build_inputs_of_node(argument, builder));
}

}  // namespace qmp
