// BigInt against the oracle on 32-bit halves: signed sums and differences (also in place),
// shifts, word products, add_ip, table products at every cross-over of the default table, and
// conversions; results inside guard words.
#include "qmp/numbers/big_int.h"

#include "qmp/numbers/basic_int.h"
#include "qmp/numbers/big_float.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class BigIntTest : public ::testing::Test {};
TYPED_TEST_SUITE(BigIntTest, WordTypes);

template <typename W>
struct Number {
    std::vector<W> words;
    BigInt<W> x;
    Number(std::mt19937_64& rng, uint64_t n, bool sign, uint64_t room = 0) : words(random_operand<W>(rng, n)) {
        words.resize(n + room);
        x = BigInt<W>(words.data(), n + room);
        x.L = n;
        x.sign = n == 0 || sign;
    }
    Mag mag() const { return to_mag(x.T, x.L); }
};

template <typename W>
void expect_value(const BigInt<W>& x, const Mag& mag, bool sign) {
    EXPECT_EQ(to_mag(x.T, x.L), mag);
    EXPECT_EQ(x.sign, sign || mag.empty());
    EXPECT_NO_THROW(x.check_normalization());
}

TYPED_TEST(BigIntTest, SignedSumsAndDifferencesMatchOracle) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed());
    const uint64_t lengths[] = {0, 1, 2, 3, 5, 17, 64, 65, 300};
    for (uint64_t la : lengths)
        for (uint64_t lb : lengths)
            for (int signs = 0; signs < 8; ++signs) {
                SCOPED_TRACE(testing::Message() << "la=" << la << " lb=" << lb << " signs=" << signs);
                const bool subtract = signs & 4;
                Number<W> a(rng, la, signs & 1, std::max(la, lb) + 1 - la), b(rng, lb, signs & 2);
                // a - b = a + (-b); the oracle adds magnitudes of equal signs, else subtracts.
                const bool sb = b.x.sign != subtract;
                const int c = mag_cmp(a.mag(), b.mag());
                const Mag want = a.x.sign == sb ? mag_add(a.mag(), b.mag())
                                                : mag_add(c >= 0 ? a.mag() : b.mag(), c >= 0 ? b.mag() : a.mag(), true);
                const bool want_sign = a.x.sign == sb ? a.x.sign : (c >= 0 ? a.x.sign : sb);
                Guarded<W> out(std::max(la, lb) + 1);
                BigInt<W> r(out.data(), out.n);
                subtract ? r.set_sub(a.x, b.x) : r.set_add(a.x, b.x);
                expect_value(r, want, want_sign);
                EXPECT_TRUE(out.intact());
                subtract ? a.x.set_sub(a.x, b.x) : a.x.set_add(a.x, b.x);  // in place
                expect_value(a.x, want, want_sign);
            }
}

TYPED_TEST(BigIntTest, ShiftsWordProductsAndAddIp) {
    using W = TypeParam;
    constexpr uint64_t w = sizeof(W) * 8;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 1);
    for (uint64_t n : {1, 2, 7, 40}) {
        for (uint64_t bits : {uint64_t(0), uint64_t(1), w - 1, w, w + 3, 5 * w + 17}) {
            SCOPED_TRACE(testing::Message() << "n=" << n << " bits=" << bits);
            Number<W> a(rng, n, false, bits / w + 1);
            const uint32_t power = uint32_t(1) << (bits % 32);
            const Mag want = mag_mul(a.mag(), to_mag(&power, 1, bits / 32));
            a.x <<= bits;
            expect_value(a.x, want, false);
        }
        const W x = W(rng() | 1);
        Number<W> a(rng, n, true);
        Guarded<W> out(n + 2);
        BigInt<W> r(out.data(), out.n);
        r.set_mul_uW(a.x, x);
        expect_value(r, mag_mul(a.mag(), to_mag(&x, 1)), true);
        r.mul_uW(x);
        expect_value(r, mag_mul(mag_mul(a.mag(), to_mag(&x, 1)), to_mag(&x, 1)), true);
        BigInt<W> full = r;
        full.capacity = r.L;  // the carry word is stored even when it is zero: needs L + 1
        EXPECT_THROW(full.mul_uW(1), BufferTooSmallException);
        r.sign = false;
        r.mul_uW(0);
        expect_value(r, {}, true);
        EXPECT_TRUE(out.intact());
    }
    // add_ip: a carry through all-ones words grows the number; p = L appends.
    std::vector<W> words{W(~W(0)), W(~W(0)), 0, 0};
    BigInt<W> r(words.data(), 3);
    r.L = 2;
    r.add_ip(1, 0);
    EXPECT_EQ(words, (std::vector<W>{0, 0, 1, 0}));
    EXPECT_EQ(r.L, 3u);
    EXPECT_THROW(r.add_ip(5, 3), BufferTooSmallException);  // T[L] is cleared first: needs L + 1
    r.capacity = 4;
    r.add_ip(5, 3);
    EXPECT_EQ(words, (std::vector<W>{0, 0, 1, 5}));
    expect_throw<InvalidParametersException>([&] { r.add_ip(1, 5); }, "BigInt::add_ip()", "Magnitude is out of range.");
    BigInt<W> zero(words.data(), 4);
    expect_throw<InvalidParametersException>([&] { zero.add_ip(1, 0); }, "BigInt::add_ip()",
                                             "Magnitude is out of range.");
    words[3] = 0;
    expect_throw<AlgorithmFailedException>([&] { r.check_normalization(); }, "BigInt::check_normalization()",
                                           "Top word is zero.");
}

