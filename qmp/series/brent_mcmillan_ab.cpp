// The BrentMcMillanAB family (see brent_mcmillan_ab.h).
#include "qmp/series/brent_mcmillan_ab.h"

#include <algorithm>
#include <cmath>

#include "qmp/exception.h"
#include "qmp/series/range_bounds.h"
#include "qmp/series/series_sizer.h"
#include "qmp/words/mod_m61.h"

namespace qmp::BinarySplitting {

namespace {

constexpr double kNatsPerWord = 44.36141955583649980270285577332330035683;  // 64 ln 2
constexpr double kLn2 = 0.6931471805599453094172321214581765680755;
constexpr double kStirling = 0.081061466795327258219670263594382360138602526362217;  // 1 - ln(2 pi)/2
constexpr double kAlpha = 4.970625759544232;  // alpha (ln alpha - 1) = 3

void set_word(Int& x, uint64_t w, const char* function) {
    if (x.capacity < 1) throw BufferTooSmallException(function, x.capacity, 1);
    x.T = x.base;
    x.T[0] = w;
    x.L = w != 0;
    x.sign = true;
}

}  // namespace

BrentMcMillanAB::Size BrentMcMillanAB::SeriesSizer(uint64_t words) {
    const char* function = "BrentMcMillanAB::SeriesSizer()";
    const double nats = double(words) * kNatsPerWord + 32 * kLn2;
    uint32_t k = 1;
    while (8.0 * std::ldexp(1.0, int(k)) < nats) ++k;
    if (k > 60)
        throw InvalidParametersException(function,
                                         "Series index exceeded. Series summation will overflow a 64-bit integer.");
    const double n = std::ldexp(1.0, int(k));
    // The last term (n^K / K!)^2 against e^(-8n) B, B ~ e^(2n): 2 (K ln n - ln K!) <= -6n - guard.
    uint64_t K = uint64_t(std::ceil(kAlpha * n));
    auto log_term = [&](double K_) {
        const double ln_fact = (K_ + 0.5) * std::log(K_ + 1) - K_ - kStirling;
        return 2.0 * (K_ * std::log(n) - ln_fact);
    };
    while (log_term(double(K)) > -6.0 * n - 32 * kLn2) ++K;
    check_series_index(function, K, 2.0 * double(K) * std::log2(double(K)));
    return {k, K};
}

BrentMcMillanAB::Caps BrentMcMillanAB::caps(const Series& s, uint64_t a, uint64_t b) {
    const double n = double(b - a), logs = sum_log2_bound(a, b), two_k = 2.0 * s.log2_n();
    // sum log2 max(n^2, j^2) <= sum (2k + 2 log2 j) is loose; use max term by term below j = n.
    const double m_bits = std::max(two_k * n, 2.0 * logs) + (b > (uint64_t(1) << s.log2_n()) ? 2.0 * logs : 0.0);
    return {words_for_bits(std::log2(n) + m_bits, 3),  words_for_bits(2.0 * logs, 2),
            words_for_bits(two_k * n, 2),               words_for_bits(logs, 2),
            words_for_bits(std::log2(n) + logs, 3),     words_for_bits(2.0 * std::log2(n) + m_bits + logs, 5)};
}

void BrentMcMillanAB::leaf(const Series& s, uint64_t a, uint64_t, Int* out, uint64_t* shadow, unsigned mask) {
    static const char* const kFunction = "BinarySplitting::BrentMcMillanAB::leaf()";
    const uint64_t n2 = uint64_t(1) << (2 * s.log2_n());  // n^2 (k <= 31)
    const unsigned __int128 j2 = (unsigned __int128)a * a;
    if (j2 >> 64) throw LimitExceededException(kFunction, "Term index exceeds 32 bits.");
    if (mask & (1u << kR)) set_word(out[kR], n2, kFunction);
    set_word(out[kQ], uint64_t(j2), kFunction);
    set_word(out[kD], a, kFunction);
    set_word(out[kC], 1, kFunction);
    set_word(out[kP], n2, kFunction);
    set_word(out[kV], n2, kFunction);
    const uint64_t n2r = mul_pow2_m61(1, 2 * s.log2_n()), j = reduce_m61(a);
    shadow[kR] = n2r, shadow[kQ] = mul_m61(j, j), shadow[kD] = j, shadow[kC] = 1, shadow[kP] = n2r, shadow[kV] = n2r;
}

void BrentMcMillanAB::merge(const MergeSite<Series>&, const Int* L, const Int* R, Int* out, unsigned mask,
                            const Caps& cl, const Caps& cr, WorkArena arena, const MulEnv& env) {
    auto temp = [&](uint64_t cap) { return int_over(arena.take_words(cap), cap); };
    const bool run = !arena.is_counting();
    // C = C1 D2 + C2 D1, with t5 = (C1 D2) P2 taken before the sum.
    mul_signed(out[kC], L[kC], R[kD], arena, env, cl[kC], cr[kD]);
    const uint64_t c1d2 = cl[kC] + cr[kD];
    Int t5 = temp(c1d2 + cr[kP]);
    mul_signed(t5, out[kC], R[kP], arena, env, c1d2, cr[kP]);
    Int t2 = temp(cr[kC] + cl[kD]);
    mul_signed(t2, R[kC], L[kD], arena, env, cr[kC], cl[kD]);
    if (run) add_signed_in_place(out[kC], t2);
    // V = V1 (Q2 D2) + R1 (V2 D1 + t5).
    const uint64_t t4_cap = std::max(cr[kV] + cl[kD], c1d2 + cr[kP]) + 1;
    Int t4 = temp(t4_cap);
    mul_signed(t4, R[kV], L[kD], arena, env, cr[kV], cl[kD]);
    if (run) add_signed_in_place(t4, t5);
    Int t6 = temp(cl[kR] + t4_cap);
    mul_signed(t6, L[kR], t4, arena, env, cl[kR], t4_cap);
    Int t3 = temp(cr[kQ] + cr[kD]);
    mul_signed(t3, R[kQ], R[kD], arena, env, cr[kQ], cr[kD]);
    mul_signed(out[kV], L[kV], t3, arena, env, cl[kV], cr[kQ] + cr[kD]);
    if (run) add_signed_in_place(out[kV], t6);
    // P = P1 Q2 + R1 P2; Q, D, R.
    mul_signed(out[kP], L[kP], R[kQ], arena, env, cl[kP], cr[kQ]);
    Int t7 = temp(cl[kR] + cr[kP]);
    mul_signed(t7, L[kR], R[kP], arena, env, cl[kR], cr[kP]);
    if (run) add_signed_in_place(out[kP], t7);
    mul_signed(out[kQ], L[kQ], R[kQ], arena, env, cl[kQ], cr[kQ]);
    mul_signed(out[kD], L[kD], R[kD], arena, env, cl[kD], cr[kD]);
    if (mask & (1u << kR)) mul_signed(out[kR], L[kR], R[kR], arena, env, cl[kR], cr[kR]);
}

void BrentMcMillanAB::merge_shadow(const MergeSite<Series>&, const uint64_t* L, const uint64_t* R, uint64_t* out,
                                   unsigned mask) {
    const uint64_t c1d2 = mul_m61(L[kC], R[kD]);
    out[kC] = add_m61(c1d2, mul_m61(R[kC], L[kD]));
    const uint64_t inner = add_m61(mul_m61(R[kV], L[kD]), mul_m61(c1d2, R[kP]));
    out[kV] = add_m61(mul_m61(L[kV], mul_m61(R[kQ], R[kD])), mul_m61(L[kR], inner));
    out[kP] = add_m61(mul_m61(L[kP], R[kQ]), mul_m61(L[kR], R[kP]));
    out[kQ] = mul_m61(L[kQ], R[kQ]);
    out[kD] = mul_m61(L[kD], R[kD]);
    out[kR] = (mask & (1u << kR)) ? mul_m61(L[kR], R[kR]) : 0;
}

// U / B = (V / (Q D)) / ((Q + P) / Q) = V / (D (Q + P)).
void BrentMcMillanAB::finish(const Series& s, uint64_t terms, BSRNode<BrentMcMillanAB>& top, SeriesFraction& out,
                             WorkArena& arena, const MulEnv& env) {
    const auto caps = BrentMcMillanAB::caps(s, 1, terms + 1);
    const uint64_t b_cap = std::max(caps[kQ], caps[kP]) + 1, den_cap = b_cap + caps[kD];
    Int B = int_over(arena.take_words(b_cap), b_cap);
    Int den = int_over(arena.take_words(den_cap), den_cap);
    if (!arena.is_counting()) {
        B.set_BigInt(top.x[kQ]);
        add_signed_in_place(B, top.x[kP]);
    }
    mul_signed(den, top.x[kD], B, arena, env, caps[kD], b_cap);
    out.num = top.x[kV];
    out.den = den;
    out.den_shift_bits = 0;
}

}  // namespace qmp::BinarySplitting
