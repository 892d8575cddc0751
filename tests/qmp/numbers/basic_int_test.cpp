// BasicInt against unsigned __int128 where the values fit, growth of the owning form through its
// allocator, the refusals of the plain form, and the exact failure and warning texts.
#include "qmp/numbers/basic_int.h"

#include <cstdlib>

#include "qmp/console.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

using u128 = unsigned __int128;

u128 value_of(const BasicIntR& x) {
    u128 v = 0;
    for (uint64_t i = x.length(); i-- > 0;) v = (v << 32) | x.words()[i];
    return v;
}

std::string decimal(u128 v) {
    std::string s;
    do {
        s.insert(s.begin(), char('0' + int(v % 10)));
        v /= 10;
    } while (v != 0);
    return s;
}

// Counts what the owning form takes and gives back.
class CountingAllocator final : public WordAllocator {
public:
    int64_t live_bytes = 0;
    int calls = 0;
    void* allocate(uint64_t size_bytes) override {
        live_bytes += int64_t(size_bytes);
        ++calls;
        return std::malloc(size_bytes);
    }
    void deallocate(void* ptr, uint64_t size_bytes) noexcept override {
        live_bytes -= int64_t(size_bytes);
        std::free(ptr);
    }
};

TEST(BasicIntTest, ArithmeticMatchesInt128) {
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 20);
    CountingAllocator allocator;
    for (int round = 0; round < 2000; ++round) {
        // Operands of 1..63 bits so that sums, differences and products fit 128 bits.
        const uint64_t a = (rng() >> (1 + rng() % 63)) | 1, b = (rng() >> (1 + rng() % 63)) | 1;
        const uint32_t x = uint32_t(rng() >> (rng() % 64)) | 1;
        SCOPED_TRACE(testing::Message() << "a=" << a << " b=" << b << " x=" << x);
        BasicIntO A(a, allocator), B(b, allocator), R(1, allocator);
        EXPECT_EQ(A.length(), a >> 32 ? 2u : 1u);
        R.set_add(A, B);
        EXPECT_EQ(value_of(R), u128(a) + b);
        R.set_mulB(A, B);
        EXPECT_EQ(value_of(R), u128(a) * b);
        R.set_sqrB(R);  // over its own operand: a fresh block, then the old one goes back
        if (u128(a) * b < (u128(1) << 64)) {
            EXPECT_EQ(value_of(R), (u128(a) * b) * (u128(a) * b));
        }
        R.set_mulB(A, x);
        EXPECT_EQ(value_of(R), u128(a) * x);
        EXPECT_EQ(R.div(x), 0u);
        EXPECT_EQ(value_of(R), u128(a));
        if (a != b) {
            BasicIntO big(a > b ? a : b, allocator), small(a > b ? b : a, allocator);
            R.set_sub(big, small);
            EXPECT_EQ(value_of(R), u128(a > b ? a - b : b - a));
            big -= small;
            EXPECT_EQ(value_of(big), u128(a > b ? a - b : b - a));
        }
        A += B;
        A += x;
        EXPECT_EQ(value_of(A), u128(a) + b + x);
        const uint32_t q = A.div(x == 1 ? 3 : x);
        EXPECT_EQ(u128(q), (u128(a) + b + x) % (x == 1 ? 3 : x));
        EXPECT_EQ(A.to_string(), decimal(value_of(A)));
        EXPECT_EQ(BasicIntR::compare(B, A), value_of(B) < value_of(A) ? -1 : value_of(B) > value_of(A) ? 1 : 0);
    }
    EXPECT_EQ(allocator.live_bytes, 0);
}

TEST(BasicIntTest, FailuresAndTexts) {
    expect_throw<InvalidParametersException>([] { BasicIntO z(0); }, "BasicIntO::BasicIntO()",
                                             "Zero was encountered.");
    BasicIntO a(5), b(7);
    expect_throw<InvalidParametersException>([&] { a -= b; }, "BasicIntO::operator-=()",
                                             "A negative value was encountered.");
    expect_throw<InvalidParametersException>([&] { a -= 6u; }, "BasicIntO::operator-=()",
                                             "A negative value was encountered.");
    expect_throw<ArithmeticException>([&] { a.div(0); }, "BasicIntO::div()", "Divide by zero.");
    EXPECT_EQ(a.to_string(), "5");
    // The plain form cannot grow and cannot form a product over itself.
    uint32_t storage[2] = {};
    BasicIntR r(storage, 2);
    expect_throw<InvalidParametersException>([&] { r.set_add(a, r); }, "BasicIntR::set_add()",
                                             "Invalid Function Parameters:   Operand is zero.");
    r.set_add(a, b);
    EXPECT_EQ(storage[0], 12u);
    expect_throw<InvalidParametersException>([&] { r.set_mulB(r, b); }, "BasicIntR::set_mulB()",
                                             "Invalid Function Parameters:   A product cannot overwrite its operand.");
    BasicIntO wide(~uint64_t(0));
    expect_throw<BufferTooSmallException>([&] { r.set_mulB(wide, wide); }, "BasicIntR::set_mulB()",
                                          "Buffer is too small:\n    Buffer Size: 2\n    Required Size: 4");

    // 10^9 - 1 squared repeatedly, against the digits of the same number built by hand, and the
    // quadratic warning once the length passes its threshold.
    BasicIntO n(999999999);
    for (int i = 0; i < 9; ++i) n.set_sqrB(n);  // (10^9 - 1)^512: 4608 digits
    const std::string text = n.to_string();
    EXPECT_EQ(text.size(), 4608u);
    EXPECT_EQ(text.substr(0, 3), "999");
    EXPECT_EQ(text.substr(text.size() - 4), "0001");  // (-1)^512 modulo 10^4
    BasicIntO huge(n);
    while (huge.length() <= BasicIntO::to_string_warning_words) huge.set_sqrB(huge);
    const size_t before = EventLog::entries().size();
    (void)huge.to_string();
    const auto log = EventLog::entries();
    ASSERT_GE(log.size(), before + 2);
    EXPECT_NE(log[before].find("BasicIntO::to_string(): Performance Warning"), std::string::npos);
    EXPECT_NE(log[before + 1].find("    Converting a " + std::to_string(huge.length()) +
                                   "-word number using the O(n^2) algorithm."),
              std::string::npos);
}

}  // namespace
}  // namespace qmp::test
