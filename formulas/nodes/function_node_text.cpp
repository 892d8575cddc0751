// Formula-tree constructors for the function nodes; see function_node_text.h.
#include "formulas/nodes/function_node_text.h"

#include <atomic>
#include <utility>

#include "formulas/nodes/node_factories.h"

namespace qmp::function_text {

ConfigObject node(std::string_view name, ConfigObject argument) {
    ConfigObject object = ConfigObject::make_object();
    object.add_node(name, std::move(argument));
    return object;
}

ConfigObject integer(int64_t value) { return ConfigObject::make_integer(value); }

ConfigObject array(std::initializer_list<ConfigObject> elements) {
    ConfigObject a = ConfigObject::make_array();
    for (const ConfigObject& e : elements) a.push_back(e);
    return a;
}

ConfigObject reference(const std::string& name) { return ConfigObject::make_string(name); }

ConfigObject linear(std::initializer_list<std::pair<int64_t, ConfigObject>> terms) {
    ConfigObject set = ConfigObject::make_array();
    for (const auto& [c, x] : terms) set.push_back(array({integer(c), x}));
    return node("LinearCombination", std::move(set));
}

ConfigObject scope1(const std::string& name, ConfigObject value, ConfigObject formula) {
    ConfigObject argument = ConfigObject::make_object();
    ConfigObject locals = ConfigObject::make_array();
    locals.push_back(node(name, std::move(value)));
    argument.add_node("Locals", std::move(locals));
    argument.add_node("Formula", std::move(formula));
    return node("Scope", std::move(argument));
}

std::string fresh_name(std::string_view stem) {
    static std::atomic<uint64_t> counter{0};
    return "fn_" + std::string(stem) + "_" + std::to_string(counter.fetch_add(1));
}

bool builtin_has(std::string_view name) { return builtin_node_registry().find(name) != nullptr; }

ConfigObject default_pi() {
    if (builtin_has("Pi")) return node("Pi", ConfigObject::make_object());
    // pi = 4270934400 / (sqrt(10005) (13591409 + T/Q)).
    ConfigObject series = ConfigObject::make_object();
    series.add_integer("Power", -1);
    series.add_integer("CoefficientP", 1);
    series.add_integer("CoefficientQ", 13591409);
    series.add_integer("CoefficientD", 4270934400);
    return node("Multiply", array({node("SeriesPiChudnovsky", std::move(series)), node("Invsqrt", integer(10005))}));
}

ConfigObject default_log2(const ConfigObject& pi) {
    if (builtin_has("Log2")) return node("Log2", ConfigObject::make_object());
    ConfigObject argument = ConfigObject::make_object();
    argument.add_node("Pi", pi);
    argument.add_integer("Argument", 2);
    return node("Log-AGM", std::move(argument));
}

}  // namespace qmp::function_text
