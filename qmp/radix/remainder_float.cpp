// Remainders of the scaled remainder tree and the residue of a product's integer part.
#include "qmp/radix/remainder_float.h"

#include <algorithm>

#include "qmp/exception.h"
#include "qmp/radix/power_table.h"
#include "qmp/words/word_array.h"

namespace qmp {

RemainderFloatB::RemainderFloatB(uint64_t* words, uint64_t precision_words)
    : T(words), precision(precision_words), L(normalized_length(words, precision_words)) {}

RemainderFloatB RemainderFloatB::top(uint64_t keep) const {
    RemainderFloatB r;
    r.T = T + (precision - keep);
    r.precision = keep;
    r.L = L > precision - keep ? L - (precision - keep) : 0;
    return r;
}

uint64_t RemainderFloatB::set_multiply_by_transform(const RemainderFloatB& src, const PowerTransform& P,
                                                    uint64_t keep, uint64_t* C, uint64_t C_words,
                                                    const AlgorithmTableB& table, void* scratch,
                                                    uint64_t scratch_bytes, Parallelizer* parallelizer,
                                                    uint64_t tds) {
    const char* function = "RemainderFloatB::set_multiply_by_transform()";
    if (src.L > src.precision) throw AlgorithmFailedException(function, "Unexpected: tmag < 0");
    if (keep > src.precision || keep == 0) throw AlgorithmFailedException(function, "Truncated Range");
    const uint64_t CL = src.L == 0 ? 0 : P.product_words(src.L);
    const uint64_t need = std::max(CL, src.precision + 1);
    if (C_words < need) throw BufferTooSmallException(function, C_words, need);
    if (CL != 0) P.multiply(C, src.T, src.L, table, scratch, scratch_bytes, parallelizer, tds);
    // Words between the product's top and the integer word are zero (a short remainder).
    if (CL < src.precision + 1) zero_words(C + CL, src.precision + 1 - CL);
    const uint64_t integer_low_word = C[src.precision];
    const uint64_t offset = src.precision - keep;
    T = C + offset;
    precision = keep;
    L = normalized_length(T, keep);
    return integer_low_word;
}

}  // namespace qmp
