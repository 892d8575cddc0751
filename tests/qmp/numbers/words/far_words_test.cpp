// The far-memory routines against their in-memory counterparts, on a RAM-backed far object
// with guard bytes around the array and a work buffer with guard words after its capacity:
// buffers just large enough, larger, and one word too small (BufferTooSmallException before
// any far byte changes); carries that die at once (no further words read) and that run
// through long all-ones stretches (chunk growth and the parallel increment); division with
// chunking, in place and with a longer output; copy across overlapping ranges; strip; hash.
#include "qmp/numbers/words/far_words.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

#include "qmp/exception.h"
#include "qmp/numbers/words/carry.h"
#include "qmp/numbers/words/mod_m61.h"
#include "qmp/numbers/words/word_array.h"
#include "tests/qmp/numbers/words/reference.h"
#include "tests/qmp/numbers/words/test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class FarWordsTest : public ::testing::Test {};
TYPED_TEST_SUITE(FarWordsTest, WordTypes);

constexpr uint64_t kGuardBytes = 40;
constexpr unsigned char kGuard = 0xA7;

// A far object holding `words` words at byte offset kGuardBytes, guard bytes on both sides.
template <typename W>
struct FarArray {
    RamFarMemory far;
    uint64_t words;
    explicit FarArray(uint64_t n) : far(n * sizeof(W) + 2 * kGuardBytes), words(n) {
        std::memset(far.data(), kGuard, far.size_bytes());
    }
    uint64_t offset() const { return kGuardBytes; }
    void set(const std::vector<W>& v) { std::memcpy(far.data() + kGuardBytes, v.data(), v.size() * sizeof(W)); }
    std::vector<W> get() {
        std::vector<W> v(words);
        std::memcpy(v.data(), far.data() + kGuardBytes, words * sizeof(W));
        return v;
    }
    bool guards_intact() {
        for (uint64_t i = 0; i < kGuardBytes; ++i)
            if (far.data()[i] != kGuard || far.data()[far.size_bytes() - 1 - i] != kGuard) return false;
        return true;
    }
};

// A work buffer of `capacity` words followed by guard words that must stay untouched.
template <typename W>
struct WorkBuffer {
    std::vector<W> words;
    uint64_t capacity;
    WorkBuffer(uint64_t cap, Parallelizer* par, uint64_t tds) : words(cap + 8, W(0x3C)), capacity(cap), par(par), tds(tds) {}
    FarWorkContext ctx() { return {words.data(), capacity * sizeof(W), par, tds}; }
    bool guards_intact() const {
        for (uint64_t i = capacity; i < capacity + 8; ++i)
            if (words[i] != W(0x3C)) return false;
        return true;
    }
    Parallelizer* par;
    uint64_t tds;
};

TYPED_TEST(FarWordsTest, AddIrMatchesInMemoryAdd) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed);
    ThreadParallelizer threads(2);
    for (uint64_t TL : {1, 2, 65, 1000, 40000}) {
        for (int rep = 0; rep < 6; ++rep) {
            const uint64_t AL = rep == 0 ? 0 : rep == 1 ? TL : rng() % (TL + 1);
            auto t0 = random_words<W>(rng, TL);
            if (rep == 2) std::fill(t0.begin() + AL, t0.end(), W(~W(0)));  // carry runs to the top
            const auto a = random_words<W>(rng, AL);
            const W cin = rep % 3 == 0 ? W(~W(0)) : W(rng() % 2);
            std::vector<W> expect = t0;
            const W c1 = add(expect.data(), expect.data(), TL, a.data(), AL);
            const W c2 = add_1(expect.data(), expect.data(), TL, cin);
            const uint64_t need = std::max<uint64_t>(AL, 1);
            for (uint64_t cap : {need, need + 1, need + 30000}) {
                SCOPED_TRACE(seed_note(seed) + " TL=" + std::to_string(TL) + " AL=" + std::to_string(AL) +
                             " cap=" + std::to_string(cap) + " rep=" + std::to_string(rep));
                FarArray<W> t(TL);
                t.set(t0);
                WorkBuffer<W> buf(cap, &threads, 3);
                EXPECT_EQ(fm_add_ir(buf.ctx(), t.far, t.offset(), TL, a.data(), AL, cin), W(c1 + c2));
                EXPECT_EQ(t.get(), expect);
                EXPECT_TRUE(t.guards_intact());
                EXPECT_TRUE(buf.guards_intact());
            }
        }
    }
}

