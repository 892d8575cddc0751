// The table entry points: products of every shape routed through a table (including pieces of
// a long operand and a table of two entries), exact scratch sizes with guards, a buffer one
// byte short refused before anything is written, and sizes beyond the table.
#include "qmp/multiply/multiply.h"

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/tuning_profile.h"
#include "qmp/parallel/parallel_framework.h"
#include "qmp/parallel/parallelizer.h"
#include "tests/qmp/multiply/multiply_test_support.h"

namespace qmp::test {
namespace {

class MultiplyEntry : public ::testing::Test {
protected:
    void SetUp() override { register_builtin_algorithms(registry); }
    AlgorithmRegistry registry;
};

// Runs one product with exactly the published scratch, both guarded, against the oracle.
void check_product(const AlgorithmTableB& table, Rng& rng, uint64_t al, uint64_t bl, Pattern pattern) {
    SCOPED_TRACE("AL=" + std::to_string(al) + " BL=" + std::to_string(bl) + " pattern=" + std::to_string(int(pattern)));
    auto A = make_operand(rng, al, pattern), B = make_operand(rng, bl, pattern);
    const uint64_t bytes = multiply_scratch_bytes(table, al, bl);
    ASSERT_EQ(bytes % 8, 0u);
    Guarded C(al + bl), S(bytes / 8);
    SequentialParallelizer sequential;
    multiply(table, C.data(), A.data(), al, B.data(), bl, S.data(), bytes, &sequential, 2);
    ASSERT_TRUE(C.guards_intact());
    ASSERT_TRUE(S.guards_intact());
    ASSERT_EQ(C.contents(), oracle_mul(A, B));
}

TEST_F(MultiplyEntry, ShapesThroughOneAndTwoEntryTables) {
    SCOPED_TRACE(seed_note());
    Rng rng(test_seed() + 4);
    AlgorithmTableB one(registry, {{512, "BKT", {}}});
    AlgorithmTableB two(registry, {{96, "BKT", {}}, {3000, "BKT", {}}});
    const std::vector<std::pair<uint64_t, uint64_t>> shapes = {
        {1, 1}, {7, 3}, {256, 256}, {300, 200}, {2000, 1}, {2000, 40}, {5000, 41}, {1500, 250}, {1111, 700},
    };
    for (const AlgorithmTableB* table : {&one, &two}) {
        for (auto [al, bl] : shapes) {
            if (2 * bl > table->max_product_words()) continue;
            for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
                check_product(*table, rng, al, bl, pattern);
                check_product(*table, rng, bl, al, pattern);  // either order
                if (HasFatalFailure()) return;
            }
        }
    }
}

// Long operands against short ones through the default table: the short sides around the
// switch to pieces that reuse one stored transform of B (27/28 words, 144/145 words where the
// table entry for 2 BL changes), long sides around the ratio that selects them, and the pieces
// on one task and on two (even pieces written, odd pieces added, carries after).
TEST_F(MultiplyEntry, UnbalancedShapesOfTheDefaultTable) {
    SCOPED_TRACE(seed_note());
    Rng rng(test_seed() + 9);
    const AlgorithmTableB table = make_default_table(registry);
    const auto framework = make_parallel_framework(find_parallel_framework("pushpool").default_config());
    struct Shape {
        uint64_t al, bl;
    };
    const std::vector<Shape> shapes = {{5000, 1},   {9000, 2},    {20001, 3},   {279, 28},    {280, 28},
                                       {30000, 27}, {30000, 28},  {40000, 144}, {40000, 145}, {100003, 1000},
                                       {9999, 1000}, {1200000, 145}, {1500007, 100000}};
    for (const Shape& shape : shapes) {
        for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
            SCOPED_TRACE("AL=" + std::to_string(shape.al) + " BL=" + std::to_string(shape.bl) + " pattern=" +
                         std::to_string(int(pattern)));
            const auto A = make_operand(rng, shape.al, pattern), B = make_operand(rng, shape.bl, pattern);
            const uint64_t bytes = multiply_scratch_bytes(table, shape.al, shape.bl);
            std::vector<uint64_t> S(bytes / 8 + 1);
            std::vector<uint64_t> C1(shape.al + shape.bl), C2(shape.al + shape.bl, 0x5555555555555555ull);
            multiply(table, C1.data(), A.data(), shape.al, B.data(), shape.bl, S.data(), bytes, nullptr, 1);
            multiply(table, C2.data(), A.data(), shape.al, B.data(), shape.bl, S.data(), bytes, framework.get(), 2);
            ASSERT_EQ(C1, C2);
            if (shape.al * shape.bl <= 50000000) {
                ASSERT_EQ(C1, oracle_mul(A, B));
            } else {
                ASSERT_TRUE(residues_match(A, B, C1));
            }
            if (shape.al >= 1000000) break;  // one pattern is enough for the long ones
        }
    }
}

