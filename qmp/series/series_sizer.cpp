// Term counts and index guards (see series_sizer.h).
#include "qmp/series/series_sizer.h"

#include <cmath>
#include <string>

#include "qmp/exception.h"

namespace qmp::BinarySplitting {

namespace {

constexpr uint64_t kMaxIndex = uint64_t(1) << 62;

}  // namespace

uint64_t scan_term_count(const PQRSeries& s, uint64_t words, const char* function) {
    const double limit_log2 = -64.0 * double(words) - 8.0;
    // prod_{j<k} |R(j)/Q(j)| as mantissa * 2^exponent (doubles: the ratios of one term are
    // far inside the double range, and the exponent carries the rest).
    double mantissa = 1.0;
    int64_t exponent = 0;
    double previous_log2 = 0;
    bool previous_small = false;
    for (uint64_t k = 1; k < kMaxIndex; ++k) {
        long double P, Q, R;
        s.approximate(k, P, Q, R);
        // A zero denominator would make every later term infinite and the scan endless.
        if (Q == 0) throw InvalidParametersException(function, "Q(x) is zero at x = " + std::to_string(k) + ".");
        const double t = mantissa * double(P / Q);
        int e = 0;
        const double m = std::frexp(t, &e);
        const double t_log2 = t > 0 ? std::log2(m) + double(e) + double(exponent) : -1e300;
        // Term k is the first omitted one when it and the next are small enough.
        if (previous_small && t_log2 <= previous_log2 - 1.0) return k - 2;
        previous_small = t_log2 < limit_log2;
        previous_log2 = t_log2;
        if (R == 0) return k;  // a terminating series: no term after k
        mantissa = std::frexp(mantissa * double(R / Q), &e);
        exponent += e;
    }
    throw InvalidParametersException(function, "Series index exceeded. Series summation will overflow a 64-bit integer.");
}

void check_series_index(const char* function, uint64_t terms, double denominator_bits) {
    if (terms >= kMaxIndex)
        throw InvalidParametersException(function,
                                         "Series index exceeded. Series summation will overflow a 64-bit integer.");
    // A BigFloat exponent counts words in an int64; keep a factor 4 of room for the products.
    if (!(denominator_bits / 64.0 < std::ldexp(1.0, 60)))
        throw InvalidParametersException(
            function, "Series index exceeded. Series summation will overflow the BigFloat exponent.");
}

}  // namespace qmp::BinarySplitting
