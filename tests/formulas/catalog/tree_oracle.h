// A long-double evaluator of formula trees for the catalog tests, written from the definitions
// of the nodes and series (term ratios and leaves as published), not from the catalog's code.
// It covers the nodes the catalog emits whose series are known; anything else fails the test.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "config/config_object.h"

namespace qv::test {

using qmp::ConfigObject;
using Real = long double;

inline Real poly(const std::vector<Real>& c, Real k) {
    Real v = 0;
    for (size_t i = c.size(); i-- > 0;) v = v * k + c[i];
    return v;
}

inline std::vector<Real> reals(const ConfigObject& a) {
    std::vector<Real> out;
    for (const ConfigObject& e : a.as_array()) out.push_back(Real(e.as_integer()));
    return out;
}

// S = sum_{k>=1} [prod_{j<k} R(j)/Q(j)] P(k)/Q(k). A series given by its term ratio R/Q and a
// linear factor lin has P(k) = R(k) lin(k).
template <typename F>
Real pq_sum(F&& leaf) {
    Real s = 0, ratio = 1;
    for (int k = 1; k < 400; ++k) {
        Real p, q, r;
        leaf(Real(k), p, q, r);
        const Real term = ratio * p / q;
        s += term;
        ratio *= r / q;
        if (std::fabs(term) < 1e-30L * std::fabs(s) && k > 2) break;
    }
    return s;
}

inline Real evaluate(const ConfigObject& tree);

inline Real series_value(const std::string& name, const ConfigObject& a) {
    auto key = [&](const char* k, int64_t fallback) { return a.contains(k) ? a.get_integer(k, "oracle") : fallback; };
    const Real cp = Real(key("CoefficientP", 1)), cq = Real(key("CoefficientQ", 0)), cd = Real(key("CoefficientD", 1));
    const int64_t power = key("Power", 1);
    Real s = 0;
    if (name == "SeriesPiChudnovsky") {
        s = pq_sum([](Real k, Real& p, Real& q, Real& r) {
            r = -(2 * k - 1) * (6 * k - 5) * (6 * k - 1), q = k * k * k * 10939058860032000.0L, p = r * (545140134 * k + 13591409);
        });
    } else if (name == "SeriesPiRamanujan") {
        s = pq_sum([](Real k, Real& p, Real& q, Real& r) {
            r = (2 * k - 1) * (4 * k - 3) * (4 * k - 1), q = k * k * k * 3073907232.0L, p = r * (26390 * k + 1103);
        });
    } else if (name == "SeriesETaylor") {
        const bool alt = a.get_bool("Alternating", "oracle");
        s = 1 + pq_sum([&](Real k, Real& p, Real& q, Real& r) { r = alt ? -1 : 1, q = k, p = r; });
    } else if (name == "SeriesHypergeometric" || name.starts_with("SeriesCatalan")) {
        std::vector<Real> P, Q, R;
        if (name == "SeriesHypergeometric") {
            P = reals(a.get("PolynomialP", "oracle")), Q = reals(a.get("PolynomialQ", "oracle")), R = reals(a.get("PolynomialR", "oracle"));
        } else if (name == "SeriesCatalanPilehoodShort") {
            R = {0, 0, 0, -32, 64}, Q = {225, -3240, 14904, -23328, 11664}, P = {15, -184, 580};
        } else if (name == "SeriesCatalanZuniga2023") {
            R = {0, 0, 0, 1280, -17536, 86400, -195840, 207360, -82944};
            Q = {363825, -12034680, 150240200, -918651040, 3101725520, -6073920000, 6863040000, -4147200000, 1036800000};
            P = {-17325, 536620, -6004944, 30494304, -76613904, 92809152, -43203456};
        }
        s = pq_sum([&](Real k, Real& p, Real& q, Real& r) { p = poly(P, k), q = poly(Q, k), r = poly(R, k); });
    } else {
        ADD_FAILURE() << "oracle has no series " << name;
        return NAN;
    }
    const Real v = (cq + cp * s) / cd;
    return power == 1 ? v : 1 / v;
}

inline Real evaluate(const ConfigObject& tree) {
    if (tree.kind() == qmp::ConfigKind::Integer) return Real(tree.as_integer());
    EXPECT_EQ(tree.member_count(), 1u);
    const std::string& name = tree.member_key(0);
    const ConfigObject& a = tree.member_value(0);
    if (name == "Integer") return Real(a.as_integer());
    if (name == "Multiply") {
        Real v = 1;
        for (const ConfigObject& e : a.as_array()) v *= evaluate(e);
        return v;
    }
    if (name == "CheckedMultiply") return evaluate(a.get("Input0", "oracle")) * evaluate(a.get("Input1", "oracle"));
    if (name == "Invsqrt") return 1 / std::sqrt(evaluate(a));
    if (name == "InvNthRoot") return std::pow(evaluate(a.as_array()[1]), -1 / evaluate(a.as_array()[0]));
    if (name == "Shift") return std::ldexp(evaluate(a.as_array()[0]), int(a.as_array()[1].as_integer()));
    if (name == "Reciprocal") return 1 / evaluate(a);
    if (name == "Divide") return evaluate(a.as_array()[0]) / evaluate(a.as_array()[1]);
    if (name == "Log") return std::log(evaluate(a));
    if (name == "Log2") return Real(a.get_integer("Coefficient", "oracle")) * std::log(Real(2));
    if (name == "ArcCoth") return Real(a.get_integer("Coefficient", "oracle")) * std::atanh(1 / Real(a.get_integer("x", "oracle")));
    if (name == "LinearCombination") {
        Real v = 0;
        for (const ConfigObject& t : a.as_array()) {
            EXPECT_EQ(t.as_array().size(), 2u);
            v += evaluate(t.as_array()[0]) * evaluate(t.as_array()[1]);
        }
        return v;
    }
    if (name.starts_with("Series")) return series_value(name, a);
    ADD_FAILURE() << "oracle has no node " << name;
    return NAN;
}

}  // namespace qv::test
