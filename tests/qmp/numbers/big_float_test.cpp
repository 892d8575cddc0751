// BigFloat against the oracle on 32-bit halves: aligned sums and differences at several
// precisions, products keeping the top p words (also in place), division by a signed word
// against long division on double-width integers (also split over a thread pool), and the
// stated rules of add_ip, purturb_up, set_double, comparison and the conversions.
#include "qmp/numbers/big_float.h"

#include <cmath>
#include <limits>

#include "qmp/numbers/basic_int.h"
#include "qmp/parallel/taskqueue_framework.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class BigFloatTest : public ::testing::Test {};
TYPED_TEST_SUITE(BigFloatTest, WordTypes);

template <typename W>
constexpr uint64_t halves = sizeof(W) / 4;

template <typename W>
struct Number {
    std::vector<W> words;
    BigFloat<W> x;
    Number(std::vector<W> w, int64_t exp, bool sign) : words(std::move(w)) {
        x = BigFloat<W>(words.data(), words.size());
        x.L = words.size();
        while (x.L > 0 && words[x.L - 1] == 0) --x.L;
        x.exp = exp;
        x.sign = sign;
    }
};

// The words of x at positions >= lo, in units of B^lo.
template <typename W>
Mag mag_at(const BigFloat<W>& x, int64_t lo) {
    if (x.L == 0 || x.top() <= lo) return {};
    const int64_t first = std::max(lo, x.exp);
    return to_mag(x.T + (first - x.exp), uint64_t(x.top() - first), uint64_t(first - lo) * halves<W>);
}

TYPED_TEST(BigFloatTest, SumsAndDifferencesMatchOracleAtEveryPrecision) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 10);
    for (int round = 0; round < 400; ++round) {
        Number<W> a(random_operand<W>(rng, 1 + rng() % 11), int64_t(rng() % 15) - 7, rng() & 1);
        Number<W> b(random_operand<W>(rng, 1 + rng() % 11), int64_t(rng() % 15) - 7, rng() & 1);
        if (round % 5 == 0) b = Number<W>(a.words, a.x.exp, !a.x.sign);  // full cancellation
        const uint64_t p = round % 3 == 0 ? BigFloat<W>::full_precision : 1 + rng() % 8;
        SCOPED_TRACE(testing::Message() << "round=" << round << " p=" << p);
        // Both operands lose their words below top - p, then the operation is exact.
        const int64_t top = std::max(a.x.top(), b.x.top());
        const int64_t lo = std::max(std::min(a.x.exp, b.x.exp), p < 64 ? top - int64_t(p) : INT64_MIN);
        const Mag ma = mag_at(a.x, lo), mb = mag_at(b.x, lo);
        const int c = mag_cmp(ma, mb);
        const Mag diff = c >= 0 ? mag_add(ma, mb, true) : mag_add(mb, ma, true);
        Guarded<W> out(26);
        BigFloat<W> r(out.data(), out.n);
        auto check = [&](const Mag& want, bool want_sign) {
            EXPECT_EQ(mag_at(r, lo), want);
            EXPECT_TRUE(want.empty() ? r.L == 0 : r.sign == want_sign);
            EXPECT_NO_THROW(r.check_normalization());
        };
        r.set_uadd(a.x, b.x, p);
        check(mag_add(ma, mb), true);
        r.set_usub(a.x, b.x, p);
        check(diff, c >= 0);
        r.set_rsub(a.x, b.x, p);
        check(diff, c <= 0);
        EXPECT_TRUE(out.intact());
    }
}

