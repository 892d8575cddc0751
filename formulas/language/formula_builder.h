// Compiling a formula tree into evaluators. FormulaFactoryRegistry maps each function name to
// the factory that builds its evaluator ("Duplicate Function Name" for a second registration).
// FormulaBuilder walks the tree top-down: a bare integer goes to the "Integer" factory, a bare
// string to "LoadVariable", an object to the factory of its key ("Unknown function: " name).
// Nesting deeper than warn_depth prints "Function depth has reached " N ", possible risk of
// stack overflow." once per build and goes on. All errors: qmp::InvalidParametersException.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "config/config_object.h"
#include "formulas/language/formula_evaluator.h"
#include "formulas/language/formula_node.h"
#include "formulas/language/formula_scope.h"

namespace qmp {

class FormulaBuilder;
using FormulaFactory = std::function<std::unique_ptr<FormulaEvaluator>(const FormulaNode&, FormulaBuilder&)>;

class FormulaFactoryRegistry {
public:
    void add(const std::string& name, FormulaFactory factory);
    const FormulaFactory* find(std::string_view name) const;
    uint64_t size() const noexcept { return factories_.size(); }

private:
    std::map<std::string, FormulaFactory, std::less<>> factories_;
};

class FormulaBuilder {
public:
    static constexpr uint64_t default_warn_depth = 128;

    // `warn` receives warnings (empty: Console::warning).
    explicit FormulaBuilder(const FormulaFactoryRegistry& registry,
                            std::function<void(std::string_view)> warn = {});

    std::unique_ptr<FormulaEvaluator> build(const ConfigObject& node);
    std::unique_ptr<FormulaEvaluator> build(const FormulaNode& node);

    // Prints a warning line (nodes use it for their own warnings).
    void warn(std::string_view text) const;

    FormulaScopeStack& scopes() noexcept { return scopes_; }
    uint64_t warn_depth = default_warn_depth;

private:
    const FormulaFactoryRegistry& registry_;
    std::function<void(std::string_view)> warn_;
    FormulaScopeStack scopes_;
    uint64_t depth_ = 0;
    bool depth_warned_ = false;
};

}  // namespace qmp
