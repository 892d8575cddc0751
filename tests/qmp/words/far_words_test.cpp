// The far-memory routines against their in-memory counterparts, on a RAM-backed far object with
// guard words around the array and a work buffer with guard words after its capacity: buffers
// exactly large enough, larger, and one word too small (BufferTooSmallException before any far
// byte changes); carries that die at once (nothing above A read) and that run through long
// all-ones stretches (chunk growth, parallel increment); division in chunks, in place and with
// a longer output; copy across overlapping ranges; strip; hash.
#include "qmp/words/far_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "qmp/exception.h"
#include "qmp/words/carry.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"
#include "tests/qmp/words/reference.h"
#include "tests/qmp/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class FarWordsTest : public ::testing::Test {};
TYPED_TEST_SUITE(FarWordsTest, WordTypes);

constexpr uint64_t kGuardWords = 5;

// n words at word kGuardWords of a far object, with untouched guard words on both sides.
template <typename W>
struct FarArray {
    RamFarMemory far;
    uint64_t n;
    explicit FarArray(uint64_t words) : far((words + 2 * kGuardWords) * sizeof(W)), n(words) {}
    uint64_t offset(uint64_t word = 0) const { return (kGuardWords + word) * sizeof(W); }
    void set(const std::vector<W>& v) {
        if (!v.empty()) std::memcpy(far.bytes.data() + offset(), v.data(), v.size() * sizeof(W));
    }
    std::vector<W> get() const {
        std::vector<W> v(n);
        if (n != 0) std::memcpy(v.data(), far.bytes.data() + offset(), n * sizeof(W));
        return v;
    }
    bool guards_intact() const {
        const uint64_t g = offset();
        return std::all_of(far.bytes.begin(), far.bytes.begin() + g, [](unsigned char b) { return b == 0xA7; }) &&
               std::all_of(far.bytes.end() - g, far.bytes.end(), [](unsigned char b) { return b == 0xA7; });
    }
};

// A work buffer of `capacity` words followed by guard words.
template <typename W>
struct WorkBuffer {
    std::vector<W> words;
    FarWorkContext ctx;
    WorkBuffer(uint64_t capacity, Parallelizer* par, uint64_t tds)
        : words(capacity + 8, W(0x3C)), ctx{words.data(), capacity * sizeof(W), par, tds} {}
    bool guards_intact() const {
        return std::all_of(words.end() - 8, words.end(), [](W x) { return x == W(0x3C); });
    }
};

TYPED_TEST(FarWordsTest, CarryFormsMatchInMemoryForms) {
    using W = TypeParam;
    std::mt19937_64 rng(test_seed());
    TaskQueueFramework threads(2);
    for (uint64_t TL : {1, 2, 65, 1000, 40000}) {
        for (int rep = 0; rep < 5; ++rep) {
            const uint64_t AL = rep == 0 ? 0 : rep == 1 ? TL : rng() % (TL + 1);
            auto t0 = random_words<W>(rng, TL);
            if (rep == 2) std::fill(t0.begin() + AL, t0.end(), W(~W(0)));  // the carry runs to the top
            const auto a = random_words<W>(rng, AL);
            const W cin = rep % 3 == 0 ? W(~W(0)) : W(rng() % 2);
            std::vector<W> sum = t0, carried = t0, blocks = t0;
            const W sum_out = W(add(sum.data(), sum.data(), TL, a.data(), AL) + add_1(sum.data(), sum.data(), TL, cin));
            const W carried_out = add_1(carried.data(), carried.data(), TL, cin);
            std::vector<uint64_t> offsets;
            std::vector<W> carries;
            for (uint64_t off = 0; off < TL; off += 1 + rng() % (TL / 8 + 1)) {
                offsets.push_back(off);
                carries.push_back(W(rng() % 3));
            }
            const W blocks_out = bp_add_carry_blocks(blocks.data(), TL, offsets.data(), carries.data(), offsets.size(),
                                                     nullptr, 1);
            const uint64_t need = std::max<uint64_t>(AL, 1);
            for (uint64_t cap : {need, need + 1, need + 30000}) {
                SCOPED_TRACE(seed_note() + " TL=" + std::to_string(TL) + " AL=" + std::to_string(AL) +
                             " cap=" + std::to_string(cap) + " rep=" + std::to_string(rep));
                FarArray<W> t(TL);
                WorkBuffer<W> buf(cap, &threads, 3);
                t.set(t0);
                EXPECT_EQ(fm_add_ir(buf.ctx, t.far, t.offset(), TL, a.data(), AL, cin), sum_out);
                EXPECT_TRUE(t.get() == sum);
                t.set(t0);
                EXPECT_EQ(fm_add_carry_t(buf.ctx, t.far, t.offset(), TL, cin), carried_out);
                EXPECT_TRUE(t.get() == carried);
                t.set(t0);
                EXPECT_EQ(fm_ksr_carry_t(buf.ctx, t.far, t.offset(), TL, offsets.data(), carries.data(), offsets.size()),
                          blocks_out);
                EXPECT_TRUE(t.get() == blocks);
                EXPECT_TRUE(t.guards_intact() && buf.guards_intact());
            }
        }
    }
    FarArray<W> t(4);
    WorkBuffer<W> buf(4, nullptr, 1);
    const std::vector<uint64_t> offsets = {0, 3, 2};
    const std::vector<W> carries = {1, 1, 1};
    expect_throw<InvalidParametersException>([&] { fm_ksr_carry_t(buf.ctx, t.far, t.offset(), 0, offsets.data(), carries.data(), 1); },
                                             "fm_ksr_carry_t()", "Length cannot be zero.");
    expect_throw<InvalidParametersException>([&] { fm_ksr_carry_t(buf.ctx, t.far, t.offset(), 4, offsets.data(), carries.data(), 3); },
                                             "fm_ksr_carry_t()", "Block offsets are not increasing.");
}

