// The portable kernels: plain C++ scalars, one double per "vector". The reference path that
// every machine can run; QMP_SIMD=portable selects it.
#include "qmp/multiply/fft/kernel_set.h"

#include <cstdint>

namespace qmp::fft {
namespace {

struct ScalarTraits {
    using V = double;
    static constexpr int W = 1;
    static V ld(const double* p) { return *p; }
    static void st(double* p, V v) { *p = v; }
    static V bc(double x) { return x; }
    static V add(V a, V b) { return a + b; }
    static V sub(V a, V b) { return a - b; }
    static V mul(V a, V b) { return a * b; }
    static V fmadd(V a, V b, V c) { return a * b + c; }
    static V fmsub(V a, V b, V c) { return a * b - c; }

    // Level of half h inside a block: pairs (l, l + h); the group twiddle sits in record slot
    // first_slot + l / (2h).
    static void level_forward(Block& x, const Block& rec, int h, int first_slot) {
        for (int l = 0; l < 8; ++l) {
            if (l & h) continue;
            const int s = first_slot + l / (2 * h);
            const double sr = rec.re[s], si = rec.im[s];
            const double yr = x.re[l + h] * sr - x.im[l + h] * si;
            const double yi = x.re[l + h] * si + x.im[l + h] * sr;
            const double ar = x.re[l], ai = x.im[l];
            x.re[l] = ar + yr;
            x.im[l] = ai + yi;
            x.re[l + h] = ar - yr;
            x.im[l + h] = ai - yi;
        }
    }
    static void level_inverse(Block& x, const Block& rec, int h, int first_slot) {
        for (int l = 0; l < 8; ++l) {
            if (l & h) continue;
            const int s = first_slot + l / (2 * h);
            const double sr = rec.re[s], si = rec.im[s];
            const double ar = x.re[l], ai = x.im[l], br = x.re[l + h], bi = x.im[l + h];
            const double dr = ar - br, di = ai - bi;
            x.re[l] = ar + br;
            x.im[l] = ai + bi;
            x.re[l + h] = dr * sr + di * si;
            x.im[l + h] = di * sr - dr * si;
        }
    }
    static void inblock_forward(Block& x, const Block& rec) {
        level_forward(x, rec, 4, 0);
        level_forward(x, rec, 2, 1);
        level_forward(x, rec, 1, 3);
    }
    static void inblock_inverse(Block& x, const Block& rec) {
        level_inverse(x, rec, 1, 3);
        level_inverse(x, rec, 2, 1);
        level_inverse(x, rec, 4, 0);
    }
};

#include "qmp/multiply/fft/kernel_templates.h"

}  // namespace

const KernelSet& portable_kernels() {
    static const KernelSet set = Kernels<ScalarTraits>::make("portable");
    return set;
}

}  // namespace qmp::fft
