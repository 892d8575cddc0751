// FormulaNode: one parsed node of a formula tree. A node in configuration-object form is an
// integer (a constant), a string (a reference to a variable) or an object with exactly one
// member whose key names the function and whose value is the function's argument. Parsing is
// shallow: the argument stays a configuration object and each node's factory parses its own
// children. Errors are qmp::InvalidParametersException (a ParseException for a value of the
// wrong kind, raised by the configuration object itself).
#pragma once

#include <cstdint>
#include <string>

#include "config/config_object.h"

namespace qmp {

class FormulaNode {
public:
    enum class Kind : uint8_t { Integer, Reference, Function };

    // An object with other than one member: "Number of items must be 1.".
    explicit FormulaNode(const ConfigObject& node);

    Kind kind() const noexcept { return kind_; }
    bool is_function(const char* name) const { return kind_ == Kind::Function && name_ == name; }

    // A bare integer or {Integer: n}; anything else "Node is not an integer.".
    int64_t get_as_integer() const;
    bool is_integer() const noexcept;
    // A bare string or {LoadVariable: "name"}; anything else "Node is not a reference.".
    const std::string& get_reference_name() const;

    // The function name (the node's key; "Integer" or "LoadVariable" for the bare forms).
    const std::string& function_name() const noexcept { return name_; }
    // The function's argument (the node itself for the bare forms).
    const ConfigObject& argument() const noexcept { return *argument_; }

private:
    Kind kind_;
    std::string name_;
    const ConfigObject* argument_;
};

}  // namespace qmp
