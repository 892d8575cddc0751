// The reduction table. For m = 1 the depth is irregular on purpose: k = 9 already takes the deep
// reduction (4 sub-transforms of 2^6) while k = 10 and 11 take the middle one (2 sub-transforms),
// which keeps every sub-transform at or above the minimum length of 2^6 points.
#include "qmp/multiply/fft/reduction.h"

#include "qmp/exception.h"

namespace qmp::fft {
namespace {

constexpr Reduction kShallow1{1, 1, 1, 1.0};
constexpr Reduction kMiddle1{1, 2, 2, 1.0};
constexpr Reduction kDeep1{1, 3, 4, 1.0};
constexpr Reduction kRadix3{3, 1, 3, 1.0 / 3.0};
constexpr Reduction kRadix5{5, 1, 5, 1.0 / 5.0};
constexpr Reduction kRadix7{7, 1, 7, 1.0 / 7.0};

}  // namespace

const Reduction& get_reduction(int m, int k) {
    switch (m) {
        case 1:
            if (k < 8) return kShallow1;
            if (k == 8 || k == 10 || k == 11) return kMiddle1;
            return kDeep1;
        case 3: return kRadix3;
        case 5: return kRadix5;
        case 7: return kRadix7;
    }
    throw InvalidParametersException("FFTv4::get_reduction()", "Invalid multiplier.");
}

}  // namespace qmp::fft
