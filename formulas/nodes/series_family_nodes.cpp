// The series nodes over the BinaryBBP and Hyperdescent families:
//   SeriesBinaryBBP {Power, CoefficientP, CoefficientQ, CoefficientD, Alternating, PowerCoef,
//       PowerShift, PolynomialP, PolynomialQ, TermsGrouped}:
//       S = sum_{k>=0} (+-1)^k 2^(PowerCoef k + PowerShift) P(k) / Q(k),  PowerCoef in [-1024, -1],
//       PowerShift in [-1023, 1023], TermsGrouped in [1, 255] (it records how many terms of an
//       ungrouped series one k covers and does not enter the arithmetic). Q must not vanish at
//       k = 0 .. 65535 ("Q(x) is zero at x = ").
//   SeriesHyperdescent {Power, CoefficientP, CoefficientQ, CoefficientD, PolynomialQ, PolynomialR}:
//       S = sum_{k>=1} s^k / prod_{j<=k} Q(j), with PolynomialR = [s], s = 1 or -1
//       ("PolynomialR must be [1] or [-1]."), Q(k) >= 1 for k >= 1 (checked for k <= 65536:
//       "Q(x) must be positive at x = ") and Q not constant ("Q(x) must not be constant.").
// Both give V = ((CQ + CP S) / CD)^Power. The BBP sum is computed with its power of two as the
// only coefficient, then mapped by (CQ, CP, CD, Power) in series_value.h.
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/series_node.h"
#include "formulas/nodes/series_value.h"
#include "qmp/exception.h"
#include "qmp/series/binary_bbp.h"
#include "qmp/series/hyperdescent.h"
#include "qmp/series/polynomial_series.h"
#include "qmp/words/mod_m61.h"

namespace qmp {

namespace {

using Polynomial = std::vector<int64_t>;

constexpr uint64_t kCheckedRange = uint64_t(1) << 16;

Polynomial read_polynomial(const ConfigObject& argument, const char* key, const char* function) {
    const std::vector<ConfigObject>& coefficients = argument.get(key, function).as_array(key);
    if (coefficients.size() > BinarySplitting::PolynomialSeries::kMaxDegree + 1)
        throw InvalidParametersException(function, "Polynomial degree limit is 62.");
    Polynomial c;
    for (const ConfigObject& x : coefficients) c.push_back(x.as_integer(key));
    while (c.size() > 1 && c.back() == 0) c.pop_back();
    if (c.empty()) c.push_back(0);
    return c;
}

// The value of c at x in 128 bits, saturated once it is far from zero (then it cannot return
// to zero or change sign: |x| <= 2^16 and |c_i| < 2^63).
__int128 evaluate_saturated(const Polynomial& c, int64_t x) {
    const __int128 big = __int128(1) << 100;
    __int128 v = 0;
    for (size_t i = c.size(); i-- > 0;) {
        if (v >= big) return big;
        if (v <= -big) return -big;
        v = v * x + c[i];
    }
    return v;
}

// log2 of sum |c_i|: |c(x)| <= that * x^degree for x >= 1.
BinarySplitting::GrowthBound growth_of(const Polynomial& c) {
    long double sum = 0;
    for (int64_t v : c) sum += std::fabs((long double)v);
    return {sum <= 1 ? 0.0 : double(std::log2(sum)) + 1e-9, double(c.size() - 1)};
}

uint64_t residue(const Polynomial& c, uint64_t x) { return BinarySplitting::PolynomialSeries::evaluate_m61(c, x); }

// Engine term k' >= 1 is the node's term k = k' - 1: P(k' - 1) (signed for Alternating), Q(k' - 1).
class PolynomialBBPSeries final : public BinarySplitting::BBPSeries {
public:
    PolynomialBBPSeries(Polynomial P, Polynomial Q, uint64_t shift, bool alternating)
        : P_(std::move(P)), Q_(std::move(Q)), shift_(shift), alternating_(alternating) {}

    std::string name() const override { return "SeriesBinaryBBP"; }
    uint64_t shift_bits() const override { return shift_; }
    BinarySplitting::PQRGrowth growth() const override { return {growth_of(P_), growth_of(Q_), growth_of(Q_)}; }

