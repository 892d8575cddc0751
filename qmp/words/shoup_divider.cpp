// The reciprocal divider and the sequential single-word division loops. The reciprocal of d is
// R = floor(2^(2w) / d) = hi * 2^w + lo. For w = 64 the high word comes from one hardware
// division at construction and the low word from a 64-step binary search, so no 128-bit
// division is needed; for w = 32 R is floor((2^64 - 1) / d) as one 64-bit value (equal to
// floor(2^64 / d) because d is not a power of two).
#include "qmp/words/shoup_divider.h"

#include "qmp/exception.h"

#include <type_traits>

namespace qmp {
namespace {

using u128 = unsigned __int128;

template <typename W>
void check_divisor(W d) {
    constexpr unsigned w = sizeof(W) * 8;
    if (d >= (W(1) << (w - 1))) throw InvalidParametersException("ShoupDivider()", "Divisor is too large.");
    // 0 and 1 count as powers of two here: the reciprocal would not fit in two words.
    if ((d & (d - 1)) == 0) throw InvalidParametersException("ShoupDivider()", "Untested with power-of-two.");
}

template <typename W>
void check_remainder(const char* function, W r, W d) {
    if (r >= d) throw InvalidParametersException(function, "Top word is too large.");
}

}  // namespace

template <>
ShoupDivider<uint32_t>::ShoupDivider(uint32_t divisor) {
    check_divisor(divisor);
    const uint64_t rcp = UINT64_MAX / divisor;
    d = divisor;
    nd = uint32_t(0) - divisor;
    rcp_lo = uint32_t(rcp);
    rcp_hi = uint32_t(rcp >> 32);
}

template <>
ShoupDivider<uint64_t>::ShoupDivider(uint64_t divisor) {
    check_divisor(divisor);
    d = divisor;
    nd = uint64_t(0) - divisor;
    rcp_hi = UINT64_MAX / divisor;
    // r = 2^64 - hi*d lies in [1, d); lo is the largest x with x*d <= r*2^64.
    const uint64_t r = uint64_t(0) - rcp_hi * divisor;
    uint64_t x = 0;
    for (int bit = 63; bit >= 0; --bit) {
        const uint64_t trial = x | (uint64_t(1) << bit);
        const u128 p = u128(trial) * divisor;
        const uint64_t p_hi = uint64_t(p >> 64), p_lo = uint64_t(p);
        if (p_hi < r || (p_hi == r && p_lo == 0)) x = trial;
    }
    rcp_lo = x;
}

template <>
uint32_t ShoupDivider<uint32_t>::step(uint32_t& r, uint32_t a) const {
    const uint64_t n = (uint64_t(r) << 32) | a;
    uint32_t q = r * rcp_hi + uint32_t((uint64_t(r) * rcp_lo) >> 32) + uint32_t((uint64_t(a) * rcp_hi) >> 32);
    // N - q*d < 3.5 d < 2^33: exact in 64 bits. Each correction subtracts d when that leaves a
    // non-negative value, selected by the sign mask of the trial difference.
    uint64_t rem = n - uint64_t(q) * d;
    for (int i = 0; i < 3; ++i) {
        const uint64_t t = rem - d;
        const uint64_t keep = uint64_t(int64_t(t) >> 63);  // all ones when t < 0
        rem = (rem & keep) | (t & ~keep);
        q += uint32_t(~keep & 1);
    }
    r = uint32_t(rem);
    return q;
}

template <>
uint64_t ShoupDivider<uint64_t>::step(uint64_t& r, uint64_t a) const {
    const uint64_t q_r = r * rcp_hi + uint64_t((u128(r) * rcp_lo) >> 64);
    uint64_t q = q_r + uint64_t((u128(a) * rcp_hi) >> 64);
    // The partial remainder r*2^w + a - q*d, in [0, 3.5 d), needs a 65th bit: kept as 128 bits.
    u128 rem = ((u128(r) << 64) | a) - u128(q) * d;
    for (int i = 0; i < 3; ++i) {
        const u128 t = rem - d;
        const u128 keep = u128((__int128)t >> 127);
        rem = (rem & keep) | (t & ~keep);
        q += uint64_t(~keep & 1);
    }
    r = uint64_t(rem);
    return q;
}

template <typename W>
W ShoupDivider<W>::step_expand(W& r) const {
    using D = std::conditional_t<sizeof(W) == 8, u128, uint64_t>;
    constexpr unsigned w = sizeof(W) * 8;
    W q = W(r * rcp_hi + W((D(r) * rcp_lo) >> w));
    // r*2^w - q*d lies in [0, 2d) and 2d < 2^w, so it is exact modulo 2^w as q*(2^w - d).
    W rem = W(q * nd);
    const W t = W(rem - d);
    const W keep = W(W(0) - (t >> (w - 1)));  // t < 0 as a signed word: |t| < d < 2^(w-1)
    rem = W((rem & keep) | (t & ~keep));
    q = W(q + (~keep & 1));
    r = rem;
    return q;
}

template <typename W>
W divmod(W* T, const W* A, uint64_t L, const ShoupDivider<W>& divider, W r) {
    check_remainder("divmod()", r, divider.d);
    for (uint64_t i = L; i > 0; --i) T[i - 1] = divider.step(r, A[i - 1]);
    return r;
}

template <typename W>
W divmod(W* T, uint64_t L, const ShoupDivider<W>& divider, W r) {
    check_remainder("divmod()", r, divider.d);
    for (uint64_t i = L; i > 0; --i) T[i - 1] = divider.step_expand(r);
    return r;
}

template <typename W>
W mod_words(const W* A, uint64_t L, const ShoupDivider<W>& divider, W r) {
    check_remainder("mod_words()", r, divider.d);
    for (uint64_t i = L; i > 0; --i) divider.step(r, A[i - 1]);
    return r;
}

#define QMP_INSTANTIATE(W)                                                                 \
    template struct ShoupDivider<W>;                                                       \
    template W divmod<W>(W*, const W*, uint64_t, const ShoupDivider<W>&, W);               \
    template W divmod<W>(W*, uint64_t, const ShoupDivider<W>&, W);                         \
    template W mod_words<W>(const W*, uint64_t, const ShoupDivider<W>&, W);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
