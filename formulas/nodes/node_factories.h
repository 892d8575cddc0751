// The factories of the in-memory ("FormulaB_") formula nodes, one per node name, and the
// registry that holds them all. Each factory checks its node's argument and builds its
// children; the argument errors are qmp::InvalidParametersException (ParseException for a
// value of the wrong kind) raised before anything runs.
#pragma once

#include <memory>

#include "formulas/language/formula_builder.h"

namespace qmp {

#define QMP_FORMULA_FACTORY(NAME) \
    std::unique_ptr<FormulaEvaluator> NAME(const FormulaNode& node, FormulaBuilder& builder)

QMP_FORMULA_FACTORY(make_integer_node);
QMP_FORMULA_FACTORY(make_load_variable_node);
QMP_FORMULA_FACTORY(make_scope_node);
QMP_FORMULA_FACTORY(make_linear_combination_node);
QMP_FORMULA_FACTORY(make_multiply_node);
QMP_FORMULA_FACTORY(make_square_node);
QMP_FORMULA_FACTORY(make_checked_multiply_node);
QMP_FORMULA_FACTORY(make_shift_node);
QMP_FORMULA_FACTORY(make_power_node);
QMP_FORMULA_FACTORY(make_reciprocal_node);
QMP_FORMULA_FACTORY(make_divide_node);
QMP_FORMULA_FACTORY(make_sqrt_node);
QMP_FORMULA_FACTORY(make_invsqrt_node);
QMP_FORMULA_FACTORY(make_inv_nth_root_node);
QMP_FORMULA_FACTORY(make_agm_node);
QMP_FORMULA_FACTORY(make_series_hypergeometric_node);
QMP_FORMULA_FACTORY(make_series_e_taylor_node);
QMP_FORMULA_FACTORY(make_series_pi_chudnovsky_node);
QMP_FORMULA_FACTORY(make_series_pi_ramanujan_node);

#undef QMP_FORMULA_FACTORY

// The named constant series (zeta(3), Catalan, lemniscate, log 2, Euler-Mascheroni), the
// BBP-type and hyperdescent series, and ArcCoth / LogMachin.
void register_series_nodes(FormulaFactoryRegistry& registry);
// The elementary functions built over the others: Exp, Log, Log-AGM, the hyperbolic functions
// and their inverses, Gamma, and the built-in constants Pi, Log2, GoldenRatio, ...
void register_function_nodes(FormulaFactoryRegistry& registry);

// Adds every node above under its name ("Integer", "Scope", ...), then the two groups above.
void register_builtin_nodes(FormulaFactoryRegistry& registry);
// A registry filled by register_builtin_nodes(), built once.
const FormulaFactoryRegistry& builtin_node_registry();

}  // namespace qmp