    void term(uint64_t k, BinarySplitting::TermValue& P, BinarySplitting::TermValue& Q,
              BinarySplitting::TermValue& R) const override {
        BinarySplitting::PolynomialSeries::evaluate(P_, k - 1, P);
        BinarySplitting::PolynomialSeries::evaluate(Q_, k - 1, Q);
        if (negative(k) && P.L != 0) P.negative = !P.negative;
        R.set_u64(1);
    }
    void term_residues(uint64_t k, uint64_t& P, uint64_t& Q, uint64_t& R) const override {
        P = residue(P_, k - 1);
        if (negative(k)) P = sub_m61(0, P);
        Q = residue(Q_, k - 1);
        R = 1;
    }
    // 2^(-shift N) |P/Q| below 2^(-64 words - 64); |P/Q| grows at most like the bound of P.
    uint64_t terms_for_words(uint64_t words) const override {
        const BinarySplitting::GrowthBound g = growth_of(P_);
        const double target = 64.0 * double(words) + 64.0;
        double n = target / double(shift_);
        for (int i = 0; i < 3; ++i) n = (target + g.log2_coefficient + g.degree * std::log2(n + 2)) / double(shift_);
        return uint64_t(std::ceil(n)) + 1;
    }

private:
    bool negative(uint64_t k) const { return alternating_ && (k - 1) % 2 == 1; }

    Polynomial P_, Q_;
    uint64_t shift_;
    bool alternating_;
};

}  // namespace

std::unique_ptr<FormulaEvaluator> make_series_binary_bbp_node(const FormulaNode& node, FormulaBuilder&) {
    const char* function = "FormulaB_SeriesBinaryBBP::FormulaB_SeriesBinaryBBP()";
    const ConfigObject& argument = node.argument().as_object("SeriesBinaryBBP");
    const SeriesNodeCoefficients coefficients = read_series_coefficients(argument, function);
    const bool alternating = argument.get_bool("Alternating", function);
    const int64_t power_coef = argument.get_integer("PowerCoef", function);
    const int64_t power_shift = argument.get_integer("PowerShift", function);
    const int64_t grouped = argument.get_integer("TermsGrouped", function);
    if (power_coef < -1024 || power_coef > -1) throw InvalidParametersException(function, "PowerCoef must be in [-1024, -1].");
    if (power_shift < -1023 || power_shift > 1023)
        throw InvalidParametersException(function, "PowerShift must be in [-1023, 1023].");
    if (grouped < 1 || grouped > 255) throw InvalidParametersException(function, "TermsGrouped must be between 1 and 255.");
    const Polynomial P = read_polynomial(argument, "PolynomialP", function);
    const Polynomial Q = read_polynomial(argument, "PolynomialQ", function);
    for (uint64_t x = 0; x < kCheckedRange; ++x)
        if (evaluate_saturated(Q, int64_t(x)) == 0)
            throw InvalidParametersException(function, "Q(x) is zero at x = " + std::to_string(x) + ".");
    const uint64_t e = uint64_t(-power_coef);
    // Engine sum over k' >= 1 carries 2^(-e k'); the node's term k = k' - 1 carries 2^(-e k + shift).
    auto series = std::make_unique<PolynomialBBPSeries>(P, Q, e, alternating);
    // 2^t = 2^(64 q) 2^r: the word part moves the exponent, the bits go into the coefficients
    // before the division (a shift of the quotient afterwards would cost its lowest word).
    const int64_t t = int64_t(e) + power_shift;
    int64_t q = t >= 0 ? t / 64 : -((-t + 63) / 64);
    const int64_t r = t - 64 * q;
    SeriesNodeCoefficients scale;
    if (r == 63) {
        q += 1;
        scale.c.CD = 2;
    } else {
        scale.c.CP = int64_t(1) << r;
    }
    auto sum = std::make_unique<FamilySeriesEvaluator<BinarySplitting::BinaryBBP>>(
        "FormulaB_SeriesBinaryBBP_Sum", std::move(series), scale, q);
    return make_series_value_evaluator("FormulaB_SeriesBinaryBBP", std::move(sum), coefficients);
}

std::unique_ptr<FormulaEvaluator> make_series_hyperdescent_node(const FormulaNode& node, FormulaBuilder&) {
    const char* function = "FormulaB_SeriesHyperdescent::FormulaB_SeriesHyperdescent()";
    const ConfigObject& argument = node.argument().as_object("SeriesHyperdescent");
    const SeriesNodeCoefficients coefficients = read_series_coefficients(argument, function);
    const Polynomial Q = read_polynomial(argument, "PolynomialQ", function);
    const Polynomial R = read_polynomial(argument, "PolynomialR", function);
    if (R.size() != 1 || (R[0] != 1 && R[0] != -1))
        throw InvalidParametersException(function, "PolynomialR must be [1] or [-1].");
    if (Q.size() < 2) throw InvalidParametersException(function, "Q(x) must not be constant.");
    for (uint64_t x = 1; x <= kCheckedRange; ++x)
        if (evaluate_saturated(Q, int64_t(x)) < 1)
            throw InvalidParametersException(function, "Q(x) must be positive at x = " + std::to_string(x) + ".");
    auto series = std::make_unique<BinarySplitting::HyperdescentSeries>(Q, int(R[0]));
    return std::make_unique<FamilySeriesEvaluator<BinarySplitting::Hyperdescent>>("FormulaB_SeriesHyperdescent",
                                                                                  std::move(series), coefficients);
}

}  // namespace qmp
