// The top-level summation shared by the families (see psr_series.h).
#include "qmp/series/psr_series.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <type_traits>
#include <cstdio>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/series/binary_bbp.h"
#include "qmp/series/brent_mcmillan_ab.h"
#include "qmp/series/common_p2b3.h"
#include "qmp/series/hyperdescent.h"
#include "qmp/series/series_sizer.h"
#include "qmp/series/truncated_top.h"

namespace qmp::BinarySplitting {

namespace {

template <class F>
std::string routine(const char* name) {
    return std::string(F::kFamily) + "::PSR_SeriesB::" + name;
}

// x = c * x (signed c) in place; x needs one spare word.
void scale_signed(Int& x, int64_t c) {
    const uint64_t magnitude = c < 0 ? uint64_t(0) - uint64_t(c) : uint64_t(c);
    x.mul_uW(magnitude);
    if (c < 0 && x.L != 0) x.sign = !x.sign;
    if (x.L == 0) x.sign = true;
}

void report_index(uint64_t index, void* context) {
    const uint64_t total = *static_cast<const uint64_t*>(context);
    char line[96];
    std::snprintf(line, sizeof line, "\rSumming: Index: %llu / %llu", (unsigned long long)index,
                  (unsigned long long)total);
    Console::print(line, Console::Colour::Info);
}

}  // namespace

template <class F>
PSR_SeriesB<F>::PSR_SeriesB(const Series& series, int power, SeriesCoefficients coefficients)
    : series_(series), power_(power), coefficients_(coefficients) {
    if (power != 1 && power != -1)
        throw InvalidParametersException(routine<F>("PSR_SeriesB()"), "Power must be 1 or -1.");
}

template <class F>
uint64_t PSR_SeriesB<F>::terms(uint64_t words) const {
    if (words == cached_words_ && words != 0) return cached_terms_;
    const uint64_t n = series_.terms_for_words(words);
    const std::string function = routine<F>("run()");
    check_series_index(function.c_str(), n, 64.0 * double(F::caps(series_, 1, n + 1)[F::kQ]));
    cached_words_ = words;
    cached_terms_ = n;
    return n;
}

template <class F>
uint64_t PSR_SeriesB<F>::memory_bytes(const MulEnv& env, uint64_t words, uint64_t tds) const {
    WorkArena counter = WorkArena::counting();
    sum(words, env, tds, counter, nullptr, nullptr, false, nullptr);
    return counter.peak() + 128;
}

template <class F>
void PSR_SeriesB<F>::run(uint64_t words, const MulEnv& env, uint64_t tds, AlignedBufferC buffer,
                         BigFloat<uint64_t>& numerator, BigFloat<uint64_t>& denominator, bool verbose,
                         BSRProgress* profile) const {
    sum(words, env, tds, WorkArena(buffer), &numerator, &denominator, verbose, profile);
}

template <class F>
void PSR_SeriesB<F>::sum(uint64_t words, const MulEnv& env, uint64_t tds, WorkArena arena,
                         BigFloat<uint64_t>* numerator, BigFloat<uint64_t>* denominator, bool verbose,
                         BSRProgress* profile) const {
    uint64_t n = terms(words);
    const bool counting = arena.is_counting();
    const auto caps = F::caps(series_, 1, n + 1);
    if (verbose) {
        Console::println(F::kStatusLabel, Console::Colour::Header);
        char line[128];
        std::snprintf(line, sizeof line, "%llu terms  (Expansion Factor = %.3f)", (unsigned long long)n,
                      double(caps[F::kQ]) / double(std::max<uint64_t>(words, 1)));
        Console::println(line, Console::Colour::Label);
    }
    BSRProgress local;
    BSRProgress& progress = profile ? *profile : local;
    const bool show_index = verbose && isatty(STDOUT_FILENO);
    if (verbose) Console::print("Summing: ", Console::Colour::Info);
    if (show_index) {
        progress.report = report_index;
        progress.context = &n;
    }
    BSR<F> bsr(series_, env, &progress, n + 1);
    // S = num / (den 2^shift); then A = CQ den 2^shift + CP num and B = CD den 2^shift.
    SeriesFraction s;
    bool summed = false;
    if constexpr (std::is_same_v<F, CommonP2B3>) {
        // Only P / Q is wanted: when the halves' outputs are longer than the precision, the top
        // merge multiplies their top words only.
        const uint64_t keep = result_words(words) + 2;
        if (n >= 8) {
            const uint64_t m = series_.split(1, n + 1);
            const auto capL = F::caps(series_, 1, m), capR = F::caps(series_, m, n + 1);
            if (truncated_top_applies(capL, capR, keep)) {
                const unsigned maskL = F::left_mask(F::kTopMask), maskR = F::right_mask(F::kTopMask);
                BSRNode<F> L = carve_node<F>(capL, maskL, arena);
                BSRNode<F> R = carve_node<F>(capR, maskR, arena);
                bsr.BSR_S(1, m, L, maskL, arena, tds);
                bsr.BSR_S(m, n + 1, R, maskR, arena, tds);
                const uint64_t t0 = progress.timing ? BSRProgress::now_ns() : 0;
                truncated_top_merge(1, n + 1, L, R, capL, capR, caps, keep, s, arena, env.with_tds(tds));
                if (progress.timing) {
                    const unsigned bucket = std::bit_width(total_words<F>(caps, F::kTopMask));
                    progress.merge_ns[bucket] += BSRProgress::now_ns() - t0;
                    progress.merge_count[bucket] += 1;
                }
                summed = true;
            }
        }
    }
    BSRNode<F> top;
    if (!summed) {
        top = carve_node<F>(caps, F::kTopMask, arena);
        if (n > 0) bsr.BSR_S(1, n + 1, top, F::kTopMask, arena, tds);
    }
    if (verbose) {
        char line[64];
        std::snprintf(line, sizeof line, "%sIndex: %llu", show_index ? "\rSumming: " : "", (unsigned long long)n);
        Console::println(line, Console::Colour::Info);
        Console::println("Finishing Series", Console::Colour::Info);
    }
    if (!summed) F::finish(series_, n, top, s, arena, env);
    const uint64_t shift_words = s.den_shift_bits / 64 + 1;
    const uint64_t den_cap = s.den.capacity + shift_words + 2, num_cap = s.num.capacity + 2;
    const uint64_t a_cap = std::max(den_cap, num_cap) + 2;
    Int A = int_over(arena.take_words(a_cap), a_cap);
    Int B = int_over(arena.take_words(den_cap), den_cap);
    Int C = int_over(arena.take_words(num_cap), num_cap);
    if (counting) return;
    if (n == 0) {  // an empty sum: S = 0 / 1
        s.num.set_zero();
        s.den.T = s.den.base;
        s.den.T[0] = 1;
        s.den.L = 1;
        s.den.sign = true;
    }
    B.set_BigInt(s.den);
    if (B.L != 0) B <<= s.den_shift_bits;
    A.set_BigInt(B);
    scale_signed(A, coefficients_.CQ);
    C.set_BigInt(s.num);
    scale_signed(C, coefficients_.CP);
    add_signed_in_place(A, C);
    scale_signed(B, coefficients_.CD);
    const uint64_t p = result_words(words);
    const Int& num = power_ == 1 ? A : B;
    const Int& den = power_ == 1 ? B : A;
    if (den.L == 0) throw ArithmeticException(routine<F>("run()"), "Divide by zero.");
    numerator->set_BigInt(num, p);
    denominator->set_BigInt(den, p);
}

template class PSR_SeriesB<CommonP2B3>;
template class PSR_SeriesB<BinaryBBP>;
template class PSR_SeriesB<Hyperdescent>;
template class PSR_SeriesB<BrentMcMillanAB>;

}  // namespace qmp::BinarySplitting
