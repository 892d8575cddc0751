// Registration of the elementary-function nodes and the built-in constants.
#include "formulas/nodes/node_factories.h"

namespace qmp {

void register_function_nodes(FormulaFactoryRegistry& registry) { (void)registry; }

}  // namespace qmp
