// SwapFloat in RAM-backed far memory: BigFloat -> SwapFloat -> BigFloat keeps the top p words
// (all at full precision) and reads only those, across the piece boundary too; short regions
// are refused before anything moves; a zeroed top word in far memory is caught. Short result
// buffers are swept in exhaustion_test.cpp.
#include "qmp/numbers/swap_float.h"

#include <limits>

#include "qmp/farmemory/malloc_far_memory.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class SwapFloatTest : public ::testing::Test {};
TYPED_TEST_SUITE(SwapFloatTest, WordTypes);

TYPED_TEST(SwapFloatTest, RoundTripReadsOnlyTheTopWords) {
    using W = TypeParam;
    QMP_SEED_TRACE();
    std::mt19937_64 rng(test_seed() + 50);
    constexpr uint64_t piece_words = SwapFloat<W>::piece_bytes / sizeof(W), offset = 12;  // offset: unaligned
    MallocFarMemory framework;
    for (uint64_t n : {uint64_t(1), uint64_t(7), piece_words + 5}) {
        std::vector<W> words = random_operand<W>(rng, n);
        BigFloat<W> x(words.data(), n);
        x.L = n;
        x.exp = int64_t(rng() % 41) - 20;
        x.sign = rng() & 1;
        auto memory = framework.create("n", offset + n * sizeof(W));
        SwapFloat<W> s(*memory, offset, n);
        s.store_from(x);
        for (uint64_t p : {BigFloat<W>::full_precision, uint64_t(1), n / 2 + 1, piece_words + 1}) {
            const uint64_t keep = std::min(p, n), loaded = memory->bytes_loaded();
            SCOPED_TRACE(testing::Message() << "n=" << n << " p=" << p);
            Guarded<W> out(keep);
            BigFloat<W> r(out.data(), out.n);
            r.set_SwapFloat(s, p);
            EXPECT_EQ(memory->bytes_loaded() - loaded, keep * sizeof(W));
            EXPECT_TRUE(r.L == keep && std::equal(r.T, r.T + keep, words.end() - keep) && out.intact());
            EXPECT_TRUE(r.exp == x.exp + int64_t(n - keep) && r.sign == x.sign);
        }
    }
}

TYPED_TEST(SwapFloatTest, RefusalsZeroAndCorruptTopWord) {
    using W = TypeParam;
    MallocFarMemory framework;
    auto memory = framework.create("swap", 64);
    std::vector<W> words{W(3), W(5), W(9)}, room(3);
    BigFloat<W> x(words.data(), 3), r(room.data(), 3);
    x.L = 3;
    for (auto [offset, capacity] : {std::pair<uint64_t, uint64_t>{65, 0}, {8, 64 / sizeof(W)},
                                    {0, std::numeric_limits<uint64_t>::max()}})
        EXPECT_THROW(SwapFloat<W>(*memory, offset, capacity), FarMemoryOutOfBoundsException) << offset;
    EXPECT_THROW(SwapFloat<W>(*memory, 0, 2, 3, 0, true), BufferTooSmallException);
    SwapFloat<W> s(*memory, 8, 2);
    expect_throw<BufferTooSmallException>([&] { s.store_from(x); }, "SwapFloat::store_from()",
                                          "Buffer is too small:\n    Buffer Size: 2\n    Required Size: 3");
    EXPECT_EQ(memory->bytes_stored(), 0u);
    x.L = 0;
    s.store_from(x);
    r.set_SwapFloat(s);
    EXPECT_TRUE(s.L() == 0 && s.sign() && r.L == 0);
    // The far copy's top word turns to zero behind the number's back: the load notices.
    x.L = 2;
    s.store_from(x);
    const W zero = 0;
    memory->store(&zero, 8 + sizeof(W), sizeof(W));
    expect_throw<AlgorithmFailedException>([&] { r.set_SwapFloat(s, 1); }, "BigFloat::set_SwapFloat()",
                                           "Top word is zero.");
    EXPECT_EQ(r.L, 0u);
    EXPECT_THROW(s.load_words(room.data(), 1, 2), InvalidParametersException);
}

}  // namespace
}  // namespace qmp::test
