// Instruction-set level of this processor, for choosing kernels at run time. The binary's
// baseline is x86-64-v3 (AVX2, FMA, BMI2); kernels compiled with their own target attributes
// for AVX-512 run only when CPUID (and the OS's register saving) allow. The environment
// variable QMP_SIMD forces a lower path ("portable", "avx2" or "avx512"), so that tests can
// exercise every path this machine can run; asking for a higher path than the machine has
// gives the machine's own.
#pragma once

#include <string>

namespace qmp {

enum class SimdLevel : int {
    Portable = 0,  // plain C++, no vector intrinsics
    AVX2 = 1,      // AVX2 + FMA (x86-64-v3)
    AVX512 = 2,    // AVX-512 F/DQ/BW/VL
};

// The best level this processor and operating system support.
SimdLevel detected_simd_level();
// The level kernels should use: the detected one, lowered by QMP_SIMD when set. Read once.
SimdLevel active_simd_level();
// Overrides the active level for the rest of the process (tests); clamped to the detected one.
void force_simd_level(SimdLevel level);
const char* simd_level_name(SimdLevel level);

// AVX-512 IFMA (52-bit integer multiply-add) on top of the AVX512 level: true only when the
// detected level is AVX512 and CPUID reports IFMA. Kernels using it also need the active
// level to be AVX512, so QMP_SIMD=avx2 turns them off.
bool has_avx512_ifma();

struct CpuIdentity {
    std::string vendor;  // CPUID leaf 0, e.g. "AuthenticAMD"
    std::string brand;   // CPUID leaves 0x80000002..4, trimmed
};
CpuIdentity cpu_identity();

}  // namespace qmp
