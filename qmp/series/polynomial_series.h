// A P/Q/R series given as data: three polynomials in k with 64-bit signed coefficients,
// lowest degree first (degree at most 62), as formula nodes pass them.
//   Form::Linear:  P(k) = R(k) * lin(k)   (the polynomial P is the linear factor lin)
//   Form::Direct:  P(k) = the polynomial P
// term() evaluates exactly in words (Horner on a signed magnitude); term_residues() evaluates
// the same polynomials modulo 2^61 - 1 with no words in common. Coefficients must give
// Q(k) != 0 for k >= 1; values must fit TermValue::kMaxWords words (else LimitExceeded).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qmp/series/pqr_series.h"

namespace qmp::BinarySplitting {

class PolynomialSeries : public PQRSeries {
public:
    enum class Form { Linear, Direct };
    static constexpr size_t kMaxDegree = 62;

    // Throws InvalidParametersException for an empty or too long array or a zero Q.
    PolynomialSeries(std::string name, std::vector<int64_t> P, std::vector<int64_t> Q, std::vector<int64_t> R,
                     Form form);

    std::string name() const override { return name_; }
    PQRGrowth growth() const override { return growth_; }
    void term(uint64_t k, TermValue& P, TermValue& Q, TermValue& R) const override;
    void term_residues(uint64_t k, uint64_t& P, uint64_t& Q, uint64_t& R) const override;
    uint64_t terms_for_words(uint64_t words) const override;

    // Exact value of a polynomial at k (lowest degree first).
    static void evaluate(const std::vector<int64_t>& c, uint64_t k, TermValue& out);
    static uint64_t evaluate_m61(const std::vector<int64_t>& c, uint64_t k);

private:
    std::string name_;
    std::vector<int64_t> P_, Q_, R_;
    Form form_;
    PQRGrowth growth_;
};

}  // namespace qmp::BinarySplitting
