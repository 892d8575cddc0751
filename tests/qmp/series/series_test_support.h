// Shared pieces of the series tests: a multiplication table, aligned buffers, reference digits
// read from the hexadecimal files as BigFloats, and a check that a fraction num/den equals a
// reference value to a given number of words.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"

namespace qmp::test {

inline const AlgorithmTableB& series_table() {
    static AlgorithmRegistry registry = [] {
        AlgorithmRegistry r;
        register_builtin_algorithms(r);
        return r;
    }();
    static AlgorithmTableB table = make_default_table(registry);
    return table;
}

// 128-byte aligned memory owned by the test.
struct TestBuffer {
    std::vector<uint64_t> words;
    AlignedBufferC view;
    explicit TestBuffer(uint64_t bytes) : words(bytes / 8 + 32) {
        auto p = (reinterpret_cast<uintptr_t>(words.data()) + 127) & ~uintptr_t(127);
        view = AlignedBufferC(reinterpret_cast<void*>(p), AlignedBufferC::round_up(bytes));
    }
};

inline std::string read_reference(const std::string& name) {
    std::ifstream in("/work/shared/reference/" + name);
    std::string s;
    std::getline(in, s);
    return s;
}

// The reference "I.hhhh..." truncated to `fraction_words` words after the point, as a BigFloat
// over `storage`.
inline BigFloat<uint64_t> hex_reference(const std::string& text, uint64_t fraction_words,
                                        std::vector<uint64_t>& storage) {
    const size_t dot = text.find('.');
    storage.assign(fraction_words + 1, 0);
    storage[fraction_words] = std::stoull(text.substr(0, dot), nullptr, 16);
    for (uint64_t i = 0; i < fraction_words; ++i)
        storage[fraction_words - 1 - i] = std::stoull(text.substr(dot + 1 + 16 * i, 16), nullptr, 16);
    BigFloat<uint64_t> x(storage.data(), storage.size());
    x.L = storage.size();
    x.exp = -int64_t(fraction_words);
    x.sign = true;
    return x;
}

// How many words of num/den agree with x: the position of |num - den x| below the top of num.
inline int64_t agreeing_words(const BigFloat<uint64_t>& num, const BigFloat<uint64_t>& den,
                              const BigFloat<uint64_t>& x) {
    const AlgorithmTableB& table = series_table();
    TestBuffer scratch(BigFloat<uint64_t>::mul_scratch_bytes(table, den.L, x.L) + 4096);
    std::vector<uint64_t> pw(den.L + x.L + 4), dw(den.L + x.L + num.L + 8);
    BigFloat<uint64_t> product(pw.data(), pw.size()), diff(dw.data(), dw.size());
    product.set_mul(den, x, BigFloat<uint64_t>::full_precision, table, scratch.view);
    diff.set_usub(num, product);
    if (diff.L == 0) return 1 << 30;
    return num.top() - diff.top();
}

}  // namespace qmp::test
