// Schoolbook product and square against the 32-bit oracle, once per row kernel (ADX and plain
// C++): every shape up to 24 x 24 words and a few long rows, on random, run-structured and
// all-ones operands, with guarded outputs.
#include "qmp/multiply/basecase.h"

#include "tests/qmp/multiply/multiply_test_support.h"

namespace qmp::test {
namespace {

// Runs `body` once per row kernel this machine has.
template <typename F>
void for_each_kernel(F&& body) {
    const bool saved = basecase_adx_enabled();
    for (bool adx : {true, false}) {
        set_basecase_adx(adx);
        if (basecase_adx_enabled() != adx) continue;  // no ADX on this processor
        SCOPED_TRACE(adx ? "kernel=adx" : "kernel=portable");
        body();
    }
    set_basecase_adx(saved);
}

TEST(Basecase, ProductsOfEveryShapeMatchOracle) {
    SCOPED_TRACE(seed_note());
    for_each_kernel([] {
        Rng rng(test_seed());
        std::vector<std::pair<uint64_t, uint64_t>> shapes;
        for (uint64_t al = 1; al <= 24; ++al)
            for (uint64_t bl = 1; bl <= al; ++bl) shapes.push_back({al, bl});
        shapes.push_back({300, 1});
        shapes.push_back({301, 2});
        shapes.push_back({257, 255});
        for (auto [al, bl] : shapes) {
            for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
                SCOPED_TRACE("AL=" + std::to_string(al) + " BL=" + std::to_string(bl) +
                             " pattern=" + std::to_string(int(pattern)));
                auto A = make_operand(rng, al, pattern), B = make_operand(rng, bl, pattern);
                Guarded C(al + bl);
                mul_basecase(C.data(), A.data(), al, B.data(), bl);
                ASSERT_TRUE(C.guards_intact());
                ASSERT_EQ(C.contents(), oracle_mul(A, B));
            }
        }
    });
}

TEST(Basecase, SquaresMatchOracle) {
    SCOPED_TRACE(seed_note());
    for_each_kernel([] {
        Rng rng(test_seed() + 1);
        for (uint64_t n = 1; n <= 80; n += (n < 24 ? 1 : 7)) {
            for (Pattern pattern : {Pattern::Random, Pattern::Runs, Pattern::AllOnes}) {
                SCOPED_TRACE("AL=" + std::to_string(n) + " pattern=" + std::to_string(int(pattern)));
                auto A = make_operand(rng, n, pattern);
                Guarded C(2 * n);
                sqr_basecase(C.data(), A.data(), n);
                ASSERT_TRUE(C.guards_intact());
                ASSERT_EQ(C.contents(), oracle_mul(A, A));
            }
        }
    });
}

}  // namespace
}  // namespace qmp::test
