// BigFloat<W>: a signed floating-point number of W words (W = uint32_t or uint64_t, B = 2^w):
// value = (sign ? +1 : -1) * sum_{i < L} T[i] * B^(exp + i). L = 0 is zero (sign then carries
// no meaning); otherwise the top word T[L - 1] is never zero (check_normalization()). The words
// live in a caller-owned buffer [base, base + capacity); nothing here allocates, and an
// operation whose result would not fit throws qmp::BufferTooSmallException naming it, with the
// capacity and the required size in words, before it writes anything.
//
// Placement: every set_ operation writes its result from the bottom of the buffer (T = base).
// The result must not overlap an operand's words unless the operation says otherwise
// (InvalidParametersException "Output overlaps an input.").
//
// Precision: `p` is the number of words kept from the top. Sums and differences drop the
// operand words below position top - p (top = the higher operand top) before an exact
// operation, so their error is below one unit of that position per operand; products keep
// the top p words of the exact product, truncated. p = full_precision keeps everything.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"

namespace qmp {

class Parallelizer;
class BasicIntR;
class ExactFloat;
template <typename W>
class BigInt;
template <typename W>
class SwapFloat;

template <typename W>
class BigFloat {
    static_assert(std::is_same_v<W, uint32_t> || std::is_same_v<W, uint64_t>);

public:
    using SignedWord = std::make_signed_t<W>;
    static constexpr uint64_t full_precision = std::numeric_limits<uint64_t>::max();

    W* T = nullptr;
    uint64_t L = 0;
    int64_t exp = 0;
    bool sign = true;
    W* base = nullptr;
    uint64_t capacity = 0;

    BigFloat() = default;
    BigFloat(W* buffer, uint64_t capacity_words) : T(buffer), base(buffer), capacity(capacity_words) {}
    explicit BigFloat(AlignedBufferC buffer)
        : BigFloat(buffer.words<W>(), buffer.capacity_words<W>()) {}

    // The word position just above the top word: the value lies below B^top().
    int64_t top() const noexcept { return exp + int64_t(L); }
    void set_zero() noexcept;
    // Throws AlgorithmFailedException "Top word is zero." naming "BigFloat::check_normalization()".
    void check_normalization() const;

    // this = |A| + |B|; this = |A| - |B| (signed: negative when |B| > |A|); set_rsub() is the
    // reversed difference |B| - |A|.
    void set_uadd(const BigFloat& A, const BigFloat& B, uint64_t p = full_precision);
    void set_usub(const BigFloat& A, const BigFloat& B, uint64_t p = full_precision);
    void set_rsub(const BigFloat& A, const BigFloat& B, uint64_t p = full_precision);

    // Adds the word x at word position p (exp <= p <= exp + L, L > 0), in place; a carry out of
    // the top appends a word 1. Otherwise InvalidParametersException "Magnitude is out of range.".
    void add_ip(W x, int64_t p);
    // this *= x in place (needs room for L + 1 words); this = A * x.
    void mul_uW(W x);
    void set_mul_uW(const BigFloat& A, W x);
    // this = A / x with a TL-word quotient: the top AL words divide A and the TL - AL words below
    // expand the remainder, truncated. x = 0 is ArithmeticException "Divide by zero."; TL < AL is
    // InvalidParametersException "TL < AL". Runs bp_div_np() over the parallelizer.
    void set_div_sW(const BigFloat& A, SignedWord x, uint64_t TL, Parallelizer* parallelizer = nullptr,
                    uint64_t tds = 1);

    // Products through the multiplication table. The exact product is formed in the scratch, so
    // the result may be an operand; the scratch must hold mul_scratch_bytes() (sqr_...) and the
    // result buffer min(p, AL + BL) words.
    static uint64_t mul_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL);
    static uint64_t sqr_scratch_bytes(const AlgorithmTableB& table, uint64_t AL);
    void set_mul(const BigFloat& A, const BigFloat& B, uint64_t p, const AlgorithmTableB& table,
                 AlignedBufferC scratch, Parallelizer* parallelizer = nullptr, uint64_t tds = 1);
    void set_sqr(const BigFloat& A, uint64_t p, const AlgorithmTableB& table, AlignedBufferC scratch,
                 Parallelizer* parallelizer = nullptr, uint64_t tds = 1);
    // The schoolbook product for small operands: no table, no scratch; the exact product is
    // formed in this buffer (AL + BL words) and then cut to p words. No overlap with A or B.
    void set_mul_small(const BigFloat& A, const BigFloat& B, uint64_t p = full_precision);

    // Conversions. Any of them may read from this object's own buffer.
    void set_BasicInt(const BasicIntR& x);
    void set_BigInt(const BigInt<W>& x, uint64_t p = full_precision);
    void set_BigFloat(const BigFloat& x, uint64_t p = full_precision);
    // Both keep the top p words, truncated, like set_BigFloat(). An ExactFloat's value is
    // M * 2^(32 e); with 64-bit words it is realigned exactly to B^floor(e / 2): an odd e puts
    // a zero half below M's lowest word, so the words hold M * 2^32 and the exponent is
    // (e - 1) / 2. The top p words are those of that realigned magnitude.
    // set_SwapFloat() reads only the top min(p, L) words from far memory, top piece first, and
    // throws AlgorithmFailedException "Top word is zero." (leaving this zero) if the stored top
    // word is zero: the far-memory copy is not the number that was stored.
    void set_ExactFloat(const ExactFloat& x, uint64_t p = full_precision);
    void set_SwapFloat(const SwapFloat<W>& x, uint64_t p = full_precision);
    // Exact. 0.0 and -0.0 give L = 0, exp = 0. Needs a capacity of 2 words (3 for a 32-bit
    // mantissa that straddles three words after the shift).
    void set_double(double d);
    // The integer part (truncated toward zero) as an unsigned 64-bit value. A part that does not
    // fit 64 bits, or a negative value with a non-zero integer part, throws
    // InvalidParametersException "Number is out of range.".
    uint64_t unsigned_integer_part() const;
    // Adds one unit at word index p (p < L) of the magnitude. A carry out of the top writes 1 at
    // index L and sets the length to L - p + 1; for p = 0 this is the usual growth by one word.
    // For p > 0 the words at indices L - p + 1 and above, including that new 1, drop out of the
    // number: the rule is kept exactly as the callers expect it. p >= L changes nothing.
    void purturb_up(uint64_t p);

    // Three-way comparison of the values: -1, 0 or 1.
    static int compare(const BigFloat& A, const BigFloat& B);

private:
    // Throws BufferTooSmallException naming `function` unless n_words fit from `at`.
    void require_room(const W* at, uint64_t n_words, const char* function) const;
    void normalize_from_base(uint64_t n_words, int64_t new_exp, bool new_sign);
    // The top min(p, n) of words[0, n) with the exponent and sign of the source; words may be T.
    void set_top_words(const W* words, uint64_t n, int64_t x_exp, bool x_sign, uint64_t p, const char* function);
    void finish_product(const W* P, uint64_t PL, int64_t product_exp, bool product_sign, uint64_t p,
                        const char* function);
};

extern template class BigFloat<uint32_t>;
extern template class BigFloat<uint64_t>;

}  // namespace qmp
