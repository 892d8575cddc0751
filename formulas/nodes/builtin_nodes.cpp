// Registration of the in-memory formula nodes; see node_factories.h.
#include "formulas/nodes/node_factories.h"

namespace qmp {

void register_builtin_nodes(FormulaFactoryRegistry& registry) {
    registry.add("Integer", make_integer_node);
    registry.add("LoadVariable", make_load_variable_node);
    registry.add("Scope", make_scope_node);
    registry.add("LinearCombination", make_linear_combination_node);
    registry.add("Multiply", make_multiply_node);
    registry.add("Square", make_square_node);
    registry.add("CheckedMultiply", make_checked_multiply_node);
    registry.add("Shift", make_shift_node);
    registry.add("Power", make_power_node);
    registry.add("Reciprocal", make_reciprocal_node);
    registry.add("Divide", make_divide_node);
    registry.add("Sqrt", make_sqrt_node);
    registry.add("Invsqrt", make_invsqrt_node);
    registry.add("InvNthRoot", make_inv_nth_root_node);
    registry.add("AGM", make_agm_node);
    registry.add("SeriesHypergeometric", make_series_hypergeometric_node);
    registry.add("SeriesETaylor", make_series_e_taylor_node);
    registry.add("SeriesPiChudnovsky", make_series_pi_chudnovsky_node);
    registry.add("SeriesPiRamanujan", make_series_pi_ramanujan_node);
    register_series_nodes(registry);
    register_function_nodes(registry);
}

const FormulaFactoryRegistry& builtin_node_registry() {
    static const FormulaFactoryRegistry registry = [] {
        FormulaFactoryRegistry r;
        register_builtin_nodes(r);
        return r;
    }();
    return registry;
}

}  // namespace qmp
