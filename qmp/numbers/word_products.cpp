// Products of W-word magnitudes through the 64-bit multiplication table. For 32-bit words the
// operand bytes are reused as 64-bit words where they can be (even length, 8-byte aligned);
// otherwise they are widened into the scratch:
//
//   scratch: [ A as 64-bit words | B as 64-bit words | product (64-bit words) | table scratch ]
//              (only if needed)    (only if needed)    (only if needed)
//
// The query reserves all three pieces so that the bound holds whatever the alignment of the
// operands turns out to be. Each piece starts on a 128-byte boundary.
#include "qmp/numbers/word_products.h"

#include "qmp/exception.h"
#include "qmp/multiply/multiply.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

uint64_t wide_words(uint64_t n_words32) { return (n_words32 + 1) / 2; }
uint64_t wide_bytes(uint64_t n_words32) { return AlignedBufferC::round_up(wide_words(n_words32) * 8); }

bool usable_as_wide(const uint32_t* a, uint64_t n_words32) {
    return n_words32 % 2 == 0 && reinterpret_cast<uintptr_t>(a) % 8 == 0;
}

// A 32-bit-word operand as 64-bit words: in place, or copied into the scratch with a zero pad.
const uint64_t* widen(const uint32_t* a, uint64_t n_words32, AlignedBufferC& scratch) {
    if (usable_as_wide(a, n_words32)) return reinterpret_cast<const uint64_t*>(a);
    uint32_t* copy = static_cast<uint32_t*>(scratch.extract(wide_bytes(n_words32)));
    copy_words(copy, a, n_words32);
    if (n_words32 % 2 != 0) copy[n_words32] = 0;
    return reinterpret_cast<const uint64_t*>(copy);
}

void check_scratch(const AlignedBufferC& scratch, uint64_t need, const char* function) {
    if (scratch.size_bytes() < need) throw BufferTooSmallException(function, scratch.size_bytes(), need);
}

}  // namespace

template <>
uint64_t mul_words_scratch_bytes<uint64_t>(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    return multiply_scratch_bytes(table, AL, BL);
}

template <>
uint64_t sqr_words_scratch_bytes<uint64_t>(const AlgorithmTableB& table, uint64_t AL) {
    return square_scratch_bytes(table, AL);
}

template <>
uint64_t mul_words_scratch_bytes<uint32_t>(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    const uint64_t product_bytes = AlignedBufferC::round_up((wide_words(AL) + wide_words(BL)) * 8);
    return wide_bytes(AL) + wide_bytes(BL) + product_bytes +
           AlignedBufferC::round_up(multiply_scratch_bytes(table, wide_words(AL), wide_words(BL)));
}

template <>
uint64_t sqr_words_scratch_bytes<uint32_t>(const AlgorithmTableB& table, uint64_t AL) {
    const uint64_t product_bytes = AlignedBufferC::round_up(2 * wide_words(AL) * 8);
    return wide_bytes(AL) + product_bytes + AlignedBufferC::round_up(square_scratch_bytes(table, wide_words(AL)));
}

template <>
void mul_words<uint64_t>(const AlgorithmTableB& table, uint64_t* C, const uint64_t* A, uint64_t AL,
                         const uint64_t* B, uint64_t BL, AlignedBufferC scratch, Parallelizer* parallelizer,
                         uint64_t tds, const char* function) {
    check_scratch(scratch, mul_words_scratch_bytes<uint64_t>(table, AL, BL), function);
    multiply(table, C, A, AL, B, BL, scratch.data(), scratch.size_bytes(), parallelizer, tds);
}

template <>
void sqr_words<uint64_t>(const AlgorithmTableB& table, uint64_t* C, const uint64_t* A, uint64_t AL,
                         AlignedBufferC scratch, Parallelizer* parallelizer, uint64_t tds, const char* function) {
    check_scratch(scratch, sqr_words_scratch_bytes<uint64_t>(table, AL), function);
    square(table, C, A, AL, scratch.data(), scratch.size_bytes(), parallelizer, tds);
}

template <>
void mul_words<uint32_t>(const AlgorithmTableB& table, uint32_t* C, const uint32_t* A, uint64_t AL,
                         const uint32_t* B, uint64_t BL, AlignedBufferC scratch, Parallelizer* parallelizer,
                         uint64_t tds, const char* function) {
    check_scratch(scratch, mul_words_scratch_bytes<uint32_t>(table, AL, BL), function);
    const uint64_t* A64 = widen(A, AL, scratch);
    const uint64_t* B64 = widen(B, BL, scratch);
    const uint64_t PL64 = wide_words(AL) + wide_words(BL);
    // The 64-bit product has 2 PL64 >= AL + BL halves; the extra top halves are zero.
    const bool direct = usable_as_wide(C, AL + BL) && 2 * PL64 == AL + BL;
    uint64_t* P = direct ? reinterpret_cast<uint64_t*>(C) : scratch.extract_aligned<uint64_t>(PL64);
    multiply(table, P, A64, wide_words(AL), B64, wide_words(BL), scratch.data(), scratch.size_bytes(), parallelizer,
             tds);
    if (!direct) copy_words(C, reinterpret_cast<const uint32_t*>(P), AL + BL);
}

template <>
void sqr_words<uint32_t>(const AlgorithmTableB& table, uint32_t* C, const uint32_t* A, uint64_t AL,
                         AlignedBufferC scratch, Parallelizer* parallelizer, uint64_t tds, const char* function) {
    check_scratch(scratch, sqr_words_scratch_bytes<uint32_t>(table, AL), function);
    const uint64_t* A64 = widen(A, AL, scratch);
    const uint64_t PL64 = 2 * wide_words(AL);
    const bool direct = usable_as_wide(C, 2 * AL) && PL64 == AL;
    uint64_t* P = direct ? reinterpret_cast<uint64_t*>(C) : scratch.extract_aligned<uint64_t>(PL64);
    square(table, P, A64, wide_words(AL), scratch.data(), scratch.size_bytes(), parallelizer, tds);
    if (!direct) copy_words(C, reinterpret_cast<const uint32_t*>(P), 2 * AL);
}

template <typename W>
void mul_words_basecase(W* C, const W* A, uint64_t AL, const W* B, uint64_t BL) {
    C[AL] = mul_1(C, A, AL, B[0]);
    for (uint64_t j = 1; j < BL; ++j) C[AL + j] = addmul_1(C + j, A, AL, B[j]);
}

template void mul_words_basecase<uint32_t>(uint32_t*, const uint32_t*, uint64_t, const uint32_t*, uint64_t);
template void mul_words_basecase<uint64_t>(uint64_t*, const uint64_t*, uint64_t, const uint64_t*, uint64_t);

}  // namespace qmp
