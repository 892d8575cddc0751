// Scopes and variables of the formula language. A Scope node binds named locals; a local may
// use the locals defined before it in its own scope and those of enclosing scopes, and the
// Scope's formula may use all of them. Every local must be used at least once. The builder keeps
// a stack of open scopes; slots are owned by the Scope evaluator, which fills their values at
// run time before anything loads them. Every failure is qmp::InvalidParametersException naming
// "FormulaScopeStack::<operation>()".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "formulas/language/formula_evaluator.h"

namespace qmp {

struct VariableSlot {
    std::string name;
    bool defined = false;     // the local's node has been built: later nodes may load it
    uint64_t load_count = 0;  // loads built so far
    bool ready = false;       // run time: `value` holds the local's value
    FormulaFloat value;
};

class FormulaScopeStack {
public:
    static constexpr uint64_t max_name_length = 64;

    // "Variable name is too long."; "Variable \"" name "\" contains an invalid character: '" c
    // "'" (names are ASCII letters, digits and '_').
    static void check_name(std::string_view name, const char* function);

    void push();
    // Closes the innermost scope: "Attempted to destroy a Scope before using all internal nodes."
    // when one of its locals was never loaded. The scope is closed even when this throws.
    void pop_checked();
    // Closes the innermost scope without checks (unwinding after an error).
    void pop_unchecked() noexcept;
    uint64_t depth() const noexcept { return frames_.size(); }

    // Adds a local to the innermost scope: "Internal variable \"" name "\" is already defined in
    // this scope." for a second local of that name in the same scope, "Variable already exists:
    // \"" name "\"" when an enclosing scope has one.
    void declare(VariableSlot& slot);
    // The slot a load of `name` reads: "Cannot load variable outside of a Scope." with no open
    // scope, "Variable \"" name "\" is not defined in this scope." for a local that is declared
    // but whose definition comes later (or is being built), "Variable not found: \"" name "\""
    // for a name no open scope declares.
    VariableSlot& load(std::string_view name);

private:
    std::vector<std::vector<VariableSlot*>> frames_;
};

}  // namespace qmp
