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
// The elementary functions (registered by register_function_nodes()).
QMP_FORMULA_FACTORY(make_log_agm_node);
QMP_FORMULA_FACTORY(make_log_node);
QMP_FORMULA_FACTORY(make_exp_node);
QMP_FORMULA_FACTORY(make_real_power_node);  // Power [x y] with a node y
QMP_FORMULA_FACTORY(make_sinh_node);
QMP_FORMULA_FACTORY(make_cosh_node);
QMP_FORMULA_FACTORY(make_tanh_node);
QMP_FORMULA_FACTORY(make_coth_node);
QMP_FORMULA_FACTORY(make_sech_node);
QMP_FORMULA_FACTORY(make_csch_node);
QMP_FORMULA_FACTORY(make_arcsinh_node);
QMP_FORMULA_FACTORY(make_arccosh_node);
QMP_FORMULA_FACTORY(make_arctanh_node);
QMP_FORMULA_FACTORY(make_arcsech_node);
QMP_FORMULA_FACTORY(make_arccsch_node);
// ArcCoth of a node, ln((x + 1)/(x - 1))/2 with |x| > 1. The "ArcCoth" name is shared with the
// series form {Coefficient, x}: an object argument with a "Coefficient" key is the series form,
// any other argument this one.
QMP_FORMULA_FACTORY(make_arccoth_function_node);
QMP_FORMULA_FACTORY(make_gamma_node);

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

// The series and constant nodes registered by register_series_nodes().
namespace qmp {

#define QMP_SERIES_FACTORY(NAME) \
    std::unique_ptr<FormulaEvaluator> NAME(const FormulaNode& node, FormulaBuilder& builder)

QMP_SERIES_FACTORY(make_series_zeta3_zuniga2023vi_node);
QMP_SERIES_FACTORY(make_series_zeta3_zuniga2023v_node);
QMP_SERIES_FACTORY(make_series_catalan_pilehood_short_node);
QMP_SERIES_FACTORY(make_series_catalan_zuniga2023_node);
QMP_SERIES_FACTORY(make_series_lemniscate_guillera_node);
QMP_SERIES_FACTORY(make_series_lemniscate_zuniga2023x_node);
QMP_SERIES_FACTORY(make_series_log2_zuniga2024i_node);
QMP_SERIES_FACTORY(make_series_log2_zuniga2024ii_node);
QMP_SERIES_FACTORY(make_series_euler_gamma_bm_node);
QMP_SERIES_FACTORY(make_series_euler_gamma_bmr_node);
QMP_SERIES_FACTORY(make_series_hyperdescent_node);
QMP_SERIES_FACTORY(make_series_binary_bbp_node);
QMP_SERIES_FACTORY(make_arccoth_node);
QMP_SERIES_FACTORY(make_log_machin_node);
QMP_SERIES_FACTORY(make_pi_constant_node);
QMP_SERIES_FACTORY(make_log2_constant_node);
QMP_SERIES_FACTORY(make_golden_ratio_constant_node);
QMP_SERIES_FACTORY(make_lemniscate_constant_node);
QMP_SERIES_FACTORY(make_zeta3_constant_node);
QMP_SERIES_FACTORY(make_catalan_constant_node);
QMP_SERIES_FACTORY(make_euler_gamma_constant_node);

#undef QMP_SERIES_FACTORY

}  // namespace qmp