TYPED_TEST(FarWordsTest, AddIrTouchesNothingAboveAOnceTheCarryIsAbsorbed) {
    using W = TypeParam;
    FarArray<W> t(5000);
    t.set(std::vector<W>(5000, W(~W(0))));
    const std::vector<W> a(10, 0);
    WorkBuffer<W> buf(4096, nullptr, 1);
    EXPECT_EQ(fm_add_ir(buf.ctx(), t.far, t.offset(), 5000, a.data(), 10, W(0)), W(0));
    EXPECT_EQ(t.far.loaded, 10 * sizeof(W));
    EXPECT_EQ(t.far.stored, 10 * sizeof(W));
    // A carry into all-ones words: chunks of 64, 128, ... words, the last capped by the buffer.
    t.far.loaded = 0;
    std::vector<W> ones(10, W(~W(0)));
    EXPECT_EQ(fm_add_ir(buf.ctx(), t.far, t.offset(), 5000, ones.data(), 10, W(1)), W(1));
    EXPECT_EQ(t.far.loaded, 5000 * sizeof(W));
    // T is now 10 words of ones over zeros: the carry of ones + ones dies in the first chunk.
    t.far.loaded = 0;
    EXPECT_EQ(fm_add_ir(buf.ctx(), t.far, t.offset(), 5000, ones.data(), 10, W(0)), W(0));
    EXPECT_EQ(t.far.loaded, (10 + 64) * sizeof(W));
}

TYPED_TEST(FarWordsTest, CarryFormsMatchInMemoryForms) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed + 1);
    ThreadParallelizer threads(2);
    for (uint64_t L : {1, 300, 20000}) {
        auto t0 = random_words<W>(rng, L);
        if (L > 10) std::fill(t0.begin() + 1, t0.end() - 3, W(~W(0)));
        const W carry = W(rng() | 1);
        std::vector<W> expect = t0;
        const W out = add_1(expect.data(), expect.data(), L, carry);
        std::vector<uint64_t> offsets;
        std::vector<W> carries;
        for (uint64_t off = 0; off < L; off += 1 + rng() % (L / 8 + 1)) {
            offsets.push_back(off);
            carries.push_back(W(rng() % 3));
        }
        std::vector<W> expect_blocks = t0;
        const W out_blocks = bp_add_carry_blocks(expect_blocks.data(), L, offsets.data(), carries.data(), offsets.size(), nullptr, 1);
        for (uint64_t cap : {1, 64, 9000}) {
            SCOPED_TRACE(seed_note(seed) + " L=" + std::to_string(L) + " cap=" + std::to_string(cap));
            FarArray<W> t(L);
            WorkBuffer<W> buf(cap, &threads, 2);
            t.set(t0);
            EXPECT_EQ(fm_add_carry_t(buf.ctx(), t.far, t.offset(), L, carry), out);
            EXPECT_EQ(t.get(), expect);
            t.set(t0);
            EXPECT_EQ(fm_ksr_carry_t(buf.ctx(), t.far, t.offset(), L, offsets.data(), carries.data(), offsets.size()), out_blocks);
            EXPECT_EQ(t.get(), expect_blocks);
            EXPECT_TRUE(t.guards_intact());
            EXPECT_TRUE(buf.guards_intact());
        }
    }
    FarArray<W> t(4);
    WorkBuffer<W> buf(4, nullptr, 1);
    const std::vector<uint64_t> offsets = {0, 3, 2};
    const std::vector<W> carries = {1, 1, 1};
    for (uint64_t L : {0, 4})
        expect_throw<InvalidParametersException>(
            [&] { fm_ksr_carry_t(buf.ctx(), t.far, t.offset(), L, offsets.data(), carries.data(), 3); },
            "fm_ksr_carry_t()", L == 0 ? "Length cannot be zero." : "Block offsets are not increasing.");
}