// Reads above A grow from 64 words and stop as soon as the carry is absorbed.
TYPED_TEST(FarWordsTest, AddIrReadsOnlyWhileTheCarryLives) {
    using W = TypeParam;
    FarArray<W> t(5000);
    t.set(std::vector<W>(5000, W(~W(0))));
    WorkBuffer<W> buf(4096, nullptr, 1);
    const std::vector<W> zeros(10, 0), ones(10, W(~W(0)));
    uint64_t calls = 0;
    auto loaded_words = [&](const std::vector<W>& a, W cin, W carry_out) {
        const uint64_t before = t.far.bytes_loaded(), calls_before = t.far.load_calls;
        EXPECT_EQ(fm_add_ir(buf.ctx, t.far, t.offset(), 5000, a.data(), 10, cin), carry_out);
        calls = t.far.load_calls - calls_before;
        return (t.far.bytes_loaded() - before) / sizeof(W);
    };
    EXPECT_EQ(loaded_words(zeros, W(0), W(0)), 10u);  // no carry: A's words only
    EXPECT_EQ(calls, 1u);
    // Through all of T: A, then chunks of 64, 128, ..., 2048 words and the last 958.
    EXPECT_EQ(loaded_words(ones, W(1), W(1)), 5000u);
    EXPECT_EQ(calls, 8u);
    std::vector<W> expect(5000, W(0));
    std::fill(expect.begin(), expect.begin() + 10, W(~W(0)));
    EXPECT_TRUE(t.get() == expect);
    // T is now ones below zeros: the carry of ones + ones dies in the first 64-word chunk.
    EXPECT_EQ(loaded_words(ones, W(0), W(0)), 10u + 64u);
}

