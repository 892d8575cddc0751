// The two formulas' term tables and their head/tail evaluation (see digit_formulas.h).
#include "formulas/bbp/digit_formulas.h"

#include <algorithm>

namespace qv::bbp {
namespace {

// 4n + offset as a signed value (positions are below 2^60, so this cannot overflow).
int64_t base_exponent(uint64_t position, const PowerTerm& term) {
    return int64_t(4 * position) + term.exponent_offset;
}

// Number of k >= 0 with base - per_k * k >= 0.
uint64_t head_count(int64_t base, uint64_t per_k) { return base < 0 ? 0 : uint64_t(base) / per_k + 1; }

bool term_negative(const DigitFormula& f, const PowerTerm& t, uint64_t k) {
    return t.negative != (f.alternating && (k & 1) != 0);
}

}  // namespace

const DigitFormula& bbp_formula() {
    static const DigitFormula formula{"BBP", 4, false,
                                      {
                                          {2, 8, 1, false},   // +4/(8k+1)
                                          {-1, 2, 1, true},   // -2/(8k+4)
                                          {0, 8, 5, true},    // -1/(8k+5)
                                          {-1, 4, 3, true},   // -1/(8k+6)
                                      }};
    return formula;
}

const DigitFormula& bellard_formula() {
    static const DigitFormula formula{"Bellard", 10, true,
                                      {
                                          {-1, 4, 1, true},    // -2^5/(4k+1)
                                          {-6, 4, 3, true},    // -1/(4k+3)
                                          {2, 10, 1, false},   // +2^8/(10k+1)
                                          {0, 10, 3, true},    // -2^6/(10k+3)
                                          {-4, 10, 5, true},   // -2^2/(10k+5)
                                          {-4, 10, 7, true},   // -2^2/(10k+7)
                                          {-6, 10, 9, false},  // +1/(10k+9)
                                      }};
    return formula;
}

FormulaSum& FormulaSum::operator+=(const FormulaSum& other) {
    value += other.value;
    error_units += other.error_units;
    terms += other.terms;
    return *this;
}

uint64_t head_k_count(const DigitFormula& formula, uint64_t position) {
    uint64_t count = 0;
    for (const PowerTerm& t : formula.terms)
        count = std::max(count, head_count(base_exponent(position, t), formula.exponent_per_k));
    return count;
}

uint64_t head_term_count(const DigitFormula& formula, uint64_t position) {
    uint64_t count = 0;
    for (const PowerTerm& t : formula.terms) count += head_count(base_exponent(position, t), formula.exponent_per_k);
    return count;
}

FormulaSum sum_head(const DigitFormula& formula, uint64_t position, uint64_t k_first, uint64_t k_end,
                    const TermKernel& kernel) {
    FormulaSum sum;
    for (const PowerTerm& t : formula.terms) {
        const int64_t base = base_exponent(position, t);
        const uint64_t end = std::min(k_end, head_count(base, formula.exponent_per_k));
        if (k_first >= end) continue;
        TermProgression run;
        run.exponent_first = uint64_t(base) - formula.exponent_per_k * k_first;
        run.exponent_step = formula.exponent_per_k;
        run.modulus_first = t.modulus_per_k * k_first + t.modulus_offset;
        run.modulus_step = t.modulus_per_k;
        run.count = end - k_first;
        run.negative_first = term_negative(formula, t, k_first);
        run.alternating = formula.alternating;
        sum.value += sum_terms_split(kernel, run);
        sum.terms += run.count;
    }
    // Kernels truncate each term at 2^-128: under one unit per term.
    sum.error_units = sum.terms;
    return sum;
}

FormulaSum sum_tail(const DigitFormula& formula, uint64_t position) {
    FormulaSum sum;
    for (const PowerTerm& t : formula.terms) {
        const int64_t base = base_exponent(position, t);
        // Terms 2^e/m with -128 <= e < 0 are floor(2^(128+e)/m) units, each short by under one.
        // Those with e < -128 are left out: together below 2^-129 * (1 + 2^-4 + ...) < 1 unit.
        for (uint64_t k = head_count(base, formula.exponent_per_k);; ++k) {
            const int64_t e = base - int64_t(formula.exponent_per_k * k);
            if (e < -128) break;
            const uint128 m = uint128(t.modulus_per_k) * k + t.modulus_offset;
            const uint128 f = e == -128 ? 1 / m : (uint128(1) << (128 + e)) / m;
            sum.value = term_negative(formula, t, k) ? sum.value - f : sum.value + f;
            ++sum.terms;
        }
        ++sum.error_units;  // the part left out
    }
    sum.error_units += sum.terms;
    return sum;
}

uint128 head_term_value(const DigitFormula& formula, uint64_t position, uint64_t k, uint32_t term) {
    const PowerTerm& t = formula.terms.at(term);
    TermProgression run;
    run.exponent_first = uint64_t(base_exponent(position, t)) - formula.exponent_per_k * k;
    run.modulus_first = t.modulus_per_k * k + t.modulus_offset;
    run.count = 1;
    run.negative_first = term_negative(formula, t, k);
    return sum_terms(portable_term_kernel(), run);
}

}  // namespace qv::bbp
