// The binary-side hash of a radix conversion.
#include "qmp/radix/verify.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <string>

#include "qmp/console.h"
#include "qmp/digitfiles/digit_stats.h"
#include "qmp/exception.h"
#include "qmp/multiply/multiply.h"
#include "qmp/numbers/big_int.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

std::atomic<bool> power_fault{false};

// Words of 5^d: floor(d log2(5) / 64) + 2 (one of slack).
uint64_t five_power_words(uint64_t d) { return uint64_t((long double)d * 2.32192809488736234787L / 64.0L) + 2; }

uint64_t round_bytes(uint64_t words) { return AlignedBufferC::round_up(words * 8); }

}  // namespace

void VerifyB::set_power_fault_for_test(bool enabled) { power_fault = enabled; }

uint64_t shifted_mod_m61(const uint64_t* A, uint64_t n, uint64_t shift_bits) {
    const uint64_t s = shift_bits / 64, r = shift_bits % 64;
    if (s >= n) return 0;
    // floor(A' / 2^r) = (A' - (A' mod 2^r)) * 2^-r, and 2^-r = 2^(61 - r mod 61) mod p.
    const uint64_t all = mod_m61(A + s, n - s);
    const uint64_t low = r == 0 ? 0 : reduce_m61(A[s] & ((uint64_t(1) << r) - 1));
    return mul_pow2_m61(sub_m61(all, low), (61 - r % 61) % 61);
}

VerifyB::VerifyB(const AlgorithmTableB& table, uint32_t radix, uint64_t fraction_words, uint64_t digits)
    : table_(&table), radix_(radix), fraction_words_(fraction_words), digits_(digits),
      power_words_(five_power_words(digits)) {
    if (radix_ != 10) return;  // a shift needs no scratch
    const uint64_t x_words = fraction_words_ + 1;
    const uint64_t half = power_words_ / 2 + 1;
    // Two power buffers (square from one into the other), then the squaring scratch or the
    // copy of x, the product and its scratch.
    const uint64_t powering = AlignedBufferC::round_up(square_scratch_bytes(table, half));
    const uint64_t product = round_bytes(x_words) + round_bytes(x_words + power_words_) +
                             AlignedBufferC::round_up(multiply_scratch_bytes(table, x_words, power_words_));
    scratch_bytes_ = 2 * round_bytes(power_words_) + std::max(powering, product);
}

uint64_t VerifyB::hash_binary(uint64_t integer_part, const uint64_t* fraction, uint64_t fraction_words,
                              uint64_t digits, AlignedBufferC scratch, Parallelizer* parallelizer,
                              uint64_t tds) const {
    const char* function = "VerifyB::hash_binary()";
    if (digits > digits_ || fraction_words > fraction_words_)
        throw InvalidParametersException(function, "Too many digits.");
    if (radix_ == 16) {
        // floor(x * 16^d): the words of x shifted by 4 d - 64 f bits.
        const uint64_t top = mul_pow2_m61(reduce_m61(integer_part), 4 * digits);
        if (4 * digits >= 64 * fraction_words)
            return add_m61(top, mul_pow2_m61(mod_m61(fraction, fraction_words), 4 * digits - 64 * fraction_words));
        return add_m61(top, shifted_mod_m61(fraction, fraction_words, 64 * fraction_words - 4 * digits));
    }
    Console::println("Powering...  ");
    using Int = BigInt<uint64_t>;
    AlignedBufferC work = scratch;
    Int P(work.spawn_words<uint64_t>(power_words_));
    {
        Int S(work.spawn_words<uint64_t>(power_words_));
        P.T[0] = 1;
        P.L = 1;
        // 10^d = 5^d 2^d, and the factor 2^d is a shift of the product: the power built here is
        // 5^d, a third fewer words. Left to right: P = P^2 for each bit, times 5 where it is set.
        for (int bit = 63; bit >= 0; --bit) {
            if (P.L == 1 && P.T[0] == 1 && ((digits >> bit) & 1) == 0) continue;
            if (!(P.L == 1 && P.T[0] == 1)) {
                S.set_sqr(P, *table_, work, parallelizer, tds);
                std::swap(P.T, S.T);
                std::swap(P.base, S.base);
                std::swap(P.L, S.L);
                std::swap(P.capacity, S.capacity);
            }
            if ((digits >> bit) & 1) P.mul_uW(5);
        }
    }
    if (power_fault) P.T[P.L / 2] ^= uint64_t(1) << 17;
    // The hashes of 10^d: 5^d's residue times 2^d against 64-bit modular exponentiation.
    const uint64_t expected = pow_mod_m61(10, digits), actual = mul_pow2_m61(mod_m61(P.T, P.L), digits);
    if (expected != actual) {
        Console::println("Radix Conversion: Power Hash Mismatch", Console::Colour::Error);
        Console::println("Expected: " + std::to_string(expected), Console::Colour::Error);
        Console::println("Actual  : " + std::to_string(actual), Console::Colour::Error);
        throw AlgorithmFailedException(function, "Power Hash Mismatch");
    }
    Console::println("Multiplying...  ");
    // X = I * 2^(64 f) + F and floor(x * 10^d) = floor(X * 5^d / 2^(64 f - d)). (Forming only
    // the low 64 f - d bits of the product, from the low words of X, and working with residues
    // measured slower at 10^7 digits on Zen 5: 0.051-0.070 s against 0.045-0.048 s.)
    AlignedBufferC rest = work;
    uint64_t* X = rest.spawn_words<uint64_t>(fraction_words + 1).words<uint64_t>();
    copy_words(X, fraction, fraction_words);
    X[fraction_words] = integer_part;
    const uint64_t XL = normalized_length(X, fraction_words + 1);
    if (XL == 0) return 0;
    uint64_t* C = rest.spawn_words<uint64_t>(XL + P.L).words<uint64_t>();
    multiply(*table_, C, X, XL, P.T, P.L, rest.data(), rest.size_bytes(), parallelizer, tds);
    const uint64_t CL = XL + P.L;
    if (digits >= 64 * fraction_words) return mul_pow2_m61(mod_m61(C, CL), digits - 64 * fraction_words);
    return shifted_mod_m61(C, CL, 64 * fraction_words - digits);
}

}  // namespace qmp