TYPED_TEST(FarWordsTest, DivisionMatchesLongDivisionInChunks) {
    using W = TypeParam;
    std::mt19937_64 rng(test_seed() + 2);
    TaskQueueFramework threads(2);
    for (uint64_t AL : {0, 1, 2500, 9000}) {
        const uint64_t extra = rng() % 700, TL = AL + extra;
        const W d = W((rng() >> 40) | 3);
        const ShoupDivider<W> div(d);
        const auto a = random_words<W>(rng, AL);
        const W r = W(rng() % d);
        std::vector<W> ref_np(AL), ref_ex(AL), ref_long(TL), top(TL, W(0));
        const W rem_np = ref_divmod<W>(ref_np.data(), a.data(), AL, d, r);
        const W rem_ex = ref_divmod<W>(ref_ex.data(), nullptr, AL, d, r);
        const W rem_long =
            ref_divmod<W>(ref_long.data(), nullptr, extra, d, ref_divmod<W>(ref_long.data() + extra, a.data(), AL, d, r));
        std::copy(a.begin(), a.end(), top.begin() + extra);
        for (uint64_t cap : {1, 999, 4000, 20000}) {
            SCOPED_TRACE(seed_note() + " AL=" + std::to_string(AL) + " TL=" + std::to_string(TL) +
                         " cap=" + std::to_string(cap));
            WorkBuffer<W> buf(cap, &threads, 3);
            FarArray<W> src(AL), dst(AL), wide(TL);
            src.set(a);
            EXPECT_EQ(fm_div_np(buf.ctx, dst.far, dst.offset(), src.far, src.offset(), AL, div, r), rem_np);
            EXPECT_TRUE(dst.get() == ref_np);
            EXPECT_EQ(fm_div_np(buf.ctx, src.far, src.offset(), src.far, src.offset(), AL, div, r), rem_np);
            EXPECT_TRUE(src.get() == ref_np);  // in place
            EXPECT_EQ(fm_div_ex(buf.ctx, dst.far, dst.offset(), AL, div, r), rem_ex);
            EXPECT_TRUE(dst.get() == ref_ex);
            src.set(a);
            EXPECT_EQ(fm_div_np(buf.ctx, wide.far, wide.offset(), TL, src.far, src.offset(), AL, div, r), rem_long);
            EXPECT_TRUE(wide.get() == ref_long);
            wide.set(top);  // in place, A at the top of T in the same object
            EXPECT_EQ(fm_div_np(buf.ctx, wide.far, wide.offset(), TL, wide.far, wide.offset(extra), AL, div, r), rem_long);
            EXPECT_TRUE(wide.get() == ref_long);
            EXPECT_TRUE(wide.guards_intact() && src.guards_intact() && dst.guards_intact() && buf.guards_intact());
        }
    }
    FarArray<W> t(10);
    WorkBuffer<W> buf(10, nullptr, 1);
    expect_throw<InvalidParametersException>(
        [&] { fm_div_np(buf.ctx, t.far, t.offset(), 4, t.far, t.offset(), 5, ShoupDivider<W>(7), W(0)); },
        "fm_div_np()", "TL < AL");
}

TYPED_TEST(FarWordsTest, StreamingRoutinesMatchMemory) {
    using W = TypeParam;
    std::mt19937_64 rng(test_seed() + 3);
    for (uint64_t L : {0, 1, 63, 64, 65, 5000}) {
        for (uint64_t cap : {1, 3, 64, 4096}) {
            SCOPED_TRACE(seed_note() + " L=" + std::to_string(L) + " cap=" + std::to_string(cap));
            WorkBuffer<W> buf(cap, nullptr, 1);
            const auto v = random_words<W>(rng, L);
            FarArray<W> t(L);
            t.set(v);
            EXPECT_EQ(fm_hash<W>(buf.ctx, t.far, t.offset(), L), mod_m61(v.data(), L));
            fm_fill(buf.ctx, t.far, t.offset(), L, W(0x77));
            EXPECT_TRUE(t.get() == std::vector<W>(L, W(0x77)));
            fm_setzero<W>(buf.ctx, t.far, t.offset(), L);
            EXPECT_TRUE(t.get() == std::vector<W>(L, W(0)));
            // Top words equal to the value are counted down, wherever the chunk edges fall.
            for (uint64_t keep : {uint64_t(0), L / 3, L}) {
                std::vector<W> s = v;
                std::fill(s.begin() + keep, s.end(), W(~W(0)));
                if (keep > 0) s[keep - 1] = W(5);
                t.set(s);
                EXPECT_EQ(fm_strip_leading(buf.ctx, t.far, t.offset(), L, W(~W(0))), keep);
            }
            // Copy up and down by a few words within one object, then to another object.
            const uint64_t gap = rng() % 5 + 1;
            FarArray<W> big(L + gap), other(L);
            const auto init = random_words<W>(rng, L + gap);
            for (uint64_t from : {uint64_t(0), gap}) {
                const uint64_t to = gap - from;
                big.set(init);
                fm_copy<W>(buf.ctx, big.far, big.offset(to), big.far, big.offset(from), L);
                std::vector<W> expect = init;
                std::copy(init.begin() + from, init.begin() + from + L, expect.begin() + to);
                EXPECT_TRUE(big.get() == expect) << "from " << from;
            }
            fm_copy<W>(buf.ctx, other.far, other.offset(), big.far, big.offset(), L);
            const std::vector<W> copied = other.get(), source = big.get();
            EXPECT_TRUE(std::equal(copied.begin(), copied.end(), source.begin()));
            EXPECT_TRUE(t.guards_intact() && big.guards_intact() && other.guards_intact() && buf.guards_intact());
        }
    }
}

