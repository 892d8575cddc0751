// Formula tree builders.
#include "formulas/catalog/formula_text.h"

namespace qv::formula_text {

ConfigObject node(std::string_view name, ConfigObject argument) {
    ConfigObject out = ConfigObject::make_object();
    out.add_node(name, std::move(argument));
    return out;
}

ConfigObject integer_node(int64_t value) { return node("Integer", integer(value)); }

ConfigObject array(std::vector<ConfigObject> elements) {
    ConfigObject out = ConfigObject::make_array();
    for (ConfigObject& e : elements) out.push_back(std::move(e));
    return out;
}

ConfigObject integers(const std::vector<int64_t>& values) {
    ConfigObject out = ConfigObject::make_array();
    for (int64_t v : values) out.push_back(integer(v));
    return out;
}

ConfigObject params(std::vector<std::pair<std::string, ConfigObject>> members) {
    ConfigObject out = ConfigObject::make_object();
    for (auto& [key, value] : members) out.add_node(key, std::move(value));
    return out;
}

ConfigObject linear_combination(std::vector<std::pair<int64_t, ConfigObject>> terms) {
    ConfigObject list = ConfigObject::make_array();
    for (auto& [c, n] : terms) list.push_back(array({integer(c), std::move(n)}));
    return node("LinearCombination", std::move(list));
}

std::string to_text(const ConfigObject& tree) { return qmp::write_cfg(tree, false); }

}  // namespace qv::formula_text
