// Building blocks for the function nodes that are defined as formulas over other nodes
// (hyperbolic functions, their inverses, real powers, Gamma): small constructors of formula
// trees, fresh local names that cannot clash with a user's, and the default pi and ln 2
// subtrees (the registered Pi / Log2 nodes when the registry has them, otherwise pi by the
// Chudnovsky series and ln 2 by the AGM logarithm from that pi).
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "config/config_object.h"

namespace qmp::function_text {

ConfigObject node(std::string_view name, ConfigObject argument);
ConfigObject integer(int64_t value);
ConfigObject array(std::initializer_list<ConfigObject> elements);
ConfigObject reference(const std::string& name);
// [[c0 x0] [c1 x1] ...] as a LinearCombination.
ConfigObject linear(std::initializer_list<std::pair<int64_t, ConfigObject>> terms);
// {Scope: {Locals: [{name: value}], Formula: formula}}.
ConfigObject scope1(const std::string& name, ConfigObject value, ConfigObject formula);

// A local name no formula text can hold by accident ("fn_" + stem + a process-wide counter).
std::string fresh_name(std::string_view stem);

// True when the built-in registry has a node of that name.
bool builtin_has(std::string_view name);

ConfigObject default_pi();
// ln 2: the registered Log2 node, else the AGM logarithm of 2 using `pi` (a node).
ConfigObject default_log2(const ConfigObject& pi);

}  // namespace qmp::function_text