TYPED_TEST(BigFloatTest, ProductsKeepTheTopWords) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 11);
    const auto& table = default_table();
    for (uint64_t n : {1, 2, 9, 70, 300}) {
        for (uint64_t p : {uint64_t(1), uint64_t(5), n, 3 * n}) {
            SCOPED_TRACE(testing::Message() << "n=" << n << " p=" << p);
            Number<W> a(random_operand<W>(rng, n), -3, true), b(random_operand<W>(rng, n + 3), 5, false);
            const Mag exact = mag_mul(to_mag(a.x.T, a.x.L), to_mag(b.x.T, b.x.L));
            const uint64_t PL = (exact.size() + halves<W> - 1) / halves<W>, keep = std::min(p, PL);
            const Mag want(exact.begin() + (PL - keep) * halves<W>, exact.end());
            Scratch scratch(BigFloat<W>::mul_scratch_bytes(table, n, n + 3));
            Guarded<W> out(2 * n + 3);
            BigFloat<W> r(out.data(), std::min(p, 2 * n + 3));  // room for min(p, AL + BL) words
            r.set_mul(a.x, b.x, p, table, scratch.buffer);
            EXPECT_EQ(to_mag(r.T, r.L), want);
            EXPECT_EQ(r.exp, 2 + int64_t(PL - keep));
            EXPECT_FALSE(r.sign);
            BigFloat<W> s(out.data(), out.n);
            s.set_mul_small(b.x, a.x, p);
            EXPECT_EQ(to_mag(s.T, s.L), want);
            EXPECT_EQ(s.exp, r.exp);
            EXPECT_TRUE(out.intact());
        }
        // Squaring in place: the exact square is formed in the scratch first.
        Number<W> a(random_operand<W>(rng, 2 * n), -3, false);
        const Mag square = mag_mul(to_mag(a.x.T, n), to_mag(a.x.T, n));
        a.x.L = n;
        Scratch scratch(BigFloat<W>::sqr_scratch_bytes(table, n));
        a.x.set_sqr(a.x, BigFloat<W>::full_precision, table, scratch.buffer);
        EXPECT_EQ(to_mag(a.x.T, a.x.L), square);
        EXPECT_TRUE(a.x.sign && a.x.exp == -6);
    }
}

// floor(A * B^extra / d) word by word from the top with a double-width remainder.
template <typename W>
std::vector<W> long_division(const std::vector<W>& a, uint64_t extra, W d) {
    using D = std::conditional_t<sizeof(W) == 8, unsigned __int128, uint64_t>;
    std::vector<W> q(a.size() + extra);
    D r = 0;
    for (uint64_t i = q.size(); i-- > 0;) {
        const D n = (r << (8 * sizeof(W))) | (i >= extra ? a[i - extra] : 0);
        q[i] = W(n / d);
        r = n % d;
    }
    return q;
}

TYPED_TEST(BigFloatTest, DivisionBySignedWordMatchesLongDivision) {
    using W = TypeParam;
    using SW = typename BigFloat<W>::SignedWord;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 12);
    TaskQueueFramework pool(2);
    const SW divisors[] = {1, -1, 2, 3, -7, 64, SW(rng() >> 2), -SW(rng() >> 3), std::numeric_limits<SW>::min(),
                           std::numeric_limits<SW>::max()};
    for (uint64_t n : {1, 2, 5, 1500}) {
        for (SW x : divisors) {
            for (uint64_t extra : {0, 1, 3}) {
                SCOPED_TRACE(testing::Message() << "n=" << n << " x=" << int64_t(x) << " extra=" << extra);
                Number<W> a(random_operand<W>(rng, n), 4, rng() & 1);
                const Mag want = to_mag(long_division(a.words, extra, x < 0 ? W(0) - W(x) : W(x)).data(), n + extra);
                Guarded<W> out(n + extra);
                BigFloat<W> r(out.data(), out.n);
                r.set_div_sW(a.x, x, n + extra, n > 1000 ? &pool : nullptr, 2);
                EXPECT_EQ(mag_at(r, 4 - int64_t(extra)), want);
                EXPECT_TRUE(want.empty() ? r.L == 0 : r.sign == (a.x.sign == (x > 0)));
                EXPECT_NO_THROW(r.check_normalization());
                EXPECT_TRUE(out.intact());
            }
        }
    }
    Number<W> a({W(5), W(6)}, 0, true);
    std::vector<W> room(4);
    BigFloat<W> r(room.data(), 4);
    expect_throw<ArithmeticException>([&] { r.set_div_sW(a.x, 0, 3); }, "BigFloat::set_div_sW()", "Divide by zero.");
    expect_throw<InvalidParametersException>([&] { r.set_div_sW(a.x, 3, 1); }, "BigFloat::set_div_sW()", "TL < AL");
}