TEST_F(MultiplyEntry, SquaresThroughTheTable) {
    SCOPED_TRACE(seed_note());
    Rng rng(test_seed() + 5);
    AlgorithmTableB table = make_default_table(registry);
    for (uint64_t n : {1, 2, 47, 48, 49, 333, 1024, 3000}) {
        for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
            SCOPED_TRACE("AL=" + std::to_string(n));
            auto A = make_operand(rng, n, pattern);
            const uint64_t bytes = square_scratch_bytes(table, n);
            Guarded C(2 * n), S(bytes / 8);
            square(table, C.data(), A.data(), n, S.data(), bytes);
            ASSERT_TRUE(C.guards_intact());
            ASSERT_TRUE(S.guards_intact());
            ASSERT_EQ(C.contents(), oracle_mul(A, A));
        }
    }
}

TEST_F(MultiplyEntry, ShortBufferIsRefusedBeforeAnyWrite) {
    AlgorithmTableB table(registry, {{512, "BKT", {}}});
    Rng rng(test_seed() + 6);
    for (auto [al, bl] : std::vector<std::pair<uint64_t, uint64_t>>{{100, 100}, {3000, 50}, {10, 3}}) {
        SCOPED_TRACE("AL=" + std::to_string(al) + " BL=" + std::to_string(bl));
        auto A = make_operand(rng, al, Pattern::Random), B = make_operand(rng, bl, Pattern::Random);
        const uint64_t bytes = multiply_scratch_bytes(table, al, bl);
        Guarded C(al + bl), S(bytes / 8);
        try {
            multiply(table, C.data(), A.data(), al, B.data(), bl, S.data(), bytes - 1);
            FAIL() << "no exception";
        } catch (const BufferTooSmallException& e) {
            EXPECT_EQ(e.function(), "check_mul()");
            EXPECT_EQ(e.buffer_size(), bytes - 1);
            EXPECT_EQ(e.required_size(), bytes);
        }
        EXPECT_THROW(check_mul(table, al, bl, bytes - 1), BufferTooSmallException);
        EXPECT_NO_THROW(check_mul(table, al, bl, bytes));
        // Nothing written: output and scratch hold only the garbage they were filled with.
        for (uint64_t w : C.contents()) ASSERT_EQ(w, Guarded::garbage);
        for (uint64_t w : S.contents()) ASSERT_EQ(w, Guarded::garbage);
    }
    // The algorithm itself refuses a buffer below its published need, called without the table.
    {
        const BasicAlgorithm& bkt = table.get_algorithm(200);
        const uint64_t need = bkt.multiply_buffer_bytes(200);
        auto A = make_operand(rng, 100, Pattern::Random), B = make_operand(rng, 100, Pattern::Random);
        Guarded C(200), S(need / 8);
        EXPECT_THROW(bkt.multiply(C.data(), A.data(), 100, B.data(), 100, S.data(), need - 1, {}),
                     BufferTooSmallException);
        EXPECT_THROW(bkt.square(C.data(), A.data(), 100, S.data(), need - 1, {}), BufferTooSmallException);
        for (uint64_t w : C.contents()) ASSERT_EQ(w, Guarded::garbage);
    }
    const uint64_t sq = square_scratch_bytes(table, 200);
    Guarded C(400), S(sq / 8);
    auto A = make_operand(rng, 200, Pattern::Random);
    EXPECT_THROW(square(table, C.data(), A.data(), 200, S.data(), sq - 1), BufferTooSmallException);
    for (uint64_t w : C.contents()) ASSERT_EQ(w, Guarded::garbage);
}

TEST_F(MultiplyEntry, BalancedProductBeyondTheTableThrows) {
    AlgorithmTableB table(registry, {{512, "BKT", {}}});
    EXPECT_THROW(multiply_scratch_bytes(table, 300, 300), LimitExceededException);
    EXPECT_THROW(square_scratch_bytes(table, 257), LimitExceededException);
    // A long operand against a short one stays inside the table by pieces.
    EXPECT_NO_THROW(multiply_scratch_bytes(table, 100000, 200));
}

}  // namespace
}  // namespace qmp::test
