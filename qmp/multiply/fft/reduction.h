// The reduction record of a transform size: m * 2^k real points are n = m * 2^(k-1) complex
// points modulo T^n - i; a radix-m level (none for m = 1) and d - 1 radix-2 levels split that
// modulus into w = m * 2^(d-1) independent factors T^L - c_j of L = 2^(k-d) points each.
// Records are shared and immutable. A multiplier outside {1, 3, 5, 7} throws
// qmp::InvalidParametersException "Invalid multiplier." from "FFTv4::get_reduction()".
#pragma once

namespace qmp::fft {

struct Reduction {
    int multiplier;      // m
    int depth;           // d: subtracted from k to give the sub-transform exponent
    int sub_transforms;  // w = m * 2^(d-1)
    double scale;        // 1/m, the part of the inverse scale that is not a power of two
};

const Reduction& get_reduction(int m, int k);

}  // namespace qmp::fft