// Lengths in 64-bit words around the cross-overs of the default table (Karatsuba at 32 and 68
// words, FFT above a 512-word product), unbalanced shapes and a few thousand words.
TYPED_TEST(BigIntTest, ProductsMatchSchoolbookAcrossThresholds) {
    using W = TypeParam;
    constexpr uint64_t per64 = 8 / sizeof(W);
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 2);
    const std::pair<uint64_t, uint64_t> shapes[] = {{1, 1},     {2, 1},     {31, 31},   {32, 32},   {33, 20},
                                                    {67, 67},   {68, 68},   {69, 69},   {255, 256}, {256, 256},
                                                    {257, 256}, {300, 7},   {1, 900},   {1500, 1400}, {3000, 100}};
    const auto& table = default_table();
    for (auto [a64, b64] : shapes) {
        // For 32-bit words an odd length too, so that the zero padding runs.
        const uint64_t la = a64 * per64 - (per64 == 2 && a64 % 2 == 1), lb = b64 * per64;
        SCOPED_TRACE(testing::Message() << "la=" << la << " lb=" << lb);
        Number<W> a(rng, la, rng() & 1), b(rng, lb, rng() & 1);
        Scratch scratch(std::max(BigInt<W>::mul_scratch_bytes(table, la, lb), BigInt<W>::sqr_scratch_bytes(table, la)));
        Guarded<W> out(std::max(la + lb, 2 * la));
        BigInt<W> r(out.data(), out.n);
        r.set_mul(a.x, b.x, table, scratch.buffer);
        expect_value(r, mag_mul(a.mag(), b.mag()), a.x.sign == b.x.sign);
        r.set_sqr(a.x, table, scratch.buffer);
        expect_value(r, mag_mul(a.mag(), a.mag()), true);
        EXPECT_TRUE(out.intact());
    }
    Number<W> a(rng, 600, true);
    const uint64_t need = BigInt<W>::mul_scratch_bytes(table, 600, 600);
    Scratch scratch(need);
    Guarded<W> out(1200);
    BigInt<W> r(out.data(), out.n);
    try {
        r.set_mul(a.x, a.x, table, AlignedBufferC(scratch.buffer.data(), need - 128));
        ADD_FAILURE() << "no exception";
    } catch (const BufferTooSmallException& e) {
        EXPECT_EQ(e.function(), "BigInt::set_mul()");
        EXPECT_EQ(e.required_size(), need);
    }
    BigInt<W> over(a.words.data(), 1200);  // the result buffer is the operand's own storage
    expect_throw<InvalidParametersException>([&] { over.set_sqr(a.x, table, scratch.buffer); }, "BigInt::set_sqr()",
                                             "Output overlaps an input.");
}

TYPED_TEST(BigIntTest, ConversionsFromBasicIntAndBigFloat) {
    using W = TypeParam;
    BasicIntO v(0x123456789ABCDEFull);
    v.set_mulB(v, BasicIntO(0xFEDCBA987ull));  // 5 halves: an odd length to pack
    std::vector<W> words(8, W(7));
    BigInt<W> r(words.data(), 8);
    r.set_BasicInt(v);
    EXPECT_EQ(to_mag(r.T, r.L), to_mag(v.words(), v.length()));
    // The integer part of 7 B^(e+2) + 8 B^(e+1) + 9 B^e for several e, truncated toward zero.
    std::vector<W> fw{W(9), W(8), W(7)};
    BigFloat<W> f(fw.data(), 3);
    f.L = 3;
    f.sign = false;
    const std::pair<int64_t, std::vector<W>> cases[] = {{-1, {8, 7}}, {2, {0, 0, 9, 8, 7}}, {-3, {}}};
    for (const auto& [e, want] : cases) {
        f.exp = e;
        r.set_BigFloat(f);
        expect_value(r, to_mag(want.data(), want.size()), false);
    }
}

}  // namespace
}  // namespace qmp::test
