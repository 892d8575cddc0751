// Integer, LoadVariable and Scope: constants and named locals.
//   Integer n          the exact one-word value n.
//   LoadVariable name  a copy of the local's value, truncated to p words ("Loading:  ").
//   Scope {Locals: [{name: node} ...], Formula: node}
//                      evaluates the locals in order into buffers held for the whole scope
//                      (m_locals_bytes), then the formula, which may load them.
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "qmp/exception.h"

namespace qmp {

namespace {

class FormulaB_Integer : public FormulaEvaluator {
public:
    explicit FormulaB_Integer(int64_t value) : FormulaEvaluator("FormulaB_Integer"), value_(value) {}

protected:
    FormulaSizing size_node(uint64_t, const FormulaContext&) override {
        FormulaSizing s;
        s.output_words = 1;
        s.checkpoint_bytes = sizeof(uint64_t);
        return s;
    }
    void run(FormulaFloat& out, AlignedBufferC, FormulaContext&) override { set_integer(out, value_); }

private:
    int64_t value_;
};

class FormulaB_LoadVariable : public FormulaEvaluator {
public:
    explicit FormulaB_LoadVariable(const VariableSlot& slot) : FormulaEvaluator("FormulaB_LoadVariable"), slot_(slot) {}

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext&) override {
        FormulaSizing s;
        s.output_words = node_value_words(p);
        return s;
    }
    void run(FormulaFloat& out, AlignedBufferC, FormulaContext& context) override {
        if (!slot_.ready) throw AlgorithmFailedException(run_name(), "Variable is not ready: \"" + slot_.name + "\"");
        context.report("Loading:  ");
        out.set_BigFloat(slot_.value, precision());
    }

private:
    const VariableSlot& slot_;
};

struct ScopeLocal {
    std::unique_ptr<VariableSlot> slot;
    std::unique_ptr<FormulaEvaluator> node;
};

class FormulaB_Scope : public FormulaEvaluator {
public:
    FormulaB_Scope(std::vector<ScopeLocal> locals, std::unique_ptr<FormulaEvaluator> formula)
        : FormulaEvaluator("FormulaB_Scope"), locals_(std::move(locals)), formula_(std::move(formula)) {}

    void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const override {
        for (const ScopeLocal& local : locals_) visit(*local.node);
        visit(*formula_);
    }

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        uint64_t locals_bytes = 0, inner_bytes = 0;
        for (ScopeLocal& local : locals_) {
            local.node->plan(p, context);
            locals_bytes += value_bytes(local.node->sizing().output_words);
            inner_bytes = std::max(inner_bytes, local.node->sizing().scratch_bytes);
        }
        formula_->plan(p, context);
        inner_bytes = std::max(inner_bytes, formula_->sizing().scratch_bytes);
        FormulaSizing s;
        s.output_words = formula_->sizing().output_words;
        s.scratch_bytes = locals_bytes + inner_bytes;
        s.checkpoint_bytes = locals_bytes;  // the finished locals are the scope's state
        s.buffers = {{"m_locals_bytes", locals_bytes}};
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        std::vector<AlignedBufferC> slot_buffers;
        for (ScopeLocal& local : locals_)
            slot_buffers.push_back(scratch.spawn_words<uint64_t>(local.node->sizing().output_words));
        struct Expire {  // a local's value dies with the scope, also on an error
            std::vector<ScopeLocal>& locals;
            ~Expire() {
                for (ScopeLocal& local : locals) local.slot->ready = false;
            }
        } expire{locals_};
        for (uint64_t i = 0; i < locals_.size(); i++) {
            locals_[i].node->evaluate(locals_[i].slot->value, slot_buffers[i], scratch, context);
            locals_[i].slot->ready = true;
        }
        formula_->evaluate(out, buffer_of(out), scratch, context);
    }

private:
    std::vector<ScopeLocal> locals_;
    std::unique_ptr<FormulaEvaluator> formula_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_integer_node(const FormulaNode& node, FormulaBuilder&) {
    return std::make_unique<FormulaB_Integer>(node.argument().as_integer("Integer"));
}

std::unique_ptr<FormulaEvaluator> make_load_variable_node(const FormulaNode& node, FormulaBuilder& builder) {
    const std::string& name = node.get_reference_name();
    return std::make_unique<FormulaB_LoadVariable>(builder.scopes().load(name));
}

std::unique_ptr<FormulaEvaluator> make_scope_node(const FormulaNode& node, FormulaBuilder& builder) {
    const char* function = "FormulaB_Scope::FormulaB_Scope()";
    const ConfigObject& argument = node.argument().as_object("Scope");
    const std::vector<ConfigObject>& definitions = argument.get("Locals", function).as_array("Locals");
    const ConfigObject& formula = argument.get("Formula", function);

    std::vector<ScopeLocal> locals;
    for (const ConfigObject& definition : definitions) {
        if (definition.kind() != ConfigKind::Object || definition.member_count() != 1)
            throw InvalidParametersException(function, "Scope local must have exactly one element.");
        locals.push_back({std::make_unique<VariableSlot>(), nullptr});
        locals.back().slot->name = definition.member_key(0);
    }

    FormulaScopeStack& scopes = builder.scopes();
    scopes.push();
    bool open = true;
    struct Unwind {  // closes the scope without its checks when building fails
        FormulaScopeStack& scopes;
        bool& open;
        ~Unwind() {
            if (open) scopes.pop_unchecked();
        }
    } unwind{scopes, open};

    // Declared before any is built, so that a load of a later local says so.
    for (ScopeLocal& local : locals) scopes.declare(*local.slot);
    for (uint64_t i = 0; i < locals.size(); i++) {
        locals[i].node = builder.build(definitions[i].member_value(0));
        locals[i].slot->defined = true;
    }
    std::unique_ptr<FormulaEvaluator> body = builder.build(formula);
    open = false;
    scopes.pop_checked();
    return std::make_unique<FormulaB_Scope>(std::move(locals), std::move(body));
}

}  // namespace qmp
