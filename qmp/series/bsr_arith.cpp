// Signed products and sums for binary splitting (see bsr_arith.h).
#include "qmp/series/bsr_arith.h"

#include <algorithm>

#include "qmp/exception.h"
#include "qmp/multiply/fft/fftv4.h"
#include "qmp/multiply/multiply.h"
#include "qmp/numbers/word_products.h"
#include "qmp/words/word_array.h"

namespace qmp::BinarySplitting {

uint64_t mul_signed_scratch_bytes(const MulEnv& env, uint64_t a_words, uint64_t b_words) {
    if (std::min(a_words, b_words) <= kRowProductMaxWords) return 0;
    return multiply_scratch_bytes(*env.table, a_words, b_words);
}

void mul_signed(Int& C, const Int& A, const Int& B, WorkArena arena, const MulEnv& env, uint64_t a_cap,
                uint64_t b_cap) {
    if (arena.is_counting()) {
        arena.scratch(mul_signed_scratch_bytes(env, a_cap, b_cap));
        return;
    }
    C.T = C.base;
    if (A.L == 0 || B.L == 0) {
        C.L = 0;
        C.sign = true;
        return;
    }
    const uint64_t n = A.L + B.L;
    if (n > C.capacity) throw BufferTooSmallException("BinarySplitting::mul_signed()", C.capacity, n);
    if (std::min(A.L, B.L) <= kRowProductMaxWords) {
        if (A.L >= B.L) {
            mul_words_basecase<uint64_t>(C.T, A.T, A.L, B.T, B.L);
        } else {
            mul_words_basecase<uint64_t>(C.T, B.T, B.L, A.T, A.L);
        }
    } else {
        AlignedBufferC scratch = arena.scratch(0);
        multiply(*env.table, C.T, A.T, A.L, B.T, B.L, scratch.data(), scratch.size_bytes(), env.parallelizer,
                 env.tds);
    }
    C.L = n - (C.T[n - 1] == 0);
    C.sign = A.sign == B.sign;
}

SharedOperand::SharedOperand(const Int& A, uint64_t a_cap, const uint64_t* partner_caps, unsigned partners,
                             WorkArena& arena, const MulEnv& env)
    : A_(A), a_cap_(a_cap) {
    uint64_t largest = 0;
    for (unsigned i = 0; i < partners; ++i) largest = std::max(largest, partner_caps[i]);
    if (std::min(a_cap, largest) <= kRowProductMaxWords) return;
    const uint64_t max_words = a_cap + largest;
    if (max_words > env.table->max_product_words()) return;
    const auto* fft = dynamic_cast<const FFTv4*>(&env.table->get_algorithm(max_words));
    if (fft == nullptr) return;
    const fft::TransformSize size = fft->plan(max_words);
    for (unsigned i = 0; i < partners; ++i) {
        const uint64_t words = a_cap + partner_caps[i];
        if (std::min(a_cap, partner_caps[i]) <= kRowProductMaxWords) return;
        if (&env.table->get_algorithm(words) != fft || !(fft->plan(words) == size)) return;
    }
    fft_ = fft;
    max_product_words_ = max_words;
    const uint64_t t_bytes = fft->transform_buffer_bytes(max_words);
    transform_ = arena.take_words(t_bytes / 8 + 1);
    AlignedBufferC scratch = arena.scratch(fft->stored_multiply_buffer_bytes(max_words));
    if (arena.is_counting() || A.L == 0) return;
    const MultiplyContext context{env.table, env.parallelizer, env.tds};
    fft->forward_operand(transform_, t_bytes, A.T, A.L, max_words, scratch.data(), scratch.size_bytes(), context);
}

void SharedOperand::mul(Int& C, const Int& B, uint64_t b_cap, WorkArena arena, const MulEnv& env) const {
    if (fft_ == nullptr) {
        mul_signed(C, A_, B, arena, env, a_cap_, b_cap);
        return;
    }
    AlignedBufferC scratch = arena.scratch(fft_->stored_multiply_buffer_bytes(max_product_words_));
    if (arena.is_counting()) return;
    C.T = C.base;
    if (A_.L == 0 || B.L == 0) {
        C.L = 0;
        C.sign = true;
        return;
    }
    const uint64_t n = A_.L + B.L;
    if (n > C.capacity) throw BufferTooSmallException("BinarySplitting::SharedOperand::mul()", C.capacity, n);
    const MultiplyContext context{env.table, env.parallelizer, env.tds};
    fft_->multiply_transformed(C.T, transform_, B.T, B.L, scratch.data(), scratch.size_bytes(), context);
    C.L = n - (C.T[n - 1] == 0);
    C.sign = A_.sign == B.sign;
}

void add_signed_in_place(Int& C, const Int& X) {
    if (X.L == 0) return;
    const uint64_t n = std::max(C.L, X.L);
    if (n + 1 > C.capacity) throw BufferTooSmallException("BinarySplitting::add_signed_in_place()", C.capacity, n + 1);
    uint64_t* c = C.T;
    if (C.L == 0) {
        copy_words(c, X.T, X.L);
        C.L = X.L;
        C.sign = X.sign;
        return;
    }
    if (C.sign == X.sign) {
        uint64_t carry;
        if (C.L >= X.L) {
            carry = add(c, c, C.L, X.T, X.L);
        } else {
            carry = add(c, X.T, X.L, c, C.L);
        }
        c[n] = carry;
        C.L = n + carry;
        return;
    }
    // Opposite signs: subtract the smaller magnitude from the larger.
    int order = C.L != X.L ? (C.L > X.L ? 1 : -1) : cmp(c, X.T, C.L);
    if (order == 0) {
        C.L = 0;
        C.sign = true;
        return;
    }
    if (order > 0) {
        sub(c, c, C.L, X.T, X.L);
    } else {
        sub(c, X.T, X.L, c, C.L);
        C.sign = X.sign;
    }
    C.L = normalized_length(c, n);
}

}  // namespace qmp::BinarySplitting
