// The generators of pi, e, the golden ratio, sqrt(n), the lemniscate constant, zeta(3),
// Catalan's constant and the Euler-Mascheroni constant, and the dispatch by constant token.
// The series nodes give ((CoefficientQ + CoefficientP S) / CoefficientD)^Power, so a
// reciprocal is usually a change of Power and coefficients rather than an extra division.
#include "formulas/catalog/formula_generator.h"

#include <algorithm>
#include <cmath>

#include "formulas/catalog/algorithm_table.h"
#include "formulas/catalog/constant_table.h"
#include "formulas/catalog/custom_formula_file.h"
#include "formulas/catalog/formula_text.h"
#include "qmp/exception.h"

namespace qv {

using namespace formula_text;

namespace {

void check_power(int power, const char* function) {
    if (power != 1 && power != -1) throw qmp::InvalidParametersException(function, "Power must be 1 or -1.");
}

ConfigObject series(const char* name, int power, int64_t cp, int64_t cq, int64_t cd) {
    return node(name, params({{"Power", integer(power)},
                              {"CoefficientP", integer(cp)},
                              {"CoefficientQ", integer(cq)},
                              {"CoefficientD", integer(cd)}}));
}

GeneratedFormula make(std::string label, const ConfigObject& tree) { return {std::move(label), "", to_text(tree)}; }

}  // namespace

GeneratedFormula pi_formula(const std::string& algorithm, int power, bool reduced_memory) {
    constexpr const char* kFunction = "Catalog::pi_formula()";
    const bool chudnovsky = algorithm == "chudnovsky";
    if (!chudnovsky && algorithm != "ramanujan") {
        throw qmp::InvalidParametersException(kFunction, "Algorithm must be \"chudnovsky\" or \"ramanujan\".");
    }
    check_power(power, kFunction);
    // Power -1: CD / (CQ + S) = pi sqrt(r).  Power 1: the reciprocal over sqrt(r) is
    // (CQ + S) / (CD / r), and CD / r is an integer for Chudnovsky (426880); for Ramanujan
    // 9801 / 8 is not, so P, Q are scaled by 8 instead.
    ConfigObject sum = chudnovsky ? (power == 1 ? series("SeriesPiChudnovsky", -1, 1, 13591409, 4270934400)
                                                : series("SeriesPiChudnovsky", 1, 1, 13591409, 426880))
                                  : (power == 1 ? series("SeriesPiRamanujan", -1, 1, 1103, 9801)
                                                : series("SeriesPiRamanujan", 1, 8, 8824, 9801));
    if (reduced_memory) sum.member_value(0).add_bool("ReducedMemory", true);
    const ConfigObject tree = node("CheckedMultiply", params({{"ReducedMemory", boolean(reduced_memory)},
                                                              {"Input0", std::move(sum)},
                                                              {"Input1", node("Invsqrt", integer(chudnovsky ? 10005 : 8))}}));
    return make(chudnovsky ? "Pi - Chudnovsky (1988):" : "Pi - Ramanujan (1910):", tree);
}

GeneratedFormula e_formula(const std::string& algorithm, int power) {
    constexpr const char* kFunction = "Catalog::e_formula()";
    const bool plus = algorithm == "exp(1)";
    if (!plus && algorithm != "exp(-1)") {
        throw qmp::InvalidParametersException(kFunction, "Algorithm must be \"exp(1)\" or \"exp(-1)\".");
    }
    check_power(power, kFunction);
    // The Taylor series of exp(+-1) taken to the power that gives e^power.
    ConfigObject tree = series("SeriesETaylor", plus ? power : -power, 1, 0, 1);
    tree.member_value(0).add_bool("Alternating", !plus);
    return make(plus ? "Taylor Series of exp(1):" : "Taylor Series of exp(-1):", tree);
}

GeneratedFormula golden_ratio_formula(int power) {
    check_power(power, "Catalog::golden_ratio_formula()");
    // phi = (5/sqrt(5) + 1) / 2 and 1/phi = phi - 1 = (5/sqrt(5) - 1) / 2.
    const ConfigObject tree = node(
        "Shift", array({linear_combination({{5, node("Invsqrt", integer(5))}, {power, integer_node(1)}}), integer(-1)}));
    return make("Golden Ratio - Newton's Method:", tree);
}

GeneratedFormula sqrt_formula(int64_t n, int power) {
    constexpr const char* kFunction = "Catalog::sqrt_formula()";
    check_power(power, kFunction);
    if (n <= 0) throw qmp::InvalidParametersException(kFunction, "Argument must be greater than 0.");
    // sqrt(n) = n * n^(-1/2): one Newton iteration for the inverse root, one multiplication.
    const ConfigObject root = node("Invsqrt", integer(n));
    const ConfigObject tree = power == 1 ? node("Multiply", array({integer_node(n), root})) : root;
    return make("Sqrt(" + std::to_string(n) + ") - Newton's Method:", tree);
}

GeneratedFormula lemniscate_formula(const std::string& algorithm, int power) {
    constexpr const char* kFunction = "Catalog::lemniscate_formula()";
    const bool zuniga = algorithm == "zuniga2023x";
    if (!zuniga && algorithm != "guillera") {
        throw qmp::InvalidParametersException(kFunction, "Algorithm must be \"zuniga2023x\", or \"guillera\".");
    }
    check_power(power, kFunction);
    // 2 varpi = 1610 S 6440^(-1/4) = -30 S' 162000^(-1/8); the reciprocal forms use
    // 1043320250 = 1610^4 / 6440 and 4050000 = 30^8 / 162000.
    ConfigObject tree;
    if (zuniga) {
        tree = power == 1 ? node("Multiply", array({series("SeriesLemniscateZuniga2023x", 1, 1610, 0, 1),
                                                   node("InvNthRoot", integers({4, 6440}))}))
                          : node("Multiply", array({series("SeriesLemniscateZuniga2023x", -1, 1, 0, 1),
                                                   node("InvNthRoot", integers({4, 1043320250}))}));
    } else {
        tree = power == 1 ? node("Multiply", array({series("SeriesLemniscateGuillera", 1, -30, 0, 1),
                                                   node("InvNthRoot", integers({8, 162000}))}))
                          : node("Multiply", array({series("SeriesLemniscateGuillera", -1, -1, 0, 1),
                                                   node("InvNthRoot", integers({8, 4050000}))}));
    }
    return make(zuniga ? "Lemniscate - Zuniga (2023-x)" : "Lemniscate - Guillera", tree);
}

GeneratedFormula zeta3_formula(const std::string& algorithm, int power) {
    constexpr const char* kFunction = "Catalog::zeta3_formula()";
    const bool vi = algorithm == "zuniga2023vi";
    if (!vi && algorithm != "zuniga2023v") {
        throw qmp::InvalidParametersException(kFunction, "Algorithm must be \"zuniga2023vi\" or \"zuniga2023v\".");
    }
    check_power(power, kFunction);
    // The series sum to -48 zeta(3) and 24 zeta(3).
    return vi ? make("Zeta(3) - Zuniga (2023-vi):", series("SeriesZeta3Zuniga2023vi", power, -1, 0, 48))
              : make("Zeta(3) - Zuniga (2023-v):", series("SeriesZeta3Zuniga2023v", power, 1, 0, 24));
}

GeneratedFormula catalan_formula(const std::string& algorithm, int power) {
    constexpr const char* kFunction = "Catalog::catalan_formula()";
    const bool short_form = algorithm == "pilehrood-short";
    if (!short_form && algorithm != "zuniga2023") {
        throw qmp::InvalidParametersException(kFunction, "Algorithm must be \"pilehrood-short\" or \"zuniga2023\".");
    }
    check_power(power, kFunction);
    // The series sum to 2G and -6G.
    return short_form ? make("Catalan - Pilehrood (2010-short):", series("SeriesCatalanPilehoodShort", power, 1, 0, 2))
                      : make("Catalan - Zuniga (2023):", series("SeriesCatalanZuniga2023", power, -1, 0, 6));
}

namespace {
// Guard digits on top of the target for the Brent-McMillan truncation error.
constexpr double kBrentGuardDigits = 16;
constexpr int64_t kBrentLargestExponent = 62;
}  // namespace

int brent_exponent_for(uint64_t digits, bool refined) {
    // The error is about e^(-8n) refined and e^(-4n) original: n >= (digits + guard) ln 10 / 8 (/ 4).
    const double needed_n = (double(digits) + kBrentGuardDigits) * std::log(10.0) / (refined ? 8 : 4);
    int k = 1;
    while (std::ldexp(1.0, k) < needed_n) ++k;
    return k;
}

GeneratedFormula euler_gamma_formula(const std::string& algorithm, uint64_t digits, int64_t exponent, int power) {
    constexpr const char* kFunction = "Catalog::euler_gamma_formula()";
    const bool refined = algorithm == "brent-refined";
    if (!refined && algorithm != "brent-original") {
        throw qmp::InvalidParametersException(kFunction, "Algorithm must be \"brent-refined\" or \"brent-original\".");
    }
    check_power(power, kFunction);
    const int needed = brent_exponent_for(digits, refined);
    int64_t k = needed;
    if (exponent != 0) {
        if (exponent < 0) throw qmp::InvalidParametersException(kFunction, "Argument must be greater than 0.");
        if (exponent < needed) {
            throw qmp::InvalidParametersException(kFunction, "The current parameter is too small to meet the target precision.");
        }
        if (exponent > kBrentLargestExponent) {
            throw qmp::InvalidParametersException(kFunction, "Argument is too large: " + std::to_string(exponent));
        }
        k = exponent;
    }
    // gamma = S(n) - log n with n = 2^k, log n = k log 2.
    ConfigObject sum = series(refined ? "SeriesEulerGammaBMR" : "SeriesEulerGammaBM", 1, 1, 0, 1);
    sum.member_value(0).add_integer("n", int64_t(1) << k);
    ConfigObject tree = linear_combination({{1, std::move(sum)}, {-1, node("Log2", params({{"Coefficient", integer(k)}}))}});
    if (power == -1) tree = node("Reciprocal", std::move(tree));
    const std::string label = (refined ? "EulerGamma - Brent-McMillan (refined): (n = 2^" : "EulerGamma - Brent-McMillan: (n = 2^") +
                              std::to_string(k) + ")";
    return make(label, tree);
}

GeneratedFormula generate_formula(const FormulaRequest& request) {
    const std::string constant = ConstantTable::find(request.constant).token;
    if (constant == "custom") {
        const std::string path = CustomFormulaFile::find(request.formula_file);
        return {"Custom Constant with User-Defined Formula:", "", CustomFormulaFile::read_text(path)};
    }
    const AlgorithmMenu menu = AlgorithmTable::menu_for(constant, uint64_t(std::max<int64_t>(request.argument, 0)));
    const std::string algorithm = request.algorithm.empty() ? menu.primary().token : menu.find(request.algorithm).token;
    const std::string& alg = algorithm;
    if (constant == "pi") {
        // The reduced-memory tokens are the same series with ReducedMemory set.
        const bool reduced = request.reduced_memory || alg.ends_with("-reduced");
        return pi_formula(alg.substr(0, alg.find("-reduced")), request.power, reduced);
    }
    if (constant == "e") return e_formula(alg, request.power);
    if (constant == "goldenratio") return golden_ratio_formula(request.power);
    if (constant == "sqrt") return sqrt_formula(request.argument, request.power);
    if (constant == "lemniscate") return lemniscate_formula(alg, request.power);
    if (constant == "zeta3") return zeta3_formula(alg, request.power);
    if (constant == "catalan") return catalan_formula(alg, request.power);
    if (constant == "log") return log_formula(alg, request.argument, request.power);
    // "gamma" sizes n from the digits; "brent" takes the exponent as its argument.
    if (constant == "brent" && request.argument <= 0) {
        throw qmp::InvalidParametersException("Catalog::euler_gamma_formula()", "Argument must be greater than 0.");
    }
    return euler_gamma_formula(alg, request.digits, constant == "brent" ? request.argument : 0, request.power);
}

}  // namespace qv