TYPED_TEST(FarWordsTest, ShortBufferThrowsBeforeAnyFarWordChanges) {
    using W = TypeParam;
    const ShoupDivider<W> div(11);
    FarArray<W> t(100), a(100);
    const std::vector<W> init(100, W(~W(0))), mem(100, W(1));
    t.set(init);
    const std::vector<uint64_t> offsets = {0, 50};
    const std::vector<W> carries = {1, 0};
    using Call = std::function<void(const FarWorkContext&)>;
    const std::vector<std::pair<const char*, Call>> calls = {
        {"fm_add_ir()", [&](const FarWorkContext& c) { fm_add_ir(c, t.far, t.offset(), 100, mem.data(), 1, W(1)); }},
        {"fm_add_carry_t()", [&](const FarWorkContext& c) { fm_add_carry_t(c, t.far, t.offset(), 100, W(1)); }},
        {"fm_ksr_carry_t()", [&](const FarWorkContext& c) { fm_ksr_carry_t(c, t.far, t.offset(), 100, offsets.data(), carries.data(), 2); }},
        {"fm_div_ex()", [&](const FarWorkContext& c) { fm_div_ex(c, t.far, t.offset(), 100, div, W(3)); }},
        {"fm_div_np()", [&](const FarWorkContext& c) { fm_div_np(c, t.far, t.offset(), a.far, a.offset(), 100, div, W(3)); }},
        {"fm_setzero()", [&](const FarWorkContext& c) { fm_setzero<W>(c, t.far, t.offset(), 100); }},
        {"fm_fill()", [&](const FarWorkContext& c) { fm_fill(c, t.far, t.offset(), 100, W(3)); }},
        {"fm_copy()", [&](const FarWorkContext& c) { fm_copy<W>(c, t.far, t.offset(), a.far, a.offset(), 100); }},
        {"fm_strip_leading()", [&](const FarWorkContext& c) { fm_strip_leading(c, t.far, t.offset(), 100, W(0)); }},
        {"fm_hash()", [&](const FarWorkContext& c) { fm_hash<W>(c, t.far, t.offset(), 100); }},
    };
    W space[2];
    for (const auto& [name, call] : calls) {
        for (uint64_t bytes : {uint64_t(0), sizeof(W) - 1}) {
            expect_throw<BufferTooSmallException>([&] { call({space, bytes, nullptr, 1}); }, name,
                                                  "Buffer is too small:\n    Buffer Size: " + std::to_string(bytes) +
                                                      "\n    Required Size: " + std::to_string(sizeof(W)));
        }
    }
    // fm_add_ir() must hold all of A: one word short is refused; A longer than T is refused.
    const std::vector<W> a40(40, W(1));
    WorkBuffer<W> short_buf(39, nullptr, 1);
    expect_throw<BufferTooSmallException>(
        [&] { fm_add_ir(short_buf.ctx, t.far, t.offset(), 100, a40.data(), 40, W(0)); }, "fm_add_ir()",
        "Buffer is too small:\n    Buffer Size: " + std::to_string(39 * sizeof(W)) +
            "\n    Required Size: " + std::to_string(40 * sizeof(W)));
    expect_throw<InvalidParametersException>(
        [&] { fm_add_ir(short_buf.ctx, t.far, t.offset(), 30, a40.data(), 40, W(0)); }, "fm_add_ir()",
        "T is smaller than A.");
    EXPECT_TRUE(t.get() == init);
    EXPECT_EQ(t.far.bytes_stored(), 0u);
}

}  // namespace
}  // namespace qmp::test
