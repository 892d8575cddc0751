// Every failure of the Newton functions with its exact text: plan limits, zero and negative
// arguments, degrees, perfect squares, short buffers, and each convergence check made to fire by
// corrupting the error words of one step through the fault injector. Plans made for a large p
// serve every smaller p with the scratch they report.
#include <gtest/gtest.h>

#include <random>

#include "qmp/functions/division.h"
#include "qmp/functions/inv_nth_root.h"
#include "qmp/functions/invsqrt.h"
#include "qmp/functions/reciprocal.h"
#include "tests/qmp/functions/functions_test_support.h"

namespace qmp::test {
namespace {

template <typename W>
class ChecksTest : public ::testing::Test {};
TYPED_TEST_SUITE(ChecksTest, WordTypes);

// ---- Fault injection: the kind of damage and the step it hits.
enum class Damage { Top, Over, Under, DivisionWindow };
Damage g_damage = Damage::Top;
uint64_t g_step_p = 0;

template <typename W>
void damage_words(NewtonErrorWords& site) {
    W* F = static_cast<W*>(site.words);
    const uint64_t k = site.n_words - 1;
    constexpr W half = W(W(1) << (sizeof(W) * 8 - 1));
    switch (g_damage) {
        case Damage::Top: F[k] = 7; break;
        case Damage::Over: F[k] = 1, F[k - 1] = half; break;   // z = 1.5...: |e| about 1/2
        case Damage::Under: F[k] = 0, F[k - 1] = half; break;  // z = 0.5...: e about 1/2
        case Damage::DivisionWindow: F[k] = 12345; break;
    }
}

void inject(NewtonErrorWords& site) {
    if (site.p != g_step_p) return;
    if (site.word_bits == 32)
        damage_words<uint32_t>(site);
    else
        damage_words<uint64_t>(site);
}

// Runs `run` with the damage at the step of precision step_p and expects `message`.
template <typename F>
void expect_fault(Damage damage, uint64_t step_p, F&& run, const std::string& function, const std::string& message) {
    g_damage = damage;
    g_step_p = step_p;
    InjectorScope scope(inject);
    expect_throw<AlgorithmFailedException>(run, function, message);
}

// p = 20 runs its inner step at p' = 11: the damaged error has exponent -2 against -11.
const std::string kOver = "Over-Estimate -> Convergence Failure:\n    Maximum Error = -11\n    Actual Error  = -2";
const std::string kUnder = "Under-Estimate -> Convergence Failure:\n    Maximum Error = -11\n    Actual Error  = -2";
const std::string kTop = "Convergence Failure:\n    top = 7";

TYPED_TEST(ChecksTest, EveryConvergenceCheckFires) {
    using W = TypeParam;
    const auto& table = default_table();
    std::mt19937_64 rng(test_seed());
    const TestFloat<W> x(rng, 25, -3);
    const uint64_t p = 20;
    Result<W> r(p);
    const Reciprocal_BigFloatR<W> recip(table, p);
    const InvsqrtFloat_BigFloatR<W> inv(table, p);
    const InvsqrtWord_BigFloatR<W> word(table, p);
    const InvNthRootFloat_BigFloatR_P<W> root(table, 5, p);
    GuardedScratch scratch(std::max({recip.scratch_bytes(), inv.scratch_bytes(), word.scratch_bytes(),
                                     root.scratch_bytes()}));
    const AlignedBufferC s = scratch.buffer;
    const std::vector<std::pair<std::string, std::function<void()>>> runs = {
        {"Reciprocal_BigFloatR::run()", [&] { recip.run(r.y, x.x, p, s); }},
        {"InvsqrtFloat_BigFloatR::run()", [&] { inv.run(r.y, x.x, p, s); }},
        {"InvsqrtWord_BigFloatR::run()", [&] { word.run(r.y, W(10005), p, s); }},
        {"InvNthRootFloat_BigFloatR_P::run_expanded()", [&] { root.run_expanded(r.y, x.x, p, s); }},
        {"InvNthRootFloat_BigFloatR_P::run_factored()", [&] { root.run_factored(r.y, x.x, p, s); }},
    };
    for (const auto& [function, run] : runs) {
        SCOPED_TRACE(function);
        expect_fault(Damage::Top, p, run, function, kTop);
        expect_fault(Damage::Over, p, run, function, kOver);
        expect_fault(Damage::Under, p, run, function, kUnder);
    }
    // The small forms test the same words: a step at p = 9 follows one at p' = 5.
    Result<W> e(9);
    expect_fault(Damage::Over, 9, [&] { Reciprocal_BigFloatR_E<W>::run(e.y, x.x, 9, s); },
                 "Reciprocal_BigFloatR_E::run()",
                 "Over-Estimate -> Convergence Failure:\n    Maximum Error = -5\n    Actual Error  = -2");
    expect_fault(Damage::Under, 9, [&] { InvsqrtFloat_BigFloatR_E<W>::run(e.y, x.x, 9, s); },
                 "InvsqrtFloat_BigFloatR_E::run()",
                 "Under-Estimate -> Convergence Failure:\n    Maximum Error = -5\n    Actual Error  = -2");
    // The 64-bit steps on products modulo B^N + 1 (from 200 words) test the same words.
    if constexpr (sizeof(W) == 8) {
        const uint64_t q = 2100;  // inner step at 1051
        const TestFloat<W> xl(rng, q + 5, 2);
        Result<W> big(q);
        const Reciprocal_BigFloatR<W> wrecip(table, q);
        const InvsqrtFloat_BigFloatR<W> winv(table, q);
        GuardedScratch wscratch(std::max(wrecip.scratch_bytes(), winv.scratch_bytes()));
        const std::string over = "Over-Estimate -> Convergence Failure:\n    Maximum Error = -1051\n    Actual Error  = -2";
        const std::string under = "Under-Estimate -> Convergence Failure:\n    Maximum Error = -1051\n    Actual Error  = -2";
        auto wr = [&] { wrecip.run(big.y, xl.x, q, wscratch.buffer); };
        auto wi = [&] { winv.run(big.y, xl.x, q, wscratch.buffer); };
        expect_fault(Damage::Top, q, wr, "Reciprocal_BigFloatR::run()", kTop);
        expect_fault(Damage::Over, q, wr, "Reciprocal_BigFloatR::run()", over);
        expect_fault(Damage::Under, q, wi, "InvsqrtFloat_BigFloatR::run()", under);
        const InvsqrtWord_BigFloatR<W> wword(table, q);
        GuardedScratch word_scratch(wword.scratch_bytes());
        expect_fault(Damage::Top, q, [&] { wword.run(big.y, W(10005), q, word_scratch.buffer); },
                     "InvsqrtWord_BigFloatR::run()", kTop);
    }
    // Undamaged runs pass with the injector installed (it only fires on its step).
    g_step_p = 1000;
    InjectorScope scope(inject);
    EXPECT_NO_THROW(recip.run(r.y, x.x, p, s));
}

TYPED_TEST(ChecksTest, FoldedStepsCheckTheirResidual) {
    using W = TypeParam;
    const auto& table = default_table();
    const uint64_t p = 40;  // h = 22: the reciprocal's last step is at 22 after 12
    const Division_BigFloatR<W> plan(table, p);
    GuardedScratch scratch(plan.scratch_bytes());
    Result<W> q(p);
    // 1/3: b q0 = 0.FFFF... lies just below a = 1, whose words below position 0 are all zero, so
    // the window's top word of a is 0 whatever h is; the damage sets that of b q0 to 12345.
    const TestFloat<W> a(std::vector<W>{W(1)}), b(std::vector<W>{W(3)});
    const std::string function = "Division_BigFloatR::run()";
    expect_fault(Damage::DivisionWindow, p, [&] { plan.run(q.y, a.x, b.x, p, scratch.buffer); }, function,
                 "Convergence Failure:\n    topA = 0\n    topB = 12345");
    expect_fault(Damage::Over, 22, [&] { plan.run(q.y, a.x, b.x, p, scratch.buffer); }, function,
                 "Over-Estimate -> Convergence Failure:\n    Maximum Error = -12\n    Actual Error  = -2");
    expect_fault(Damage::Top, 5, [&] { plan.run(q.y, a.x, b.x, 5, scratch.buffer); }, function, kTop);
    // From 200 words (64-bit) b q0 is taken modulo B^N + 1 with a's top words added back.
    const Division_BigFloatR<W> large(table, 2100);
    GuardedScratch large_scratch(large.scratch_bytes());
    Result<W> big(2100);
    expect_fault(Damage::DivisionWindow, 2100, [&] { large.run(big.y, a.x, b.x, 2100, large_scratch.buffer); },
                 function, "Convergence Failure:\n    topA = 0\n    topB = 12345");
    // The square root folds its last step the same way: sqrt(4) = 2 exactly, so s0^2 = 4 and the
    // window of x = 4 below position 0 is zero.
    const SqrtFloat_BigFloatR<W> sqrt(table, p);
    GuardedScratch sqrt_scratch(sqrt.scratch_bytes());
    const TestFloat<W> four(std::vector<W>{W(4)});
    expect_fault(Damage::DivisionWindow, p, [&] { sqrt.run(q.y, four.x, p, sqrt_scratch.buffer); },
                 "SqrtFloat_BigFloatR::run()", "Convergence Failure:\n    topA = 0\n    topB = 12345");
}

TYPED_TEST(ChecksTest, ArgumentAndPlanFailures) {
    using W = TypeParam;
    const auto& table = default_table();
    const uint64_t p = 30;
    Result<W> r(p + 1);
    const TestFloat<W> x(std::vector<W>{W(5), W(9)}), neg(std::vector<W>{W(5)}, 0, false);
    BigFloat<W> zero;
    const Reciprocal_BigFloatR<W> recip(table, p, 2);
    const Division_BigFloatR<W> div(table, p, 2);
    const InvsqrtFloat_BigFloatR<W> inv(table, p, 2);
    const InvsqrtWord_BigFloatR<W> word(table, p, 2);
    const SqrtFloat_BigFloatR<W> sqrt(table, p, 2);
    const InvNthRootFloat_BigFloatR_P<W> root(table, 4, p, 2);
    GuardedScratch scratch(std::max({recip.scratch_bytes(), div.scratch_bytes(), inv.scratch_bytes(),
                                     word.scratch_bytes(), sqrt.scratch_bytes(), root.scratch_bytes()}));
    const AlignedBufferC s = scratch.buffer;
    using IPE = InvalidParametersException;
    using AE = ArithmeticException;
    const std::string rc = "Reciprocal_BigFloatR::run()", dv = "Division_BigFloatR::run()";
    expect_throw<IPE>([&] { recip.run(r.y, x.x, p + 1, s); }, rc, "p is larger than plan.");
    expect_throw<IPE>([&] { recip.run(r.y, x.x, p, s, nullptr, 3); }, rc, "tds is larger than plan.");
    expect_throw<IPE>([&] { div.run(r.y, x.x, x.x, p + 1, s); }, dv, "p is larger than plan.");
    expect_throw<IPE>([&] { div.run(r.y, x.x, x.x, p, s, nullptr, 3); }, dv, "Mismatching tds.");
    expect_throw<IPE>([&] { inv.run(r.y, x.x, p, s, nullptr, 3); }, "InvsqrtFloat_BigFloatR::run()",
                      "tds is larger than plan.");
    expect_throw<IPE>([&] { Reciprocal_BigFloatR_E<W>::run(r.y, x.x, 10, s); }, "Reciprocal_BigFloatR_E::run()",
                      "p is larger than plan.");

    expect_throw<AE>([&] { recip.run(r.y, zero, p, s); }, rc, "Divide by zero.");
    expect_throw<AE>([&] { div.run(r.y, x.x, zero, p, s); }, dv, "Divide by zero.");
    expect_throw<AE>([&] { inv.run(r.y, zero, p, s); }, "InvsqrtFloat_BigFloatR::run()", "Divide by zero.");
    expect_throw<AE>([&] { word.run(r.y, W(0), p, s); }, "InvsqrtWord_BigFloatR::run()", "Divide by zero.");
    expect_throw<AE>([&] { root.run_factored(r.y, zero, p, s); }, "InvNthRootFloat_BigFloatR_P::run_factored()",
                     "Divide by zero.");
    expect_throw<IPE>([&] { inv.run(r.y, neg.x, p, s); }, "InvsqrtFloat_BigFloatR::run()",
                      "Square root of negative number.");
    expect_throw<IPE>([&] { sqrt.run(r.y, neg.x, p, s); }, "SqrtFloat_BigFloatR::run()",
                      "Square root of negative number.");
    expect_throw<IPE>([&] { root.run_expanded(r.y, neg.x, p, s); }, "InvNthRootFloat_BigFloatR_P::run_expanded()",
                      "Nth root of negative number.");
    expect_throw<IPE>([&] { InvNthRootFloat_BigFloatR_P<W>(table, 1, p); },
                      "InvNthRootFloat_BigFloatR_P::InvNthRootFloat_BigFloatR_P()", "Degree must be greater than 1.");
    expect_throw<IPE>([&] { InvNthRootFloat_BigFloatR_E<W>::run(r.y, x.x, 0, 5, s); },
                      "InvNthRootFloat_BigFloatR_E::run()", "Degree must be greater than 1.");

    // A result buffer short of p + 3 words.
    BigFloat<W> short_y(r.buffer.data(), p + 2);
    expect_throw<BufferTooSmallException>([&] { recip.run(short_y, x.x, p, s); }, rc,
                                          "Buffer is too small:\n    Buffer Size: " + std::to_string(p + 2) +
                                              "\n    Required Size: " + std::to_string(p + 3));
}

TEST(ChecksTest, PerfectSquares) {
    const char* f = "FormulaS_Invsqrt::run()";
    expect_throw<InvalidParametersException>([&] { check_invsqrt_word_argument(10000, f); }, f,
                                             "Argument is a perfect square: 10000");
    const uint64_t big = 0xFFFFFFFFull * 0xFFFFFFFFull;
    expect_throw<InvalidParametersException>([&] { check_invsqrt_word_argument(big, f); }, f,
                                             "Argument is a perfect square: " + std::to_string(big));
    expect_throw<ArithmeticException>([&] { check_invsqrt_word_argument(0, f); }, f, "Divide by zero.");
    for (uint64_t n : {uint64_t(2), uint64_t(8), uint64_t(10005), big + 1, ~uint64_t(0)})
        EXPECT_NO_THROW(check_invsqrt_word_argument(n, f));
}

// A plan made for 3000 words runs every smaller precision in the scratch it reports (the run
// checks its exact need), across the change to the wrapped steps at 200 words.
TYPED_TEST(ChecksTest, LargePlanServesSmallerPrecisions) {
    using W = TypeParam;
    const auto& table = default_table();
    std::mt19937_64 rng(test_seed() + 9);
    const uint64_t max_p = 3000;
    const Reciprocal_BigFloatR<W> recip(table, max_p);
    const Division_BigFloatR<W> div(table, max_p);
    const InvNthRootFloat_BigFloatR_P<W> root(table, 6, max_p);
    const TestFloat<W> x(rng, max_p + 10, 0);
    for (uint64_t p : {uint64_t(1), uint64_t(40), uint64_t(199), uint64_t(200), uint64_t(2000), max_p}) {
        Result<W> r(p);
        GuardedScratch s1(recip.scratch_bytes()), s2(div.scratch_bytes()), s3(root.scratch_bytes());
        EXPECT_NO_THROW(recip.run(r.y, x.x, p, s1.buffer));
        EXPECT_NO_THROW(div.run(r.y, x.x, x.x, p, s2.buffer));
        EXPECT_NO_THROW(root.run_expanded(r.y, x.x, p, s3.buffer));
        EXPECT_NO_THROW(root.run_factored(r.y, x.x, p, s3.buffer));
    }
}

}  // namespace
}  // namespace qmp::test