TYPED_TEST(BigFloatTest, AddIpAndPurturbUpRules) {
    using W = TypeParam;
    const W ones = W(~W(0));
    std::vector<W> room{ones, ones, W(4), 0, 0};
    BigFloat<W> x(room.data(), 5);
    x.exp = 10;
    for (int64_t L : {0, 3})  // on zero even p = exp is out of range; otherwise below exp, above top
        for (int64_t p : {9, 10, 14})
            if (L == 0 || p != 10) {
                x.L = uint64_t(L);
                expect_throw<InvalidParametersException>([&] { x.add_ip(1, p); }, "BigFloat::add_ip()",
                                                         "Magnitude is out of range.");
            }
    x.add_ip(1, 10);  // the carry runs through the ones into the 4
    x.add_ip(W(9), 13);  // p = exp + L appends
    EXPECT_EQ(room, (std::vector<W>{0, 0, W(5), W(9), 0}));
    EXPECT_EQ(x.L, 4u);
    room = {ones, ones, ones, ones, 0};
    BigFloat<W> tight = x;
    tight.capacity = 4;
    EXPECT_THROW(tight.add_ip(1, 10), BufferTooSmallException);
    EXPECT_EQ(room[0], ones);  // refused before any word changed
    x.add_ip(1, 10);
    EXPECT_EQ(room, (std::vector<W>{0, 0, 0, 0, 1}));
    EXPECT_EQ(x.L, 5u);

    // purturb_up: without a carry out L stays; with one, L becomes L - p + 1 (growth for p = 0).
    struct Case {
        std::vector<W> before;
        uint64_t L, p;
        std::vector<W> after;
        uint64_t new_L;
    };
    const Case cases[] = {{{W(3), ones, 0}, 2, 0, {W(4), ones, 0}, 2},  {{W(3), ones, 0}, 2, 2, {W(3), ones, 0}, 2},
                          {{ones, ones, 0}, 2, 0, {0, 0, 1}, 3},         {{W(4), ones, ones, ones, 0}, 4, 1, {W(4), 0, 0, 0, 1}, 4},
                          {{ones, ones, ones, ones, 0}, 4, 2, {ones, ones, 0, 0, 1}, 3}};
    for (const Case& c : cases) {
        room = c.before;
        x = BigFloat<W>(room.data(), room.size());
        x.L = c.L;
        x.purturb_up(c.p);
        EXPECT_EQ(room, c.after);
        EXPECT_EQ(x.L, c.new_L);
    }
    x.capacity = 4;  // a carry out of the top needs word L
    room = {ones, ones, ones, ones, 0};
    x.L = 4;
    EXPECT_THROW(x.purturb_up(0), BufferTooSmallException);
    EXPECT_EQ(room[0], ones);
    room[3] = 0;
    expect_throw<AlgorithmFailedException>([&] { x.check_normalization(); }, "BigFloat::check_normalization()",
                                           "Top word is zero.");
}