TYPED_TEST(FarWordsTest, DivisionMatchesLongDivisionInChunks) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed + 2);
    ThreadParallelizer threads(2);
    for (uint64_t AL : {0, 1, 2500, 9000}) {
        const uint64_t extra = rng() % 700, TL = AL + extra;
        const W d = W((rng() >> 40) | 3);
        const ShoupDivider<W> div(d);
        const auto a = random_words<W>(rng, AL);
        const W r = W(rng() % d);
        std::vector<W> ref_np(AL), ref_ex(AL), ref_long(TL);
        const W rem_np = ref_divmod<W>(ref_np.data(), a.data(), AL, d, r);
        const W rem_ex = ref_divmod<W>(ref_ex.data(), nullptr, AL, d, r);
        const W rem_mid = ref_divmod<W>(ref_long.data() + extra, a.data(), AL, d, r);
        const W rem_long = ref_divmod<W>(ref_long.data(), nullptr, extra, d, rem_mid);
        for (uint64_t cap : {1, 999, 4000, 20000}) {
            SCOPED_TRACE(seed_note(seed) + " AL=" + std::to_string(AL) + " TL=" + std::to_string(TL) +
                         " cap=" + std::to_string(cap));
            WorkBuffer<W> buf(cap, &threads, 3);
            FarArray<W> src(AL), dst(AL), wide(TL);
            src.set(a);
            EXPECT_EQ(fm_div_np(buf.ctx(), dst.far, dst.offset(), src.far, src.offset(), AL, div, r), rem_np);
            EXPECT_EQ(dst.get(), ref_np);
            EXPECT_EQ(fm_div_np(buf.ctx(), src.far, src.offset(), src.far, src.offset(), AL, div, r), rem_np);
            EXPECT_EQ(src.get(), ref_np);  // in place
            EXPECT_EQ(fm_div_ex(buf.ctx(), dst.far, dst.offset(), AL, div, r), rem_ex);
            EXPECT_EQ(dst.get(), ref_ex);
            src.set(a);
            EXPECT_EQ(fm_div_np(buf.ctx(), wide.far, wide.offset(), TL, src.far, src.offset(), AL, div, r), rem_long);
            EXPECT_EQ(wide.get(), ref_long);
            // In place with A at the top of T in the same object.
            std::vector<W> top(TL, W(0));
            std::copy(a.begin(), a.end(), top.begin() + extra);
            wide.set(top);
            EXPECT_EQ(fm_div_np(buf.ctx(), wide.far, wide.offset(), TL, wide.far, wide.offset() + extra * sizeof(W), AL,
                                div, r),
                      rem_long);
            EXPECT_EQ(wide.get(), ref_long);
            EXPECT_TRUE(wide.guards_intact() && src.guards_intact() && dst.guards_intact());
            EXPECT_TRUE(buf.guards_intact());
        }
    }
    FarArray<W> t(10);
    WorkBuffer<W> buf(10, nullptr, 1);
    const ShoupDivider<W> div(7);
    expect_throw<InvalidParametersException>(
        [&] { fm_div_np(buf.ctx(), t.far, t.offset(), 4, t.far, t.offset(), 5, div, W(0)); }, "fm_div_np()", "TL < AL");
}

