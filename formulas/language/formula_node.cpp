// Parsing of one formula node; see formula_node.h.
#include "formulas/language/formula_node.h"

#include "qmp/exception.h"

namespace qmp {

FormulaNode::FormulaNode(const ConfigObject& node) : argument_(&node) {
    switch (node.kind()) {
        case ConfigKind::Integer:
            kind_ = Kind::Integer;
            name_ = "Integer";
            return;
        case ConfigKind::String:
            kind_ = Kind::Reference;
            name_ = "LoadVariable";
            return;
        default:
            break;
    }
    const ConfigObject& object = node.as_object("FormulaNode");
    if (object.member_count() != 1)
        throw InvalidParametersException("FormulaNode::FormulaNode()", "Number of items must be 1.");
    kind_ = Kind::Function;
    name_ = object.member_key(0);
    argument_ = &object.member_value(0);
}

bool FormulaNode::is_integer() const noexcept {
    if (kind_ == Kind::Integer) return true;
    return name_ == "Integer" && argument_->kind() == ConfigKind::Integer;
}

int64_t FormulaNode::get_as_integer() const {
    if (!is_integer()) throw InvalidParametersException("FormulaNode::get_as_integer()", "Node is not an integer.");
    return argument_->as_integer();
}

const std::string& FormulaNode::get_reference_name() const {
    if (argument_->kind() == ConfigKind::String && (kind_ == Kind::Reference || name_ == "LoadVariable"))
        return argument_->as_string();
    throw InvalidParametersException("FormulaNode::get_reference_name()", "Node is not a reference.");
}

}  // namespace qmp
