// Digit-count estimators in double-double arithmetic (Dekker's products through FMA).
#include "qmp/radix/digit_estimates.h"

#include <cmath>

#include "qmp/exception.h"

namespace qmp {

namespace {

constexpr double kPlainLimit = 281474976710656.0;         // 2^48
constexpr double kArgumentLimit = 4611686018427387904.0;  // 2^62

DoubleDouble quick_two_sum(double a, double b) {
    const double s = a + b;
    return {s, b - (s - a)};
}

DoubleDouble two_sum(double a, double b) {
    const double s = a + b, v = s - a;
    return {s, (a - (s - v)) + (b - v)};
}

DoubleDouble dd_add(DoubleDouble a, DoubleDouble b) {
    DoubleDouble s = two_sum(a.hi, b.hi);
    s.lo += a.lo + b.lo;
    return quick_two_sum(s.hi, s.lo);
}

DoubleDouble from_integer(int64_t x) {
    const double hi = double(x);
    // x - hi is exact in integers: |x - hi| <= 2^9 for |x| < 2^62.
    return quick_two_sum(hi, double(x - int64_t(hi)));
}

void check_range(double x, const char* function) {
    if (!(std::fabs(x) < kArgumentLimit)) throw InvalidParametersException(function, "Argument is out of range.");
}

// factor * x truncated toward zero (or rounded to nearest), plain below 2^48.
int64_t scale(int64_t x, double plain_factor, const DoubleDouble& factor, bool nearest, const char* function) {
    check_range(double(x), function);
    if (std::fabs(double(x)) < kPlainLimit) {
        const double y = double(x) * plain_factor;
        return int64_t(nearest ? std::nearbyint(y) : std::trunc(y));
    }
    DoubleDouble y = dd_mul(from_integer(x), factor);
    if (nearest) y = dd_add(y, DoubleDouble{0.5, 0.0});
    int64_t f = dd_floor(y);
    if (!nearest && x < 0 && (double(f) != y.hi || y.lo != 0.0)) f += 1;  // truncate toward zero
    return f;
}

const DoubleDouble& log10_2() {
    static const DoubleDouble v = parse_double_double("0.30102999566398119521373889472449302676818988146211");
    return v;
}
const DoubleDouble& dec_to_hex_factor() {
    static const DoubleDouble v = parse_double_double("0.83048202372184058696757985737234754396620784825615");
    return v;
}
const DoubleDouble& hex_to_dec_factor() {
    static const DoubleDouble v = parse_double_double("1.2041199826559247808549555788979721070727595258484");
    return v;
}
const DoubleDouble& word_to_dec_factor() {
    static const DoubleDouble v = [] {
        const DoubleDouble ln2 = parse_double_double("0.6931471805599453094172321214581765680755");
        const DoubleDouble ln10 = parse_double_double("2.3025850929940456840179914546843642076011014886288");
        return dd_div(dd_mul(DoubleDouble{32.0, 0.0}, ln2), ln10);
    }();
    return v;
}

}  // namespace

DoubleDouble dd_mul(DoubleDouble a, DoubleDouble b) {
    const double p = a.hi * b.hi;
    const double e = std::fma(a.hi, b.hi, -p) + (a.hi * b.lo + a.lo * b.hi);
    return quick_two_sum(p, e);
}

DoubleDouble dd_div(DoubleDouble a, DoubleDouble b) {
    // Two Newton-style correction steps on the double quotient.
    const double q1 = a.hi / b.hi;
    DoubleDouble r = dd_add(a, dd_mul(b, DoubleDouble{-q1, 0.0}));
    const double q2 = r.hi / b.hi;
    r = dd_add(r, dd_mul(b, DoubleDouble{-q2, 0.0}));
    const double q3 = r.hi / b.hi;
    return dd_add(quick_two_sum(q1, q2), DoubleDouble{q3, 0.0});
}

int64_t dd_floor(DoubleDouble a) {
    const double f = std::floor(a.hi);
    if (f != a.hi) return int64_t(f);
    return int64_t(f) + int64_t(std::floor(a.lo));
}

DoubleDouble parse_double_double(const char* text) {
    DoubleDouble value{0.0, 0.0}, scale_down{1.0, 0.0};
    bool after_point = false;
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '.') {
            after_point = true;
            continue;
        }
        value = dd_add(dd_mul(value, DoubleDouble{10.0, 0.0}), DoubleDouble{double(*c - '0'), 0.0});
        if (after_point) scale_down = dd_mul(scale_down, DoubleDouble{10.0, 0.0});
    }
    return dd_div(value, scale_down);
}

int64_t bit_to_dec_si(int64_t bits) {
    return scale(bits, 0.30102999566398119521, log10_2(), false, "bit_to_dec_si()");
}

int64_t dec_to_hex_si(int64_t digits) {
    return scale(digits, 0.83048202372184058697, dec_to_hex_factor(), false, "dec_to_hex_si()");
}

uint64_t hex_to_dec_ui(uint64_t digits) {
    check_range(double(digits), "hex_to_dec_ui()");
    return uint64_t(scale(int64_t(digits), 1.2041199826559247809, hex_to_dec_factor(), false, "hex_to_dec_ui()"));
}

int64_t word_to_dec_si(int64_t words) {
    return scale(words, 9.632959861247398, word_to_dec_factor(), true, "word_to_dec_si()");
}

}  // namespace qmp
