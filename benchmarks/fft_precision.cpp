// Rounding margin of the FFTv4 product as built: for each power-of-two transform 2^r real points
// (r = 10 .. MAX_LOG2), the max distance of any output coefficient to its integer when a product
// and a square fill the transform at the limit table's bits per point b and at b + 1, for the
// "worst" operands (every digit 2^(b-1): 0x8000 8000... at b = 16; all-ones for unsigned digits)
// and random ones. A table entry holds its margin when every distance at b is <= 1/8; the b + 1
// column shows how close the next width comes to failing (1/2 is a wrong rounding).
//   [QMP_SIMD=portable|avx2|avx512] fft_precision MAX_LOG2 [default|balanced|unsigned] [MIN_LOG2]
// Output, one line per size: "log2=r b=B worst_mul=.. worst_sqr=.. random_mul=.. random_sqr=..
// | b+1: ..." and "ok" or "MARGIN" when a distance at b exceeds 1/8.
#include "qmp/multiply/fft/fftv4.h"

#include "qmp/cpu_features.h"
#include "qmp/exception.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Distances {
    double worst_mul, worst_sqr, random_mul, random_sqr;
    double max() const { return std::max(std::max(worst_mul, worst_sqr), std::max(random_mul, random_sqr)); }
};

Distances measure(const qmp::FFTv4& fft, uint64_t words, int bits) {
    using T = qmp::FFTv4::TestType;
    using I = qmp::FFTv4::InputType;
    auto one = [&](T type, I input) {
        const auto r = fft.Test_Multiply(type, input, words, bits);
        // A wrong product within the distance limit would be a fault, not a margin: report it
        // as a distance of 1 so that it cannot pass.
        return r.passed || r.max_distance > fft.config().max_distance_limit ? r.max_distance : 1.0;
    };
    return Distances{one(T::FusedMul, I::Worst), one(T::FusedSqr, I::Worst), one(T::FusedMul, I::Random),
                     one(T::FusedSqr, I::Random)};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: fft_precision MAX_LOG2 [default|balanced|unsigned] [MIN_LOG2]\n");
        return 2;
    }
    try {
        const int max_log2 = std::atoi(argv[1]);
        const qmp::FFTv4::Config config = qmp::FFTv4::load_config(argc > 2 ? argv[2] : "default");
        const qmp::FFTv4 fft(qmp::FFTv4::max_product_words_for(config), config);
        std::printf("mode=%s simd=%s\n", qmp::fft::digit_mode_name(config.mode),
                    qmp::simd_level_name(qmp::active_simd_level()));
        const int min_log2 = argc > 3 ? std::atoi(argv[3]) : qmp::fft::kLimitMinLog2Points;
        for (int r = min_log2; r <= max_log2; ++r) {
            const int bits = qmp::fft::bits_per_point(1, r, config.mode);
            if (bits == 0) break;
            // Operands of equal length whose product fills 2^r points at b + 1 bits (and so
            // nearly fills them at b): both widths run on the same transform.
            const uint64_t words = ((uint64_t(1) << r) - 2) * bits / 64 / 2;
            const Distances at = measure(fft, words, bits);
            const Distances up = measure(fft, words, bits + 1);
            std::printf("log2=%d b=%d worst_mul=%.4f worst_sqr=%.4f random_mul=%.4f random_sqr=%.4f | b+1: "
                        "worst_mul=%.4f worst_sqr=%.4f random_mul=%.4f random_sqr=%.4f %s\n",
                        r, bits, at.worst_mul, at.worst_sqr, at.random_mul, at.random_sqr, up.worst_mul,
                        up.worst_sqr, up.random_mul, up.random_sqr, at.max() <= 0.125 ? "ok" : "MARGIN");
            std::fflush(stdout);
        }
    } catch (const qmp::Exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
