// Chooses the kernel set by the active instruction-set level at each call, so that QMP_SIMD and
// force_simd_level() (tests) take effect immediately. The AVX-512 set is touched only when the
// level says AVX-512 (it is compiled for AVX-512 and must not run elsewhere).
#include "qmp/multiply/fft/kernel_set.h"

#include "qmp/cpu_features.h"

namespace qmp::fft {

const KernelSet& active_kernels() {
    switch (active_simd_level()) {
        case SimdLevel::AVX512: return avx512_kernels();
        case SimdLevel::AVX2: return avx2_kernels();
        case SimdLevel::Portable: break;
    }
    return portable_kernels();
}

}  // namespace qmp::fft
