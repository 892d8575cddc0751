// Factory registry and tree builder; see formula_builder.h.
#include "formulas/language/formula_builder.h"

#include <string>

#include "qmp/console.h"
#include "qmp/exception.h"

namespace qmp {

void FormulaFactoryRegistry::add(const std::string& name, FormulaFactory factory) {
    if (!factories_.emplace(name, std::move(factory)).second)
        throw InvalidParametersException("FormulaFactoryRegistry::add()", "Duplicate Function Name");
}

const FormulaFactory* FormulaFactoryRegistry::find(std::string_view name) const {
    auto it = factories_.find(name);
    return it == factories_.end() ? nullptr : &it->second;
}

FormulaBuilder::FormulaBuilder(const FormulaFactoryRegistry& registry, std::function<void(std::string_view)> warn)
    : registry_(registry), warn_(std::move(warn)) {}

void FormulaBuilder::warn(std::string_view text) const {
    if (warn_)
        warn_(text);
    else
        Console::warning(text);
}

std::unique_ptr<FormulaEvaluator> FormulaBuilder::build(const ConfigObject& node) { return build(FormulaNode(node)); }

std::unique_ptr<FormulaEvaluator> FormulaBuilder::build(const FormulaNode& node) {
    const FormulaFactory* factory = registry_.find(node.function_name());
    if (factory == nullptr)
        throw InvalidParametersException("FormulaBuilder::build()", "Unknown function: " + node.function_name());
    struct DepthGuard {
        uint64_t& depth;
        explicit DepthGuard(uint64_t& d) : depth(d) { ++depth; }
        ~DepthGuard() { --depth; }
    } guard(depth_);
    if (depth_ >= warn_depth && !depth_warned_) {
        depth_warned_ = true;
        warn("Function depth has reached " + std::to_string(depth_) + ", possible risk of stack overflow.");
    }
    return (*factory)(node, *this);
}

}  // namespace qmp
