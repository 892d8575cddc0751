// The nodes of the scaled remainder tree: base case, serial and parallel splits, fix-up.
#include "qmp/radix/srt_tree.h"

#include <algorithm>
#include <atomic>
#include <string>

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"
#include "qmp/radix/power_table.h"
#include "qmp/words/word_array.h"

namespace qmp::SRTv2 {

namespace {

std::atomic<uint64_t> add1_calls{0}, sub1_calls{0};

// Whether a node splits its halves into two tasks. Scratch sizing asks the same question;
// callers without a parallelizer convert with tds = 1.
bool forks(const TreeContext& context, uint64_t n, uint64_t tds) {
    return tds >= 2 && n >= context.parallel_min_words;
}

uint64_t product_bytes(const PowerLevel& level) { return AlignedBufferC::round_up(level.max_product_words * 8); }

// The split of a node: its level, the product remainder * power (in the bottom of the scratch,
// which then holds the rest), the right half's remainder viewing it and the left half's value
// modulo 2^64.
struct Split {
    uint64_t level = 0;
    uint64_t m = 0;
    RemainderFloatB right;
    uint64_t expected = 0;
};

Split split_node(const TreeContext& context, const RemainderFloatB& r, uint64_t n, AlignedBufferC& scratch,
                 uint64_t tds, const char* function) {
    const ReadyTableB& table = *context.table;
    Split s;
    s.level = table.perform_split(n);
    const PowerLevel& level = table.level(s.level);
    s.m = level.block_words;
    // Room for the product (at least twice the power: remainder and power are alike in size).
    if (scratch.size_bytes() < 2 * level.power_words * 8)
        throw BufferTooSmallException(function, scratch.size_bytes(), 2 * level.power_words * 8);
    uint64_t* C = scratch.spawn(product_bytes(level)).words<uint64_t>();
    s.expected = s.right.set_multiply_by_transform(r, table.power(s.level), n - s.m + context.guard_words, C,
                                                   level.max_product_words, table.table(), scratch.data(),
                                                   scratch.size_bytes(), context.parallelizer, tds);
    return s;
}

}  // namespace

uint64_t node_scratch_bytes(const TreeContext& context, uint64_t n, uint64_t tds) {
    if (n <= context.block_words) return 0;
    const ReadyTableB& table = *context.table;
    const PowerLevel& level = table.level(table.perform_split(n));
    const uint64_t m = level.block_words;
    const uint64_t multiply = AlignedBufferC::round_up(level.multiply_scratch_bytes);
    uint64_t children;
    if (forks(context, n, tds)) {
        const uint64_t t_left = tds / 2;
        children = node_scratch_bytes(context, m, t_left) + node_scratch_bytes(context, n - m, tds - t_left);
    } else {
        children = std::max(node_scratch_bytes(context, m, tds), node_scratch_bytes(context, n - m, tds));
    }
    return product_bytes(level) + std::max(multiply, children);
}

void convert_block(RemainderFloatB r, uint64_t* out, uint64_t n) {
    // Each step multiplies the fraction by B; the word carried out is the next output word.
    // After step i only n - i - 1 words and the guards still matter, so the bottom word is
    // dropped: its loss, below the guards, stays under one unit of the dropped position.
    uint64_t* T = r.T;
    uint64_t low = 0;
    const uint64_t top_zeros = r.precision - r.L;
    for (uint64_t i = 0; i < n; ++i) {
        const uint64_t len = r.precision - low;
        // The words above the stored length are zero until the carries reach them.
        const uint64_t skip = std::min(top_zeros > i ? top_zeros - i : 0, len);
        const uint64_t active = len - skip;
        uint64_t carry = active == 0 ? 0 : mul_1(T + low, T + low, active, kDecimalWordBase);
        if (skip != 0) {
            T[low + active] = carry;
            carry = 0;
        }
        out[i] = carry;
        ++low;
    }
}

void convertL(const TreeContext& context, RemainderFloatB r, uint64_t* out, uint64_t n, AlignedBufferC scratch,
              uint64_t tds) {
    if (r.is_zero()) {
        std::fill(out, out + n, uint64_t(0));
        return;
    }
    if (n <= context.block_words) {
        convert_block(r, out, n);
        return;
    }
    Split s = split_node(context, r, n, scratch, tds, "SRTv2::convertL()");
    convertL(context, r.top(s.m + context.guard_words), out, s.m, scratch, tds);
    convertL(context, s.right, out + s.m, n - s.m, scratch, tds);
    fixup(out, s.m, s.expected);
}

void convertP(const TreeContext& context, RemainderFloatB r, uint64_t* out, uint64_t n, AlignedBufferC scratch,
              uint64_t tds) {
    if (context.parallelizer == nullptr || !forks(context, n, tds) || r.is_zero() || n <= context.block_words) {
        convertL(context, r, out, n, scratch, tds);
        return;
    }
    Split s = split_node(context, r, n, scratch, tds, "SRTv2::convertP()");
    const uint64_t t_left = tds / 2, t_right = tds - t_left;
    AlignedBufferC left_scratch = scratch.spawn(node_scratch_bytes(context, s.m, t_left));
    AlignedBufferC right_scratch = scratch;
    const RemainderFloatB left = r.top(s.m + context.guard_words);
    context.parallelizer->run(2, [&](uint64_t half) {
        if (half == 0)
            convertP(context, left, out, s.m, left_scratch, t_left);
        else
            convertP(context, s.right, out + s.m, n - s.m, right_scratch, t_right);
    });
    fixup(out, s.m, s.expected);
}

uint64_t words_mod_2_64(const uint64_t* out, uint64_t m) {
    uint64_t v = 0;
    for (uint64_t i = 0; i < m; ++i) v = v * kDecimalWordBase + out[i];  // wraps modulo 2^64
    return v;
}

void fixup(uint64_t* out, uint64_t m, uint64_t expected) {
    const uint64_t actual = words_mod_2_64(out, m);
    if (actual == expected) return;
    const uint64_t below = expected - 1, above = expected + 1;  // modulo 2^64
    if (actual == below) {
        add1_calls.fetch_add(1, std::memory_order_relaxed);
        add1(out, m);
        return;
    }
    if (actual == above) {
        sub1_calls.fetch_add(1, std::memory_order_relaxed);
        sub1(out, m);
        return;
    }
    throw AlgorithmFailedException("SRTv2::fixup()", "Overlap Mismatch:\n    RL = " + std::to_string(m) +
                                                         "\n    Expected = " + std::to_string(expected) +
                                                         "\n    Actual   = " + std::to_string(actual));
}

uint64_t add1_count() { return add1_calls.load(); }
uint64_t sub1_count() { return sub1_calls.load(); }

void add1(uint64_t* out, uint64_t m) {
    for (uint64_t i = m; i-- > 0;) {
        if (out[i] != kDecimalWordBase - 1) {
            ++out[i];
            return;
        }
        out[i] = 0;
    }
    throw AlgorithmFailedException("SRTv2::add1()", "Impossible carryout.");
}

void sub1(uint64_t* out, uint64_t m) {
    for (uint64_t i = m; i-- > 0;) {
        if (out[i] != 0) {
            --out[i];
            return;
        }
        out[i] = kDecimalWordBase - 1;
    }
    throw AlgorithmFailedException("SRTv2::sub1()", "Impossible carryout.");
}

}  // namespace qmp::SRTv2
