#include "qmp/cpu_features.h"

#include <cpuid.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace qmp {
namespace {

uint64_t xgetbv0() {
    uint32_t lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (uint64_t(hi) << 32) | lo;
}

SimdLevel detect() {
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return SimdLevel::Portable;
    const bool osxsave = (c >> 27) & 1, avx = (c >> 28) & 1, fma = (c >> 12) & 1;
    if (!osxsave || !avx || !fma) return SimdLevel::Portable;
    const uint64_t xcr0 = xgetbv0();
    if ((xcr0 & 0x6) != 0x6) return SimdLevel::Portable;  // XMM and YMM state saved
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return SimdLevel::Portable;
    const bool avx2 = (b >> 5) & 1, bmi2 = (b >> 8) & 1;
    if (!avx2 || !bmi2) return SimdLevel::Portable;
    const bool avx512f = (b >> 16) & 1, avx512dq = (b >> 17) & 1, avx512bw = (b >> 30) & 1,
               avx512vl = (b >> 31) & 1;
    const bool zmm_state = (xcr0 & 0xE6) == 0xE6;  // opmask, ZMM_Hi256, Hi16_ZMM
    if (avx512f && avx512dq && avx512bw && avx512vl && zmm_state) return SimdLevel::AVX512;
    return SimdLevel::AVX2;
}

SimdLevel from_environment(SimdLevel detected) {
    const char* v = std::getenv("QMP_SIMD");
    if (v == nullptr || v[0] == '\0') return detected;
    SimdLevel wanted = detected;
    if (std::strcmp(v, "portable") == 0) wanted = SimdLevel::Portable;
    else if (std::strcmp(v, "avx2") == 0) wanted = SimdLevel::AVX2;
    else if (std::strcmp(v, "avx512") == 0) wanted = SimdLevel::AVX512;
    return static_cast<int>(wanted) < static_cast<int>(detected) ? wanted : detected;
}

std::atomic<int> active_level{-1};

bool detect_ifma() {
    unsigned a, b, c, d;
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
    return (b >> 21) & 1;
}

}  // namespace

SimdLevel detected_simd_level() {
    static const SimdLevel level = detect();
    return level;
}

bool has_avx512_ifma() {
    static const bool ifma = detected_simd_level() == SimdLevel::AVX512 && detect_ifma();
    return ifma;
}

SimdLevel active_simd_level() {
    int v = active_level.load(std::memory_order_relaxed);
    if (v < 0) {
        v = static_cast<int>(from_environment(detected_simd_level()));
        active_level.store(v, std::memory_order_relaxed);
    }
    return static_cast<SimdLevel>(v);
}

void force_simd_level(SimdLevel level) {
    const SimdLevel detected = detected_simd_level();
    if (static_cast<int>(level) > static_cast<int>(detected)) level = detected;
    active_level.store(static_cast<int>(level), std::memory_order_relaxed);
}

const char* simd_level_name(SimdLevel level) {
    switch (level) {
        case SimdLevel::Portable: return "portable";
        case SimdLevel::AVX2: return "avx2";
        case SimdLevel::AVX512: return "avx512";
    }
    return "portable";
}

CpuIdentity cpu_identity() {
    CpuIdentity id;
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(0, &a, &b, &c, &d)) {
        char vendor[13];
        std::memcpy(vendor + 0, &b, 4);
        std::memcpy(vendor + 4, &d, 4);
        std::memcpy(vendor + 8, &c, 4);
        vendor[12] = '\0';
        id.vendor = vendor;
    }
    unsigned max_ext = __get_cpuid_max(0x80000000u, nullptr);
    if (max_ext >= 0x80000004u) {
        char brand[49] = {};
        for (unsigned i = 0; i < 3; ++i) {
            __get_cpuid(0x80000002u + i, &a, &b, &c, &d);
            std::memcpy(brand + 16 * i + 0, &a, 4);
            std::memcpy(brand + 16 * i + 4, &b, 4);
            std::memcpy(brand + 16 * i + 8, &c, 4);
            std::memcpy(brand + 16 * i + 12, &d, 4);
        }
        std::string s(brand);
        const auto first = s.find_first_not_of(' ');
        const auto last = s.find_last_not_of(' ');
        id.brand = first == std::string::npos ? std::string() : s.substr(first, last - first + 1);
    }
    return id;
}

}  // namespace qmp
