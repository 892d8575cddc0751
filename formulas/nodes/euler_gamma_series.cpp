// SeriesEulerGammaBM and SeriesEulerGammaBMR {Power, CoefficientP, CoefficientQ, CoefficientD, n}:
// the Brent-McMillan sums for n = 2^k (n a power of two, 2 <= n <= 2^29), with
//   B = sum_{j>=0} (n^j / j!)^2,  U = sum_{j>=0} (n^j / j!)^2 H_j,
//   C = 1/(4n) sum_{j=0}^{2n} ((2j)!)^3 / ((j!)^4 (16n)^(2j))   (finite: it is asymptotic),
//   BM:  S = U / B,          S - log n - gamma ~ +pi e^(-4n)
//   BMR: S = U / B - C / B^2, S - log n - gamma ~ -e^(-8n) / sqrt(n)
// and V = ((CQ + CP S) / CD)^Power, so gamma = S - k log 2 with the unit coefficients. U and B
// come from the BrentMcMillanAB family; K terms with (n^K / K!)^2 below B 2^(-bits), where the
// bits are those of the precision, capped by the method's own error (8n or 4n nats). C / B^2 is
// about pi e^(-4n), so it is summed and divided at p - 4n / (64 ln 2) words only, with B summed
// again there as a CommonP2B3 series. Messages: "n must be a power of two in [2, 2^29].".
#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "formulas/nodes/node_factories.h"
#include "formulas/nodes/node_support.h"
#include "formulas/nodes/series_node.h"
#include "formulas/nodes/series_value.h"
#include "qmp/exception.h"
#include "qmp/functions/division.h"
#include "qmp/series/brent_mcmillan_ab.h"
#include "qmp/series/common_p2b3.h"
#include "qmp/series/polynomial_series.h"

namespace qmp {

namespace {

using BMSummation = BinarySplitting::PSR_SeriesB<BinarySplitting::BrentMcMillanAB>;
using PQRSummation = BinarySplitting::PSR_SeriesB<BinarySplitting::CommonP2B3>;

constexpr double kNatsPerWord = 44.36141955583649980270285577332330035683;  // 64 ln 2
constexpr double kStirling = 0.081061466795327258219670263594382360138602526362217;  // 1 - ln(2 pi)/2
constexpr double kGuardNats = 40 * 0.6931471805599453094172321214581765680755;
constexpr uint32_t kLargestLog2N = 29;  // 32 n^2 is a coefficient of C's Q: below 2^63

// The number of terms K >= n with 2 (K ln n - ln K!) <= 2n - nats - guard (B ~ e^(2n)).
uint64_t brent_terms(uint32_t log2_n, double nats) {
    const double n = std::ldexp(1.0, int(log2_n)), ln_n = double(log2_n) * 0.6931471805599453;
    const double target = 2.0 * n - nats - kGuardNats;
    auto log_term = [&](double K) { return 2.0 * (K * ln_n - ((K + 0.5) * std::log(K + 1) - K - kStirling)); };
    uint64_t K = uint64_t(n);
    while (log_term(double(K)) > target) K += 1 + K / 1024;
    return K + 1;
}

// C's terms: exactly j = 1 .. 2n, whatever the precision.
class BrentMcMillanCSeries final : public BinarySplitting::PolynomialSeries {
public:
    explicit BrentMcMillanCSeries(int64_t n)
        : PolynomialSeries("SeriesEulerGammaBMR C", {-1, 6, -12, 8}, {0, 32 * n * n}, {-1, 6, -12, 8},
                           Form::Direct),
          terms_(uint64_t(2 * n)) {}
    uint64_t terms_for_words(uint64_t) const override { return terms_; }

private:
    uint64_t terms_;
};

class FormulaB_BrentMcMillanSum : public FormulaEvaluator {
public:
    FormulaB_BrentMcMillanSum(uint32_t log2_n, bool refined)
        : FormulaEvaluator(refined ? "FormulaB_SeriesEulerGammaBMR_Sum" : "FormulaB_SeriesEulerGammaBM_Sum"),
          log2_n_(log2_n),
          refined_(refined) {}

protected:
    FormulaSizing size_node(uint64_t p, const FormulaContext& context) override {
        const BinarySplitting::MulEnv env{context.table, context.parallelizer, context.tds};
        const double n = std::ldexp(1.0, int(log2_n_));
        const double nats = std::min(double(p) * kNatsPerWord, (refined_ ? 8.0 : 4.0) * n);
        series_ = std::make_unique<BinarySplitting::BrentMcMillanSeries>(log2_n_, brent_terms(log2_n_, nats));
        sum_.emplace(*series_, 1);
        division_.emplace(*context.table, p, context.tds);
        const uint64_t fw = BMSummation::result_words(p), nw = node_value_words(p);
        const uint64_t phase1 =
            2 * value_bytes(fw) + std::max(sum_->memory_bytes(env, p, context.tds), division_->scratch_bytes());
        FormulaSizing s;
        s.output_words = nw;
        s.scratch_bytes = value_bytes(nw) + phase1;
        s.buffers = {{"m_terms", series_->terms_for_words(p)}, {"m_numerator_words", fw}, {"m_denominator_words", fw}};
        if (refined_) {
            const int64_t dropped = int64_t(4.0 * n / kNatsPerWord);
            pc_ = uint64_t(std::clamp<int64_t>(int64_t(p) - dropped + 2, 2, int64_t(p)));
            const int64_t n_int = int64_t(1) << log2_n_;
            b_series_ = std::make_unique<BinarySplitting::PolynomialSeries>(
                "SeriesEulerGammaBMR B", std::vector<int64_t>{1}, std::vector<int64_t>{0, 0, 1},
                std::vector<int64_t>{n_int * n_int}, BinarySplitting::PolynomialSeries::Form::Linear);
            c_series_ = std::make_unique<BrentMcMillanCSeries>(n_int);
            b_sum_.emplace(*b_series_, 1, BinarySplitting::SeriesCoefficients{1, 1, 1});
            c_sum_.emplace(*c_series_, 1, BinarySplitting::SeriesCoefficients{1, 1, 4 * n_int});
            const uint64_t cfw = PQRSummation::result_words(pc_), tw = pc_ + 4;
            const uint64_t products = std::max(FormulaFloat::mul_scratch_bytes(*context.table, cfw, tw),
                                               FormulaFloat::sqr_scratch_bytes(*context.table, cfw));
            const uint64_t work = std::max({b_sum_->memory_bytes(env, pc_, context.tds),
                                            c_sum_->memory_bytes(env, pc_, context.tds), 3 * value_bytes(tw) + products,
                                            3 * value_bytes(tw) + division_->scratch_bytes()});
            const uint64_t phase2 = value_bytes(nw) + 4 * value_bytes(cfw) + work;
            s.scratch_bytes = value_bytes(nw) + std::max(phase1, phase2);
            s.buffers.push_back({"m_correction_words", pc_});
        }
        s.checkpoint_bytes = value_bytes(nw);
        return s;
    }

