// Polynomial P/Q/R series (see polynomial_series.h).
#include "qmp/series/polynomial_series.h"

#include <cmath>

#include "qmp/exception.h"
#include "qmp/numbers/word_products.h"
#include "qmp/series/series_sizer.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp::BinarySplitting {

namespace {

constexpr const char* kConstructor = "BinarySplitting::PolynomialSeries::PolynomialSeries()";
constexpr const char* kTerm = "BinarySplitting::PolynomialSeries::term()";

uint64_t magnitude(int64_t c) { return c < 0 ? uint64_t(0) - uint64_t(c) : uint64_t(c); }

uint64_t residue_of_signed(int64_t c) {
    const uint64_t r = reduce_m61(magnitude(c));
    return c < 0 ? sub_m61(0, r) : r;
}

size_t degree_of(const std::vector<int64_t>& c) {
    size_t d = c.size();
    while (d > 0 && c[d - 1] == 0) --d;
    return d == 0 ? 0 : d - 1;
}

// |c(k)| <= (sum |c_i|) * k^degree for k >= 1.
GrowthBound bound_of(const std::vector<int64_t>& c) {
    long double sum = 0;
    for (int64_t x : c) sum += (long double)magnitude(x);
    const double log2c = sum <= 1 ? 0.0 : double(std::log2(sum)) * (1 + 1e-15) + 1e-12;
    return {log2c, double(degree_of(c))};
}

void check_array(const std::vector<int64_t>& c) {
    if (c.empty() || c.size() > PolynomialSeries::kMaxDegree + 1)
        throw InvalidParametersException(kConstructor, "Polynomial degree must be between 0 and 62.");
}

// out = out * k + c on a signed magnitude.
void multiply_add(TermValue& v, uint64_t k, int64_t c) {
    if (v.L != 0) {
        const uint64_t carry = mul_1(v.w, v.w, v.L, k);
        if (carry != 0) {
            if (v.L == TermValue::kMaxWords) throw LimitExceededException(kTerm, "Term value exceeds 64 words.");
            v.w[v.L++] = carry;
        }
        v.L = normalized_length(v.w, v.L);
        if (v.L == 0) v.negative = false;
    }
    if (c == 0) return;
    const uint64_t m = magnitude(c);
    const bool c_negative = c < 0;
    if (v.L == 0) {
        v.set_u64(m, c_negative);
        return;
    }
    if (v.negative == c_negative) {
        const uint64_t carry = add_1(v.w, v.w, v.L, m);
        if (carry != 0) {
            if (v.L == TermValue::kMaxWords) throw LimitExceededException(kTerm, "Term value exceeds 64 words.");
            v.w[v.L++] = carry;
        }
        return;
    }
    if (v.L == 1 && v.w[0] < m) {
        v.w[0] = m - v.w[0];
        v.negative = c_negative;
        return;
    }
    sub_1(v.w, v.w, v.L, m);
    v.L = normalized_length(v.w, v.L);
    if (v.L == 0) v.negative = false;
}

void multiply_values(TermValue& out, const TermValue& u, const TermValue& v) {
    if (u.L == 0 || v.L == 0) {
        out.set_u64(0);
        return;
    }
    if (u.L + v.L > TermValue::kMaxWords) throw LimitExceededException(kTerm, "Term value exceeds 64 words.");
    if (u.L >= v.L) mul_words_basecase<uint64_t>(out.w, u.w, u.L, v.w, v.L);
    else mul_words_basecase<uint64_t>(out.w, v.w, v.L, u.w, u.L);
    out.L = uint32_t(normalized_length(out.w, u.L + v.L));
    out.negative = u.negative != v.negative;
}

}  // namespace

PolynomialSeries::PolynomialSeries(std::string name, std::vector<int64_t> P, std::vector<int64_t> Q,
                                   std::vector<int64_t> R, Form form)
    : name_(std::move(name)), P_(std::move(P)), Q_(std::move(Q)), R_(std::move(R)), form_(form) {
    check_array(P_);
    check_array(Q_);
    check_array(R_);
    bool q_zero = true;
    for (int64_t c : Q_) q_zero = q_zero && c == 0;
    if (q_zero) throw InvalidParametersException(kConstructor, "Polynomial Q must not be zero.");
    growth_.Q = bound_of(Q_);
    growth_.R = bound_of(R_);
    const GrowthBound p = bound_of(P_);
    growth_.P = form_ == Form::Linear
                    ? GrowthBound{growth_.R.log2_coefficient + p.log2_coefficient, growth_.R.degree + p.degree}
                    : p;
}

void PolynomialSeries::evaluate(const std::vector<int64_t>& c, uint64_t k, TermValue& out) {
    out.set_u64(0);
    for (size_t i = c.size(); i-- > 0;) multiply_add(out, k, c[i]);
}

uint64_t PolynomialSeries::evaluate_m61(const std::vector<int64_t>& c, uint64_t k) {
    const uint64_t x = reduce_m61(k);
    uint64_t v = 0;
    for (size_t i = c.size(); i-- > 0;) v = add_m61(mul_m61(v, x), residue_of_signed(c[i]));
    return v;
}

void PolynomialSeries::term(uint64_t k, TermValue& P, TermValue& Q, TermValue& R) const {
    evaluate(Q_, k, Q);
    evaluate(R_, k, R);
    if (form_ == Form::Direct) {
        evaluate(P_, k, P);
    } else {
        TermValue lin;
        evaluate(P_, k, lin);
        multiply_values(P, R, lin);
    }
}

void PolynomialSeries::term_residues(uint64_t k, uint64_t& P, uint64_t& Q, uint64_t& R) const {
    Q = evaluate_m61(Q_, k);
    R = evaluate_m61(R_, k);
    P = evaluate_m61(P_, k);
    if (form_ == Form::Linear) P = mul_m61(P, R);
}

uint64_t PolynomialSeries::terms_for_words(uint64_t words) const {
    return scan_term_count(*this, words, "BinarySplitting::PolynomialSeries::terms_for_words()");
}

}  // namespace qmp::BinarySplitting
