// Intervals on the circle of 128-bit fractions and the digits they fix (see hex_interval.h).
#include "formulas/bbp/hex_interval.h"

namespace qv::bbp {
namespace {

bool wraps(const HexInterval& i) { return i.whole_circle || i.high < i.low; }

// Whether x lies in the (non-wrapping or wrapping) interval.
bool contains(const HexInterval& i, uint128 x) {
    if (i.whole_circle) return true;
    return i.low <= i.high ? (i.low <= x && x <= i.high) : (x >= i.low || x <= i.high);
}

}  // namespace

HexInterval HexInterval::around(uint128 value, uint64_t error_units) {
    HexInterval i;
    // A radius of half the circle or more says nothing at all.
    if (error_units >= (uint64_t(1) << 63)) {
        i.whole_circle = true;
        return i;
    }
    i.low = value - error_units;
    i.high = value + error_units;
    return i;
}

int HexInterval::certain_digits() const {
    if (wraps(*this)) return 0;
    const uint128 differ = low ^ high;
    if (differ == 0) return 32;
    const uint64_t top = uint64_t(differ >> 64);
    const int leading_zero_bits = top != 0 ? __builtin_clzll(top) : 64 + __builtin_clzll(uint64_t(differ));
    return leading_zero_bits / 4;
}

std::string HexInterval::digits(int count) const { return hex128(low).substr(0, size_t(count)); }

std::optional<HexInterval> intersect(const HexInterval& a, const HexInterval& b) {
    if (a.whole_circle) return b;
    if (b.whole_circle) return a;
    // For short arcs the overlap starts at whichever low end lies inside the other arc, and
    // ends at whichever high end does.
    HexInterval r;
    if (contains(b, a.low)) r.low = a.low;
    else if (contains(a, b.low)) r.low = b.low;
    else return std::nullopt;
    r.high = contains(b, a.high) ? a.high : b.high;
    return r;
}

std::string hex128(uint128 value) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s(32, '0');
    for (int i = 31; i >= 0; --i, value >>= 4) s[size_t(i)] = kDigits[unsigned(value & 15)];
    return s;
}

}  // namespace qv::bbp