    void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) override {
        const BinarySplitting::MulEnv env{context.table, context.parallelizer, context.tds};
        const uint64_t p = precision(), fw = BMSummation::result_words(p), nw = node_value_words(p);
        FormulaFloat x = carve_value(scratch, nw);
        {
            AlignedBufferC work = scratch;
            FormulaFloat num = carve_value(work, fw), den = carve_value(work, fw);
            sum_->run(p, env, context.tds, work, num, den, false);
            context.report("Dividing: ");
            division_->run(refined_ ? x : out, num, den, p, work, context.parallelizer, context.tds);
        }
        if (!refined_) return;
        // C / B^2 = numC denB^2 / (denC numB^2) at the reduced precision.
        const uint64_t cfw = PQRSummation::result_words(pc_), tw = pc_ + 4;
        FormulaFloat correction = carve_value(scratch, nw);
        FormulaFloat numB = carve_value(scratch, cfw), denB = carve_value(scratch, cfw);
        FormulaFloat numC = carve_value(scratch, cfw), denC = carve_value(scratch, cfw);
        b_sum_->run(pc_, env, context.tds, scratch, numB, denB, false);
        c_sum_->run(pc_, env, context.tds, scratch, numC, denC, false);
        FormulaFloat t = carve_value(scratch, tw), top = carve_value(scratch, tw), bottom = carve_value(scratch, tw);
        context.report("Multiplying: ");
        t.set_sqr(denB, pc_ + 2, *context.table, scratch, context.parallelizer, context.tds);
        top.set_mul(numC, t, pc_ + 2, *context.table, scratch, context.parallelizer, context.tds);
        t.set_sqr(numB, pc_ + 2, *context.table, scratch, context.parallelizer, context.tds);
        bottom.set_mul(denC, t, pc_ + 2, *context.table, scratch, context.parallelizer, context.tds);
        context.report("Dividing: ");
        division_->run(correction, top, bottom, pc_, scratch, context.parallelizer, context.tds);
        correction.sign = !correction.sign;
        signed_add(out, x, correction, p);
    }

private:
    uint32_t log2_n_;
    bool refined_;
    uint64_t pc_ = 0;
    std::unique_ptr<BinarySplitting::BrentMcMillanSeries> series_;
    std::optional<BMSummation> sum_;
    std::unique_ptr<BinarySplitting::PolynomialSeries> b_series_, c_series_;
    std::optional<PQRSummation> b_sum_, c_sum_;
    std::optional<Division_BigFloatR<uint64_t>> division_;
};

std::unique_ptr<FormulaEvaluator> make_brent_node(const FormulaNode& node, const char* name, const char* class_name,
                                                  bool refined) {
    const std::string function = std::string(class_name) + "::" + class_name + "()";
    const ConfigObject& argument = node.argument().as_object(name);
    const SeriesNodeCoefficients coefficients = read_series_coefficients(argument, function.c_str());
    const int64_t n = argument.get_integer("n", function);
    if (n < 2 || (n & (n - 1)) != 0 || n > (int64_t(1) << kLargestLog2N))
        throw InvalidParametersException(function, "n must be a power of two in [2, 2^29].");
    const uint32_t log2_n = uint32_t(__builtin_ctzll(uint64_t(n)));
    return make_series_value_evaluator(class_name, std::make_unique<FormulaB_BrentMcMillanSum>(log2_n, refined),
                                       coefficients);
}

}  // namespace

std::unique_ptr<FormulaEvaluator> make_series_euler_gamma_bm_node(const FormulaNode& node, FormulaBuilder&) {
    return make_brent_node(node, "SeriesEulerGammaBM", "FormulaB_SeriesEulerGammaBM", false);
}

std::unique_ptr<FormulaEvaluator> make_series_euler_gamma_bmr_node(const FormulaNode& node, FormulaBuilder&) {
    return make_brent_node(node, "SeriesEulerGammaBMR", "FormulaB_SeriesEulerGammaBMR", true);
}

}  // namespace qmp
