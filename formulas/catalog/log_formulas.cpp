// The logarithm's formulas: dedicated series for log 2, 3, 5 and 10 (hypergeometric series
// with fixed polynomials, lowest degree first), Machin-like ArcCoth combinations for any n whose
// prime factors are small, and the AGM logarithm for the rest.
#include <cstdio>

#include "formulas/catalog/formula_generator.h"
#include "formulas/catalog/formula_text.h"
#include "formulas/catalog/machin_search.h"
#include "qmp/exception.h"

namespace qv {

using namespace formula_text;

namespace {

constexpr const char* kFunction = "Catalog::log_formula()";

const std::vector<int64_t> kLog2iiiP = {-62334689193315, 2261071639175814, -26528033362652304, 143924087618563680,
                                        -413491802285339904, 649963323022533120, -527683440699371520, 172760502857048064};
const std::vector<int64_t> kLog2iiiQ = {412385036263200, -15395066323200000, 191336521939200000,
                                        -1137943199232000000, 3743445839616000000, -7195474944000000000,
                                        8042001408000000000, -4837294080000000000, 1209323520000000000};
// Shared by log(2) (iii) and log(3) (ii).
const std::vector<int64_t> kR20 = {0, -1155, 28342, -246288, 1056608, -2499840, 3322368, -2322432, 663552};

const std::vector<int64_t> kLog3iP = {-935651486700, 36428229376416, -417891652274944, 2229033948170240,
                                      -6349069378355200, 9949321961406464, -8084203069505536, 2659024319283200};
const std::vector<int64_t> kLog3iQ = {19760116320945, -789909549647616, 9626683696015104, -56266331826733056,
                                      183113659789369344, -349772490766024704, 389583993780043776,
                                      -233994140164030464, 58498535041007616};
const std::vector<int64_t> kLog3iR = {0, -40320, 836352, -6723584, 27725824, -64225280, 84410368, -58720256, 16777216};

const std::vector<int64_t> kLog3iiP = {-3935648640, 142731416284, -1673971318824, 9076673080160,
                                       -26056688465664, 40916113551360, -33174223349760, 10842352902144};
const std::vector<int64_t> kLog3iiQ = {62853991200, -2346451200000, 29162707200000, -173440512000000,
                                       570560256000000, -1096704000000000, 1225728000000000, -737280000000000,
                                       184320000000000};

const std::vector<int64_t> kLog5iP = {-1138437460, 30954881552, -222661440720, 665607843360, -882746605440, 429240809088};
const std::vector<int64_t> kLog5iQ = {3988359375, -112676062500, 895075312500, -3159121500000,
                                      5565368250000, -4782969000000, 1594323000000};
const std::vector<int64_t> kLog5iR = {0, 80, -1096, 5400, -12240, 12960, -5184};

// S = log(128/125) / 3, shared by log 5 = (7/3) log 2 - S and log 10 = (10/3) log 2 - S.
const std::vector<int64_t> k2025P = {-518168281169, 3109009714338};
const std::vector<int64_t> k2025R = {0, -486, 972};
const std::vector<int64_t> k2025Q = {327726080000000, -2359627776000000, 2359627776000000};

ConfigObject hypergeometric(int power, int64_t cd, const std::vector<int64_t>& p, const std::vector<int64_t>& q,
                            const std::vector<int64_t>& r, int64_t terms_grouped) {
    return node("SeriesHypergeometric", params({{"Power", integer(power)},
                                                {"CoefficientP", integer(1)},
                                                {"CoefficientQ", integer(0)},
                                                {"CoefficientD", integer(cd)},
                                                {"PolynomialP", integers(p)},
                                                {"PolynomialQ", integers(q)},
                                                {"PolynomialR", integers(r)},
                                                {"TermsGrouped", integer(terms_grouped)}}));
}

// log n = -S + (1/3) log 2^m, m = 7 for n = 5 and 10 for n = 10.
ConfigObject zuniga2025(int64_t two_power) {
    ConfigObject sum = node("SeriesHypergeometric", params({{"Power", integer(1)},
                                                            {"CoefficientP", integer(1)},
                                                            {"CoefficientQ", integer(0)},
                                                            {"CoefficientD", integer(1)},
                                                            {"PolynomialP", integers(k2025P)},
                                                            {"PolynomialR", integers(k2025R)},
                                                            {"PolynomialQ", integers(k2025Q)},
                                                            {"TermsGrouped", integer(1)}}));
    return linear_combination({{-1, std::move(sum)}, {1, node("Divide", array({node("Log", integer(two_power)), integer(3)}))}});
}

ConfigObject reciprocal_if(int power, ConfigObject tree) {
    return power == 1 ? tree : node("Reciprocal", std::move(tree));
}

GeneratedFormula machin(const std::string& algorithm, int64_t n, int power) {
    const std::string label = "Log( " + std::to_string(n) + " ) - Machin Formula:";
    if (LogMachinFormula::largest_prime_factor(uint64_t(n)) > LogMachinFormula::kLargestPrimeFactor) {
        // ln n = pi / (2 AGM(1, 4/s)) - m ln 2 with s = n 2^m; pi and log 2 are shared locals.
        ConfigObject locals = array({params({{"Pi", node("Pi", params({}))}}), params({{"Log2", node("Log2", params({}))}})});
        ConfigObject agm = node("Log-AGM", params({{"Pi", reference("Pi")}, {"Log2", reference("Log2")}, {"Argument", integer_node(n)}}));
        ConfigObject tree = node("Scope", params({{"Locals", std::move(locals)}, {"Formula", std::move(agm)}}));
        return {label, "", to_text(reciprocal_if(power, std::move(tree)))};
    }
    LogMachinFormula formula(uint64_t(n), algorithm == "machin-primary" ? MachinChoice::Primary : MachinChoice::Secondary);
    formula.find_formula();
    std::vector<std::pair<int64_t, ConfigObject>> terms;
    for (const LogMachinFormula::Term& t : formula.terms()) {
        terms.emplace_back(1, node("ArcCoth", params({{"Coefficient", integer(t.coefficient)}, {"x", integer(int64_t(t.x))}})));
    }
    ConfigObject tree = linear_combination(std::move(terms));
    if (formula.denominator() != 1) tree = node("Divide", array({std::move(tree), integer(formula.denominator())}));
    return {label, formula.describe(), to_text(reciprocal_if(power, std::move(tree)))};
}

}  // namespace

GeneratedFormula log_formula(const std::string& algorithm, int64_t n, int power) {
    if (power != 1 && power != -1) throw qmp::InvalidParametersException(kFunction, "Power must be 1 or -1.");
    if (n <= 0) throw qmp::InvalidParametersException(kFunction, "Argument must be greater than 0.");
    if (n == 1) throw qmp::InvalidParametersException(kFunction, "Argument must be greater than 1.");
    if (algorithm == "machin-primary" || algorithm == "machin-secondary") return machin(algorithm, n, power);
    auto refuse = [](const char* message) { throw qmp::InvalidParametersException(kFunction, message); };
    auto made = [](std::string label, const ConfigObject& tree) { return GeneratedFormula{std::move(label), "", to_text(tree)}; };
    switch (n) {
        case 2:
            // The (i) and (ii) nodes carry their polynomials themselves; both sum to log 2.
            if (algorithm == "zuniga2024iii") {
                return made("Log(2) - Zuniga (2024-iii):", hypergeometric(power, 4, kLog2iiiP, kLog2iiiQ, kR20, 2));
            }
            if (algorithm == "zuniga2024ii" || algorithm == "zuniga2024i") {
                const bool ii = algorithm == "zuniga2024ii";
                const ConfigObject tree = node(ii ? "SeriesLog2Zuniga2024ii" : "SeriesLog2Zuniga2024i",
                                               params({{"Power", integer(power)},
                                                       {"CoefficientP", integer(1)},
                                                       {"CoefficientQ", integer(0)},
                                                       {"CoefficientD", integer(1)}}));
                return made(ii ? "Log(2) - Zuniga (2024-ii):" : "Log(2) - Zuniga (2024-i):", tree);
            }
            refuse("Algorithm must be \"zuniga2024ii\" or \"zuniga2024iii\".");
            break;
        case 3:
            if (algorithm == "zuniga2024i") return made("Log(3) - Zuniga (2024-i):", hypergeometric(power, 1, kLog3iP, kLog3iQ, kLog3iR, 4));
            if (algorithm == "zuniga2024ii") return made("Log(3) - Zuniga (2024-ii):", hypergeometric(power, 1, kLog3iiP, kLog3iiQ, kR20, 2));
            refuse("Algorithm must be \"zuniga2024i\" or \"zuniga2024ii\".");
            break;
        case 5:
            if (algorithm == "zuniga2024i") return made("Log(5) - Zuniga (2024-i):", hypergeometric(power, 3, kLog5iP, kLog5iQ, kLog5iR, 3));
            if (algorithm == "zuniga2025") return made("Log(5) - Zuniga (2025):", reciprocal_if(power, zuniga2025(128)));
            refuse("Algorithm must be \"zuniga2024i\" or \"zuniga2025\".");
            break;
        case 10:
            if (algorithm == "zuniga2025") return made("Log(10) - Zuniga (2025):", reciprocal_if(power, zuniga2025(1024)));
            refuse("Algorithm must be \"zuniga2025\".");
            break;
        default:
            break;
    }
    refuse("Algorithm must be \"machin-primary\" or \"machin-secondary\".");
    return {};
}

}  // namespace qv
