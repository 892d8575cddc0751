// Small builders for formula trees: every node is an object with exactly one key, the node's
// function name, whose value is its argument (an integer, a reference string, an array or an
// object of named parameters). The catalog builds its trees with these and hands out the .cfg
// text, which is read back like a user's formula file.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/config_object.h"

namespace qv::formula_text {

using qmp::ConfigObject;

// {name : argument}
ConfigObject node(std::string_view name, ConfigObject argument);
// {Integer : value}: an integer used where a node is expected.
ConfigObject integer_node(int64_t value);
inline ConfigObject integer(int64_t value) { return ConfigObject::make_integer(value); }
inline ConfigObject boolean(bool value) { return ConfigObject::make_bool(value); }
inline ConfigObject reference(std::string name) { return ConfigObject::make_string(std::move(name)); }
ConfigObject array(std::vector<ConfigObject> elements);
ConfigObject integers(const std::vector<int64_t>& values);
// An object of named parameters, in the given order.
ConfigObject params(std::vector<std::pair<std::string, ConfigObject>> members);
// [[c0 node0] [c1 node1] ...] under LinearCombination.
ConfigObject linear_combination(std::vector<std::pair<int64_t, ConfigObject>> terms);
// The .cfg text of a tree (no comments).
std::string to_text(const ConfigObject& tree);

}  // namespace qv::formula_text