TYPED_TEST(BigFloatTest, SetDoubleIsExact) {
    using W = TypeParam;
    constexpr int w = 8 * sizeof(W);
    std::vector<W> room(3, W(0x77));
    BigFloat<W> x(room.data(), 3);
    auto value = [&] {  // exact: every partial sum is a truncation of a 53-bit value
        double v = 0;
        for (uint64_t i = x.L; i-- > 0;) v += std::ldexp(double(x.T[i]), int(w * (x.exp + int64_t(i))));
        return x.sign ? v : -v;
    };
    std::mt19937_64 rng(test_seed() + 13);
    std::vector<double> cases{1.0, -3.5, 0.1, 1e300, -1e-300, std::numeric_limits<double>::max(),
                              std::numeric_limits<double>::min(), std::ldexp(12345.0, -1074)};
    for (int i = 0; i < 200; ++i) cases.push_back(std::ldexp(double(rng() >> 11), int(rng() % 2000) - 1040));
    for (double d : cases) {
        x.set_double(d);
        EXPECT_EQ(value(), d) << d;
        EXPECT_NO_THROW(x.check_normalization());
    }
    x.set_double(std::ldexp(1.0, -1074));
    EXPECT_TRUE(x.L == 1 && __builtin_popcountll(uint64_t(x.T[0])) == 1);  // one bit
    for (double z : {0.0, -0.0}) {
        x.exp = 9;
        x.set_double(z);
        EXPECT_TRUE(x.L == 0 && x.exp == 0);
    }
    x.capacity = 1;
    expect_throw<BufferTooSmallException>([&] { x.set_double(1.0); }, "BigFloat::set_double()",
                                          "Buffer is too small:\n    Buffer Size: 1\n    Required Size: 2");
    // 53 bits shifted by w - 1 bits straddle three 32-bit words.
    x.capacity = 2;
    const double straddle = std::ldexp(double((uint64_t(1) << 53) - 1), w - 1);
    if (w == 32) {
        EXPECT_THROW(x.set_double(straddle), BufferTooSmallException);
    } else {
        x.set_double(straddle);
        EXPECT_EQ(value(), straddle);
    }
}

TYPED_TEST(BigFloatTest, ComparisonAndConversions) {
    using W = TypeParam;
    using F = BigFloat<W>;
    Number<W> zero({}, 0, false), pos({W(1), W(2)}, 0, true), neg({W(1), W(2)}, 0, false);
    Number<W> padded({0, 0, W(1), W(2)}, -2, true), above({W(1), W(2)}, 1, true);
    Number<W> tail({W(7), W(1), W(2)}, -1, true), ntail({W(7), W(1), W(2)}, -1, false);
    const std::tuple<const F*, const F*, int> cases[] = {
        {&zero.x, &zero.x, 0}, {&zero.x, &neg.x, 1}, {&zero.x, &pos.x, -1}, {&neg.x, &pos.x, -1},
        {&pos.x, &padded.x, 0},  // trailing zero words do not count
        {&pos.x, &above.x, -1}, {&tail.x, &pos.x, 1}, {&ntail.x, &neg.x, -1}};
    for (const auto& [a, b, want] : cases) {
        EXPECT_EQ(F::compare(*a, *b), want);
        EXPECT_EQ(F::compare(*b, *a), -want);
    }

    // Integer part: 3 B + 9 + 5/B for 32-bit words; 9 + 5/B for 64-bit words, where 3 B would
    // not fit.
    Number<W> mixed(sizeof(W) == 4 ? std::vector<W>{W(5), W(9), W(3)} : std::vector<W>{W(5), W(9)}, -1, true);
    EXPECT_EQ(mixed.x.unsigned_integer_part(), sizeof(W) == 4 ? (uint64_t(3) << 32) + 9 : 9);
    EXPECT_EQ(zero.x.unsigned_integer_part(), 0u);
    Number<W> big(std::vector<W>(sizeof(W) == 4 ? 3 : 2, W(1)), 0, true);
    for (const F* bad : {&big.x, &neg.x})
        expect_throw<InvalidParametersException>([&] { bad->unsigned_integer_part(); },
                                                 "BigFloat::unsigned_integer_part()", "Number is out of range.");

    // From BasicInt: odd 32-bit lengths pack into a half-filled 64-bit top word.
    BasicIntO v(0xFFFFFFFFull);
    for (int i = 0; i < 4; ++i) {
        v.set_mulB(v, 0x10001u);
        std::vector<W> room(v.length() + 1, W(0x55));
        F f(room.data(), room.size());
        f.set_BasicInt(v);
        EXPECT_EQ(to_mag(f.T, f.L), to_mag(v.words(), v.length()));
        F tight(room.data(), (v.length() * 4 + sizeof(W) - 1) / sizeof(W) - 1);
        EXPECT_THROW(tight.set_BasicInt(v), BufferTooSmallException);
    }
}

}  // namespace
}  // namespace qmp::test
