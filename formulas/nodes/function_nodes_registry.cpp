// Registration of the elementary-function nodes. "ArcCoth" is not registered here: its name
// belongs to the series form, whose factory hands a non-series argument to
// make_arccoth_function_node().
#include "formulas/nodes/node_factories.h"

namespace qmp {

void register_function_nodes(FormulaFactoryRegistry& registry) {
    registry.add("Log-AGM", make_log_agm_node);
    registry.add("Log", make_log_node);
    registry.add("Exp", make_exp_node);
    registry.add("Sinh", make_sinh_node);
    registry.add("Cosh", make_cosh_node);
    registry.add("Tanh", make_tanh_node);
    registry.add("Coth", make_coth_node);
    registry.add("Sech", make_sech_node);
    registry.add("Csch", make_csch_node);
    registry.add("ArcSinh", make_arcsinh_node);
    registry.add("ArcCosh", make_arccosh_node);
    registry.add("ArcTanh", make_arctanh_node);
    registry.add("ArcSech", make_arcsech_node);
    registry.add("ArcCsch", make_arccsch_node);
    registry.add("Gamma", make_gamma_node);
}

}  // namespace qmp
