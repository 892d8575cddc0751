// FFTv4::Test_Multiply(): the built-in self-test of the five operation forms, for the stress
// tester and the test suite. Operands are random or the precision worst case (every balanced
// digit 2^(b-1), i.e. 0x8000 8000... at b = 16; all-ones words for unsigned digits); the
// product is checked against the basecase up to kBasecaseWords words and by residues modulo
// 2^61 - 1 always. chain_sqr squares repeatedly, each time the top half of the last square.
#include "qmp/multiply/fft/fftv4.h"
#include "qmp/multiply/fft/split.h"

#include "qmp/exception.h"
#include "qmp/multiply/basecase.h"
#include "qmp/words/mod_m61.h"

#include <algorithm>
#include <vector>

namespace qmp {
namespace {

constexpr uint64_t kBasecaseWords = 2048;
constexpr int kChainSteps = 4;

uint64_t splitmix(uint64_t& state) {
    uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
}

// Words whose b-bit fields are all 2^(b-1): the constant-digit integer.
void fill_worst(std::vector<uint64_t>& a, int bits, fft::DigitMode mode) {
    if (mode == fft::DigitMode::Unsigned) {
        std::fill(a.begin(), a.end(), ~uint64_t(0));
        return;
    }
    std::fill(a.begin(), a.end(), 0);
    const uint64_t total_bits = a.size() * 64;
    for (uint64_t bit = bits - 1; bit < total_bits; bit += bits) a[bit / 64] |= uint64_t(1) << (bit % 64);
}

const char* type_name(FFTv4::TestType type) {
    switch (type) {
        case FFTv4::TestType::SeparateMul: return "separate_mul";
        case FFTv4::TestType::SeparateSqr: return "separate_sqr";
        case FFTv4::TestType::FusedMul: return "fused_mul";
        case FFTv4::TestType::FusedSqr: return "fused_sqr";
        case FFTv4::TestType::ChainSqr: return "chain_sqr";
    }
    return "";
}

// True when C equals A * B (A == B for squares): basecase when small, residue always.
bool product_ok(const std::vector<uint64_t>& C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL) {
    if (mul_m61(mod_m61(A, AL), mod_m61(B, BL)) != mod_m61(C.data(), C.size())) return false;
    if (AL <= kBasecaseWords && BL <= kBasecaseWords) {
        std::vector<uint64_t> reference(AL + BL);
        if (AL >= BL) {
            mul_basecase(reference.data(), A, AL, B, BL);
        } else {
            mul_basecase(reference.data(), B, BL, A, AL);
        }
        if (reference != C) return false;
    }
    return true;
}

}  // namespace

FFTv4::TestType FFTv4::parse_test_type(const std::string& name) {
    for (TestType t : {TestType::SeparateMul, TestType::SeparateSqr, TestType::FusedMul, TestType::FusedSqr,
                       TestType::ChainSqr}) {
        if (name == type_name(t)) return t;
    }
    throw InvalidParametersException("FFTv4::parse_test_type()", "Invalid TestType");
}

FFTv4::InputType FFTv4::parse_input_type(const std::string& name) {
    if (name == "random") return InputType::Random;
    if (name == "worst") return InputType::Worst;
    throw InvalidParametersException("FFTv4::parse_input_type()", "Invalid InputType");
}

FFTv4::TestResult FFTv4::Test_Multiply(TestType type, InputType input, uint64_t words, int bits, uint64_t seed,
                                       Parallelizer* parallelizer, uint64_t tds) const {
    static const char* kFunction = "FFTv4::Test_Multiply()";
    if (type_name(type)[0] == '\0') throw InvalidParametersException(kFunction, "Invalid TestType");
    if (input != InputType::Random && input != InputType::Worst)
        throw InvalidParametersException(kFunction, "Invalid InputType");
    if (words == 0) throw InvalidParametersException(kFunction, "Operands cannot be empty.");

    const uint64_t product_words = 2 * words;
    const fft::TransformSize size = bits > 0 ? plan_forced(product_words, bits) : plan(product_words);
    if (size.bits == 0)
        throw LimitExceededException(kFunction, "Product of " + std::to_string(product_words) +
                                                    " words is beyond this transform.");
    TestResult result;
    result.label = std::string(name()) + "::" + type_name(type) + "(bits=" + std::to_string(size.bits) +
                   ", balanced=" + (config_.mode == fft::DigitMode::Unsigned ? "0" : "1") +
                   ", words=" + std::to_string(words) + ")";

    std::vector<uint64_t> A(words), B(words);
    if (input == InputType::Worst) {
        fill_worst(A, size.bits, config_.mode);
        B = A;
    } else {
        uint64_t state = seed;
        for (auto& w : A) w = splitmix(state);
        for (auto& w : B) w = splitmix(state);
    }

    const MultiplyContext context{nullptr, parallelizer, tds};
    const Layout l = layout(size, false);
    std::vector<uint64_t> scratch(l.total_bytes / 8 + 1);
    std::vector<uint64_t> TA((l.work_bytes + 256) / 8), TB((l.work_bytes + 256) / 8);
    std::vector<uint64_t> C(product_words, 0xdeadbeefdeadbeefull);
    const uint64_t scratch_bytes = scratch.size() * 8, t_bytes = TA.size() * 8;
    const bool is_square = type == TestType::SeparateSqr || type == TestType::FusedSqr || type == TestType::ChainSqr;
    const uint64_t* second = is_square ? A.data() : B.data();

    auto fused = [&](const uint64_t* a, const uint64_t* b) {
        const double distance = run_product(size, C.data(), a, words, b == a ? nullptr : b, words,
                                            scratch.data(), context, fft::kDitherSeed);
        if (!(distance <= config_.max_distance_limit)) return distance;
        fixup_bottom(C.data(), product_words, a[0] * b[0]);
        return distance;
    };

    bool passed = true;
    switch (type) {
        case TestType::SeparateMul:
            forward_sized(kFunction, TA.data(), t_bytes, A.data(), words, size, scratch.data(), scratch_bytes, context);
            forward_sized(kFunction, TB.data(), t_bytes, B.data(), words, size, scratch.data(), scratch_bytes, context);
            result.max_distance = multiply_transformed(C.data(), TA.data(), TB.data(), scratch.data(), scratch_bytes, context);
            break;
        case TestType::SeparateSqr:
            forward_sized(kFunction, TA.data(), t_bytes, A.data(), words, size, scratch.data(), scratch_bytes, context);
            result.max_distance = square_transformed(C.data(), TA.data(), scratch.data(), scratch_bytes, context);
            break;
        case TestType::FusedMul:
        case TestType::FusedSqr:
            result.max_distance = fused(A.data(), second);
            break;
        case TestType::ChainSqr: {
            std::vector<uint64_t> x = A;
            for (int step = 0; step < kChainSteps && passed; ++step) {
                result.max_distance = std::max(result.max_distance, fused(x.data(), x.data()));
                passed = result.max_distance <= config_.max_distance_limit &&
                         product_ok(C, x.data(), words, x.data(), words);
                // The top half of a square is as random as its operands get.
                std::copy(C.begin() + words, C.end(), x.begin());
                if (x[0] == 0) x[0] = 1;
            }
            result.passed = passed;
            return result;
        }
    }
    result.passed = result.max_distance <= config_.max_distance_limit &&
                    product_ok(C, A.data(), words, second, words);
    return result;
}

}  // namespace qmp
