// Registration of the named constant series, the BBP-type and hyperdescent series, ArcCoth and
// LogMachin.
#include "formulas/nodes/node_factories.h"

namespace qmp {

void register_series_nodes(FormulaFactoryRegistry& registry) { (void)registry; }

}  // namespace qmp
