// Machin-like formulas for log n: log n = sum_i c_i * arccoth(x_i) with integers c_i, where every
// x_i - 1 and x_i + 1 factor over the primes up to max(7, largest prime factor of n). Since
// 2 arccoth(x) = log((x+1)/(x-1)), each x gives an exponent vector v(x) over those primes and the
// c_i solve sum_i c_i v(x_i) = 2 e(n), e(n) the exponent vector of n. The x are picked greedily,
// largest first, among linearly independent vectors; this minimises the cost sum 1/log10(x_i),
// which is proportional to the number of series terms. The secondary formula repeats the search
// without the primary's x, so that the two share no series and check each other.
// The solve is exact (fraction-free determinants in 128 bits); when it is not integral the common
// denominator is kept apart. find_formula() throws InvalidParametersException "Unable to find a
// formula." when the candidate x do not span the primes or the numbers overflow.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

enum class MachinChoice { Primary, Secondary };

class LogMachinFormula {
public:
    struct Term {
        int64_t coefficient;
        uint64_t x;
        double cost;  // 1 / log10(x)
    };

    // x - 1 and x + 1 are searched up to this bound; by Stormer's theorem the list is finite for
    // every prime set, and for {2, 3, 5, 7} its largest member is 8749.
    static constexpr uint64_t kSearchBound = 10'000'000;
    // Above this largest prime factor the prime set (and the search) grows too large; callers
    // use the AGM logarithm instead.
    static constexpr uint64_t kLargestPrimeFactor = 97;

    // n >= 2 ("Argument must be greater than 1.").
    LogMachinFormula(uint64_t n, MachinChoice choice);

    void find_formula();

    uint64_t argument() const noexcept { return n_; }
    MachinChoice choice() const noexcept { return choice_; }
    const std::vector<uint64_t>& primes() const noexcept { return primes_; }
    const std::vector<Term>& terms() const noexcept { return terms_; }
    // log n = (sum of the terms) / denominator(); 1 for most n (always for n up to 13 with
    // primes up to 13), larger when the chosen vectors span the exponent lattice only
    // rationally.
    int64_t denominator() const noexcept { return denominator_; }
    double cost() const noexcept;

    // One line per term, c " * ArcCoth[" x "] = " and the term's value, then its cost on the
    // next line; the label ("Primary Machin-like Formula (" ...) comes first.
    std::string describe() const;
    void print() const;

    // Helpers shared with the catalog.
    static uint64_t largest_prime_factor(uint64_t n);
    static std::vector<uint64_t> primes_up_to(uint64_t limit);

private:
    uint64_t n_;
    MachinChoice choice_;
    std::vector<uint64_t> primes_;
    std::vector<Term> terms_;
    int64_t denominator_ = 1;
};

}  // namespace qv
