// Helpers of the transform tests: reproducible random digits, a naive negacyclic product (the
// oracle), packing digits into blocks and running a whole product through a transform.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qmp/multiply/fft/split.h"
#include "qmp/multiply/fft/transform.h"
#include "qmp/parallel/parallelizer.h"
#include "tests/test_support.h"

namespace qmp::fft::test {

using qmp::test::seed_note;
using qmp::test::test_seed;


// Words whose b-bit digit fields equal the default dither thresholds (the top partial field
// keeps the bits that fit): under the default digits every digit is a large value of one sign,
// the input that defeats a product's first attempt.
inline std::vector<uint64_t> dither_aligned_words(uint64_t words, int bits) {
    std::vector<uint64_t> a(words, 0);
    for (uint64_t t = 0; t * bits < words * 64; ++t) {
        const uint64_t field = dither_threshold(kDitherSeed, t, bits), bit = t * bits;
        a[bit / 64] |= field << (bit % 64);
        if (bit % 64 + bits > 64 && bit / 64 + 1 < words) a[bit / 64 + 1] |= field >> (64 - bit % 64);
    }
    if (a[words - 1] == 0) a[words - 1] = 1;
    return a;
}

using Digits = std::vector<int64_t>;

// Uniform digits in [-2^(bits-1), 2^(bits-1)) on the first `used` of `count` positions.
inline Digits random_digits(std::mt19937_64& rng, uint64_t count, uint64_t used, int bits) {
    Digits x(count, 0);
    const int64_t half = int64_t(1) << (bits - 1);
    for (uint64_t i = 0; i < used; ++i) x[i] = int64_t(rng() % uint64_t(2 * half)) - half;
    return x;
}
// Digits of magnitude 2^(bits-1) with random signs: what dithering makes of a structured integer
// (e.g. 0x8000 8000 ...), the worst measured input class.
inline Digits random_sign_digits(std::mt19937_64& rng, uint64_t count, uint64_t used, int bits) {
    Digits x(count, 0);
    const int64_t half = int64_t(1) << (bits - 1);
    for (uint64_t i = 0; i < used; ++i) x[i] = (rng() & 1) ? half : -half;
    return x;
}

// Coefficient t of x*y mod (T^N + 1), N = x.size().
inline __int128 negacyclic_at(const Digits& x, const Digits& y, uint64_t t) {
    const uint64_t n = x.size();
    __int128 s = 0;
    for (uint64_t i = 0; i <= t; ++i) s += __int128(x[i]) * y[t - i];
    for (uint64_t i = t + 1; i < n; ++i) s -= __int128(x[i]) * y[n + t - i];
    return s;
}
inline Digits negacyclic_naive(const Digits& x, const Digits& y) {
    const uint64_t n = x.size();
    Digits c(n, 0);
    for (uint64_t i = 0; i < n; ++i) {
        if (x[i] == 0) continue;
        for (uint64_t j = 0; j < n; ++j) {
            const uint64_t t = i + j;
            if (t < n) c[t] += x[i] * y[j];
            else c[t - n] -= x[i] * y[j];
        }
    }
    return c;
}

// z_t = x_t + i*x_{t+n} in natural block order.
inline std::vector<Block> pack(const Digits& x) {
    const uint64_t n = x.size() / 2;
    std::vector<Block> b(n / 8);
    for (uint64_t t = 0; t < n; ++t) {
        b[t / 8].re[t % 8] = double(x[t]);
        b[t / 8].im[t % 8] = double(x[t + n]);
    }
    return b;
}

struct ProductResult {
    std::vector<double> coef;  // c_0 .. c_{2n-1} as computed (unrounded)
    double max_distance = 0;   // max |c - rint(c)|, NaN-proof (NaN gives infinity)
    bool guard_intact = true;  // blocks after the output untouched
};

// x*y (or x^2 when y is null) through `t`: garbage-filled work buffers, guard blocks after the
// output, optional aliasing of the output with the first input's block buffer.
inline ProductResult transform_product(const Transform& t, const Digits& x, const Digits* y,
                                       Parallelizer* p = nullptr, uint64_t tds = 1,
                                       bool output_aliases_input = false) {
    const uint64_t n = t.complex_points();
    const uint64_t work_blocks = t.work_bytes() / sizeof(Block);
    std::vector<Block> wa(work_blocks), wb(work_blocks);
    for (auto* w : {&wa, &wb})
        for (Block& b : *w)
            for (int l = 0; l < 8; ++l) b.re[l] = b.im[l] = std::nan("");
    std::vector<Block> in_x = pack(x);
    t.forward(in_x.data(), wa.data(), nullptr, p, tds);
    if (y != nullptr) {
        const std::vector<Block> in_y = pack(*y);
        t.forward(in_y.data(), wb.data(), nullptr, p, tds);
        t.pointwise_multiply(wa.data(), wb.data(), p, tds);
    } else {
        t.pointwise_square(wa.data(), p, tds);
    }
    constexpr uint64_t kGuard = 2;
    std::vector<Block> out(n / 8 + kGuard);
    for (Block& b : out)
        for (int l = 0; l < 8; ++l) b.re[l] = b.im[l] = 12345.0;
    Block* dst = output_aliases_input ? in_x.data() : out.data();
    t.inverse(wa.data(), dst, nullptr, p, tds);
    ProductResult r;
    r.coef.resize(2 * n);
    for (uint64_t i = 0; i < n; ++i) {
        r.coef[i] = dst[i / 8].re[i % 8];
        r.coef[i + n] = dst[i / 8].im[i % 8];
    }
    for (double c : r.coef) {
        const double d = std::fabs(c - std::rint(c));
        if (!(d <= r.max_distance)) r.max_distance = std::isnan(d) ? INFINITY : d;
    }
    for (uint64_t g = n / 8; g < n / 8 + kGuard; ++g)
        for (int l = 0; l < 8; ++l)
            if (out[g].re[l] != 12345.0 || out[g].im[l] != 12345.0) r.guard_intact = false;
    return r;
}

}  // namespace qmp::fft::test
