// Shared helpers of P/Q/R series (see pqr_series.h).
#include "qmp/series/pqr_series.h"

#include "qmp/series/range_bounds.h"

namespace qmp::BinarySplitting {

void PQRSeries::approximate(uint64_t k, long double& P, long double& Q, long double& R) const {
    TermValue p, q, r;
    term(k, p, q, r);
    auto value = [](const TermValue& v) {
        long double x = 0;
        for (uint32_t i = v.L; i-- > 0;) x = x * 18446744073709551616.0L + (long double)v.w[i];
        return x;
    };
    P = value(p);
    Q = value(q);
    R = value(r);
}

double PQRSeries::expansion_factor(uint64_t terms, uint64_t words) const {
    if (words == 0) return 0.0;
    return range_bits(growth().Q, 1, terms + 1) / (64.0 * double(words));
}

}  // namespace qmp::BinarySplitting
