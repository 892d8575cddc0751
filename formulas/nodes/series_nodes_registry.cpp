// Registration of the named constant series, the BBP-type and hyperdescent series, ArcCoth,
// LogMachin and the built-in constant nodes.
#include "formulas/nodes/node_factories.h"

namespace qmp {

void register_series_nodes(FormulaFactoryRegistry& registry) {
    registry.add("SeriesZeta3Zuniga2023vi", make_series_zeta3_zuniga2023vi_node);
    registry.add("SeriesZeta3Zuniga2023v", make_series_zeta3_zuniga2023v_node);
    registry.add("SeriesCatalanPilehoodShort", make_series_catalan_pilehood_short_node);
    registry.add("SeriesCatalanZuniga2023", make_series_catalan_zuniga2023_node);
    registry.add("SeriesLemniscateGuillera", make_series_lemniscate_guillera_node);
    registry.add("SeriesLemniscateZuniga2023x", make_series_lemniscate_zuniga2023x_node);
    registry.add("SeriesLog2Zuniga2024i", make_series_log2_zuniga2024i_node);
    registry.add("SeriesLog2Zuniga2024ii", make_series_log2_zuniga2024ii_node);
    registry.add("SeriesEulerGammaBM", make_series_euler_gamma_bm_node);
    registry.add("SeriesEulerGammaBMR", make_series_euler_gamma_bmr_node);
    registry.add("SeriesHyperdescent", make_series_hyperdescent_node);
    registry.add("SeriesBinaryBBP", make_series_binary_bbp_node);
    registry.add("ArcCoth", make_arccoth_node);
    registry.add("LogMachin", make_log_machin_node);
    registry.add("Pi", make_pi_constant_node);
    registry.add("Log2", make_log2_constant_node);
    registry.add("GoldenRatio", make_golden_ratio_constant_node);
    registry.add("Lemniscate", make_lemniscate_constant_node);
    registry.add("Zeta3", make_zeta3_constant_node);
    registry.add("Catalan", make_catalan_constant_node);
    registry.add("EulerGamma", make_euler_gamma_constant_node);
}

}  // namespace qmp
