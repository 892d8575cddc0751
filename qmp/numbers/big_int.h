// BigInt<W>: a signed integer of W words (W = uint32_t or uint64_t), value
// (sign ? +1 : -1) * sum_{i < L} T[i] * B^i, the working type of binary splitting. L = 0 is zero
// and then sign is true; otherwise the top word is not zero (check_normalization()). The words
// live in a caller-owned buffer [base, base + capacity); nothing allocates, and a result that
// would not fit throws qmp::BufferTooSmallException naming the operation (sizes in words)
// before anything is written.
//
// Placement: results are written from base, except when this object is itself an operand of a
// sum or difference, which then runs in place at T (index-aligned, so aliasing is safe). Any
// other overlap of the result with an operand is InvalidParametersException "Output overlaps
// an input.". Products need a result disjoint from their operands.
#pragma once

#include <cstdint>
#include <type_traits>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"

namespace qmp {

class Parallelizer;
class BasicIntR;
template <typename W>
class BigFloat;

template <typename W>
class BigInt {
    static_assert(std::is_same_v<W, uint32_t> || std::is_same_v<W, uint64_t>);

public:
    W* T = nullptr;
    uint64_t L = 0;
    bool sign = true;
    W* base = nullptr;
    uint64_t capacity = 0;

    BigInt() = default;
    BigInt(W* buffer, uint64_t capacity_words) : T(buffer), base(buffer), capacity(capacity_words) {}
    explicit BigInt(AlignedBufferC buffer) : BigInt(buffer.words<W>(), buffer.capacity_words<W>()) {}

    void set_zero() noexcept {
        T = base;
        L = 0;
        sign = true;
    }
    // Throws AlgorithmFailedException "Top word is zero." naming "BigInt::check_normalization()".
    void check_normalization() const;

    // this = A + B, A - B (signed).
    void set_add(const BigInt& A, const BigInt& B);
    void set_sub(const BigInt& A, const BigInt& B);
    // this *= 2^bits, in place.
    BigInt& operator<<=(uint64_t bits);
    // this *= x in place (room for L + 1 words); this = A * x. x = 0 gives zero.
    void mul_uW(W x);
    void set_mul_uW(const BigInt& A, W x);
    // Adds the word x at word index p (L > 0, p <= L); InvalidParametersException
    // "Magnitude is out of range." otherwise. Needs room for L + 1 words: T[L] is cleared first.
    void add_ip(W x, uint64_t p);

    // Exact products through the multiplication table into AL + BL words from base; the result
    // must not overlap A or B; the scratch must hold mul_scratch_bytes() / sqr_scratch_bytes().
    static uint64_t mul_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL);
    static uint64_t sqr_scratch_bytes(const AlgorithmTableB& table, uint64_t AL);
    void set_mul(const BigInt& A, const BigInt& B, const AlgorithmTableB& table, AlignedBufferC scratch,
                 Parallelizer* parallelizer = nullptr, uint64_t tds = 1);
    void set_sqr(const BigInt& A, const AlgorithmTableB& table, AlignedBufferC scratch,
                 Parallelizer* parallelizer = nullptr, uint64_t tds = 1);

    void set_BasicInt(const BasicIntR& x);
    void set_BigInt(const BigInt& x);
    // The integer part of x, truncated toward zero.
    void set_BigFloat(const BigFloat<W>& x);

private:
    void require_room(const W* at, uint64_t n_words, const char* function) const;
    void add_signed(const BigInt& A, const BigInt& B, bool negate_B, const char* function);
    W* product_target(const BigInt& A, const BigInt& B, uint64_t PL, const char* function);
};

extern template class BigInt<uint32_t>;
extern template class BigInt<uint64_t>;

}  // namespace qmp
