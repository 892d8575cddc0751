// BigFloat products. set_mul()/set_sqr() form the exact product in the scratch through the
// multiplication table and keep its top p words; set_mul_small() multiplies by rows in the
// result buffer itself. Scratch layout of set_mul():
//
//   [ exact product, AL + BL words, rounded to 128 bytes | scratch of mul_words() ]
#include "qmp/numbers/big_float.h"

#include <algorithm>

#include "qmp/exception.h"
#include "qmp/numbers/number_checks.h"
#include "qmp/numbers/word_products.h"
#include "qmp/words/word_array.h"

namespace qmp {

template <typename W>
uint64_t BigFloat<W>::mul_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    return AlignedBufferC::round_up((AL + BL) * sizeof(W)) + mul_words_scratch_bytes<W>(table, AL, BL);
}

template <typename W>
uint64_t BigFloat<W>::sqr_scratch_bytes(const AlgorithmTableB& table, uint64_t AL) {
    return AlignedBufferC::round_up(2 * AL * sizeof(W)) + sqr_words_scratch_bytes<W>(table, AL);
}

template <typename W>
void BigFloat<W>::finish_product(const W* P, uint64_t PL, int64_t product_exp, bool product_sign, uint64_t p,
                                 const char* function) {
    if (p == 0) throw InvalidParametersException(function, "Precision must be at least one word.");
    PL = normalized_length(P, PL);
    const uint64_t keep = std::min(p, PL);
    copy_words(base, P + (PL - keep), keep);
    T = base;
    L = keep;
    exp = product_exp + int64_t(PL - keep);
    sign = product_sign;
}

template <typename W>
void BigFloat<W>::set_mul(const BigFloat& A, const BigFloat& B, uint64_t p, const AlgorithmTableB& table,
                          AlignedBufferC scratch, Parallelizer* parallelizer, uint64_t tds) {
    const char* function = "BigFloat::set_mul()";
    if (A.L == 0 || B.L == 0) {
        set_zero();
        return;
    }
    const uint64_t PL = A.L + B.L;
    require_room(base, std::min(p, PL), function);
    const uint64_t need = mul_scratch_bytes(table, A.L, B.L);
    if (scratch.size_bytes() < need) throw BufferTooSmallException(function, scratch.size_bytes(), need);
    W* P = scratch.extract_aligned<W>(PL);
    mul_words<W>(table, P, A.T, A.L, B.T, B.L, scratch, parallelizer, tds, function);
    finish_product(P, PL, A.exp + B.exp, A.sign == B.sign, p, function);
}

template <typename W>
void BigFloat<W>::set_sqr(const BigFloat& A, uint64_t p, const AlgorithmTableB& table, AlignedBufferC scratch,
                          Parallelizer* parallelizer, uint64_t tds) {
    const char* function = "BigFloat::set_sqr()";
    if (A.L == 0) {
        set_zero();
        return;
    }
    const uint64_t PL = 2 * A.L;
    require_room(base, std::min(p, PL), function);
    const uint64_t need = sqr_scratch_bytes(table, A.L);
    if (scratch.size_bytes() < need) throw BufferTooSmallException(function, scratch.size_bytes(), need);
    W* P = scratch.extract_aligned<W>(PL);
    sqr_words<W>(table, P, A.T, A.L, scratch, parallelizer, tds, function);
    finish_product(P, PL, 2 * A.exp, true, p, function);
}

template <typename W>
void BigFloat<W>::set_mul_small(const BigFloat& A, const BigFloat& B, uint64_t p) {
    const char* function = "BigFloat::set_mul_small()";
    if (A.L == 0 || B.L == 0) {
        set_zero();
        return;
    }
    const uint64_t PL = A.L + B.L;
    require_room(base, PL, function);
    if (detail::ranges_overlap<W>(base, PL, A.T, A.L) || detail::ranges_overlap<W>(base, PL, B.T, B.L))
        throw InvalidParametersException(function, "Output overlaps an input.");
    if (A.L >= B.L)
        mul_words_basecase(base, A.T, A.L, B.T, B.L);
    else
        mul_words_basecase(base, B.T, B.L, A.T, A.L);
    finish_product(base, PL, A.exp + B.exp, A.sign == B.sign, p, function);
}

#define QMP_INSTANTIATE(W)                                                                                   \
    template uint64_t BigFloat<W>::mul_scratch_bytes(const AlgorithmTableB&, uint64_t, uint64_t);           \
    template uint64_t BigFloat<W>::sqr_scratch_bytes(const AlgorithmTableB&, uint64_t);                     \
    template void BigFloat<W>::set_mul(const BigFloat&, const BigFloat&, uint64_t, const AlgorithmTableB&,  \
                                       AlignedBufferC, Parallelizer*, uint64_t);                            \
    template void BigFloat<W>::set_sqr(const BigFloat&, uint64_t, const AlgorithmTableB&, AlignedBufferC,   \
                                       Parallelizer*, uint64_t);                                            \
    template void BigFloat<W>::set_mul_small(const BigFloat&, const BigFloat&, uint64_t);                    \
    template void BigFloat<W>::finish_product(const W*, uint64_t, int64_t, bool, uint64_t, const char*);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
