// Chooses a term kernel by the active instruction-set level and checks runs against a
// kernel's modulus range. IFMA needs the AVX512 level to be active (QMP_SIMD=avx2 turns it
// off); AVX-512 without IFMA uses the AVX2 kernel.
#include "formulas/bbp/term_kernels.h"

#include "qmp/cpu_features.h"
#include "qmp/exception.h"

#include <string>

namespace qv::bbp {

const TermKernel& active_term_kernel() {
    switch (qmp::active_simd_level()) {
        case qmp::SimdLevel::AVX512:
            if (const TermKernel* k = avx512_ifma_term_kernel()) return *k;
            return avx2_term_kernel();
        case qmp::SimdLevel::AVX2: return avx2_term_kernel();
        case qmp::SimdLevel::Portable: break;
    }
    return portable_term_kernel();
}

uint128 sum_terms(const TermKernel& kernel, const TermProgression& run) {
    if (run.count == 0) return 0;
    const char* kFunction = "TermKernel::sum()";
    if ((run.modulus_first & 1) == 0 || (run.modulus_step & 1) != 0)
        throw qmp::InvalidParametersException(kFunction, "Moduli must be odd.");
    // Overflow of the last modulus or exponent would wrap silently: check by division.
    const uint64_t n = run.count - 1;
    if (run.modulus_step != 0 && n > (kernel.modulus_limit - 1 - run.modulus_first) / run.modulus_step)
        throw qmp::InvalidParametersException(
            kFunction, std::string("Modulus out of range of the ") + kernel.name + " kernel.");
    if (run.modulus_first >= kernel.modulus_limit)
        throw qmp::InvalidParametersException(
            kFunction, std::string("Modulus out of range of the ") + kernel.name + " kernel.");
    if (run.exponent_step != 0 && n > run.exponent_first / run.exponent_step)
        throw qmp::InvalidParametersException(kFunction, "Exponents must not be negative.");
    if (run.exponent_first > (uint64_t(1) << 62))
        throw qmp::InvalidParametersException(kFunction, "Exponent out of range.");
    return kernel.sum(run);
}

uint128 sum_terms_split(const TermKernel& fast, const TermProgression& run) {
    if (run.count == 0 || &fast == &portable_term_kernel() || run.modulus_first >= fast.modulus_limit)
        return sum_terms(portable_term_kernel(), run);
    // Terms i < in_range have m_i < limit.
    uint64_t in_range = run.count;
    if (run.modulus_step != 0) {
        const uint64_t fit = (fast.modulus_limit - 1 - run.modulus_first) / run.modulus_step + 1;
        if (fit < in_range) in_range = fit;
    }
    TermProgression head = run;
    head.count = in_range;
    TermProgression rest = run;
    rest.count = run.count - in_range;
    rest.exponent_first = run.exponent_first - in_range * run.exponent_step;
    rest.modulus_first = run.modulus_first + in_range * run.modulus_step;
    rest.negative_first = run.negative(in_range);
    return sum_terms(fast, head) + sum_terms(portable_term_kernel(), rest);
}

}  // namespace qv::bbp