TYPED_TEST(FarWordsTest, StreamingRoutinesMatchMemory) {
    using W = TypeParam;
    const uint64_t seed = test_seed();
    std::mt19937_64 rng(seed + 3);
    for (uint64_t L : {0, 1, 63, 64, 65, 5000}) {
        for (uint64_t cap : {1, 3, 64, 4096}) {
            SCOPED_TRACE(seed_note(seed) + " L=" + std::to_string(L) + " cap=" + std::to_string(cap));
            WorkBuffer<W> buf(cap, nullptr, 1);
            const auto v = random_words<W>(rng, L);
            FarArray<W> t(L);
            t.set(v);
            EXPECT_EQ(fm_hash<W>(buf.ctx(), t.far, t.offset(), L), mod_m61(v.data(), L));
            fm_fill(buf.ctx(), t.far, t.offset(), L, W(0x77));
            EXPECT_EQ(t.get(), std::vector<W>(L, W(0x77)));
            fm_setzero<W>(buf.ctx(), t.far, t.offset(), L);
            EXPECT_EQ(t.get(), std::vector<W>(L, W(0)));
            EXPECT_TRUE(t.guards_intact());

            // Top words equal to the value are counted down, wherever the chunk edges fall.
            for (uint64_t keep : {uint64_t(0), L / 3, L}) {
                std::vector<W> s = v;
                for (uint64_t i = keep; i < L; ++i) s[i] = W(~W(0));
                if (keep > 0) s[keep - 1] = W(5);
                t.set(s);
                EXPECT_EQ(fm_strip_leading(buf.ctx(), t.far, t.offset(), L, W(~W(0))), keep);
            }

            // Copy up and down by a few words within one object, and between objects.
            const uint64_t gap = rng() % 5 + 1;
            FarArray<W> big(L + gap), other(L);
            std::vector<W> init = random_words<W>(rng, L + gap);
            for (int dir = 0; dir < 2; ++dir) {
                big.set(init);
                const uint64_t from = dir == 0 ? 0 : gap, to = dir == 0 ? gap : 0;
                fm_copy<W>(buf.ctx(), big.far, big.offset() + to * sizeof(W), big.far, big.offset() + from * sizeof(W), L);
                std::vector<W> expect = init;
                std::copy(init.begin() + from, init.begin() + from + L, expect.begin() + to);
                EXPECT_EQ(big.get(), expect) << "dir " << dir;
            }
            fm_copy<W>(buf.ctx(), other.far, other.offset(), big.far, big.offset(), L);
            const std::vector<W> big_now = big.get();
            EXPECT_EQ(other.get(), std::vector<W>(big_now.begin(), big_now.begin() + L));
            EXPECT_TRUE(big.guards_intact() && other.guards_intact());
            EXPECT_TRUE(buf.guards_intact());
        }
    }
}

TYPED_TEST(FarWordsTest, ShortBufferThrowsBeforeAnyFarWordChanges) {
    using W = TypeParam;
    const ShoupDivider<W> div(11);
    FarArray<W> t(100), a(100);
    const std::vector<W> init(100, W(~W(0)));
    t.set(init);
    const std::vector<W> mem(100, W(1));
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
    std::vector<W> space(2);
    for (const auto& [name, call] : calls) {
        for (uint64_t bytes : {uint64_t(0), sizeof(W) - 1}) {
            SCOPED_TRACE(std::string(name) + " bytes=" + std::to_string(bytes));
            try {
                call({space.data(), bytes, nullptr, 1});
                ADD_FAILURE() << "no exception";
            } catch (const BufferTooSmallException& e) {
                EXPECT_EQ(e.function(), name);
                EXPECT_EQ(e.buffer_size(), bytes);
                EXPECT_EQ(e.required_size(), sizeof(W));
            }
        }
    }
    // fm_add_ir() must hold all of A: one word short is refused.
    const std::vector<W> a40(40, W(1));
    WorkBuffer<W> short_buf(39, nullptr, 1);
    expect_throw<BufferTooSmallException>([&] { fm_add_ir(short_buf.ctx(), t.far, t.offset(), 100, a40.data(), 40, W(0)); },
                                          "fm_add_ir()", "Buffer is too small:\n    Buffer Size: " + std::to_string(39 * sizeof(W)) +
                                                             "\n    Required Size: " + std::to_string(40 * sizeof(W)));
    expect_throw<InvalidParametersException>([&] { fm_add_ir(short_buf.ctx(), t.far, t.offset(), 30, a40.data(), 40, W(0)); },
                                             "fm_add_ir()", "T is smaller than A.");
    EXPECT_EQ(t.get(), init);
    EXPECT_EQ(t.far.stored, 0u);
}

}  // namespace
}  // namespace qmp::test
