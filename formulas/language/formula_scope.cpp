// Scope and variable rules; see formula_scope.h.
#include "formulas/language/formula_scope.h"

#include "qmp/exception.h"

namespace qmp {

namespace {

bool is_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

void FormulaScopeStack::check_name(std::string_view name, const char* function) {
    if (name.size() > max_name_length) throw InvalidParametersException(function, "Variable name is too long.");
    for (char c : name) {
        if (!is_name_char(c))
            throw InvalidParametersException(function, "Variable \"" + std::string(name) +
                                                           "\" contains an invalid character: '" +
                                                           std::string(1, c) + "'");
    }
}

void FormulaScopeStack::push() { frames_.emplace_back(); }

void FormulaScopeStack::pop_checked() {
    std::vector<VariableSlot*> frame = std::move(frames_.back());
    frames_.pop_back();
    for (const VariableSlot* slot : frame) {
        if (slot->load_count == 0)
            throw InvalidParametersException("FormulaScopeStack::pop_checked()",
                                             "Attempted to destroy a Scope before using all internal nodes.");
    }
}

void FormulaScopeStack::pop_unchecked() noexcept {
    if (!frames_.empty()) frames_.pop_back();
}

void FormulaScopeStack::declare(VariableSlot& slot) {
    const char* function = "FormulaScopeStack::declare()";
    check_name(slot.name, function);
    for (const VariableSlot* other : frames_.back()) {
        if (other->name == slot.name)
            throw InvalidParametersException(function, "Internal variable \"" + slot.name +
                                                           "\" is already defined in this scope.");
    }
    for (uint64_t f = 0; f + 1 < frames_.size(); f++) {
        for (const VariableSlot* other : frames_[f]) {
            if (other->name == slot.name)
                throw InvalidParametersException(function, "Variable already exists: \"" + slot.name + "\"");
        }
    }
    frames_.back().push_back(&slot);
}

VariableSlot& FormulaScopeStack::load(std::string_view name) {
    const char* function = "FormulaScopeStack::load()";
    if (frames_.empty()) throw InvalidParametersException(function, "Cannot load variable outside of a Scope.");
    check_name(name, function);
    for (auto frame = frames_.rbegin(); frame != frames_.rend(); ++frame) {
        for (VariableSlot* slot : *frame) {
            if (slot->name != name) continue;
            if (!slot->defined)
                throw InvalidParametersException(function, "Variable \"" + std::string(name) +
                                                               "\" is not defined in this scope.");
            slot->load_count++;
            return *slot;
        }
    }
    throw InvalidParametersException(function, "Variable not found: \"" + std::string(name) + "\"");
}

}  // namespace qmp
