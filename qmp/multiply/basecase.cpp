// Schoolbook multiplication and squaring. Two row kernels exist:
//   - with ADX (checked once through CPUID): a row r[0, n) += a[0, n) * b in inline assembly
//     with two independent carry chains, ADCX for the low halves and ADOX for the high halves,
//     four words per iteration, as the compiler cannot keep two flag chains alive itself;
//   - without it: two words of B per pass over A in C++ (a 2-row "addmul_2"), which halves the
//     loads and stores of the partial product compared with one row at a time.
// Carry bound used throughout: a*b + c + d < 2^128 for 64-bit a, b, c, d, so a 128-bit
// accumulator never overflows when one product and two words are added.
#include "qmp/multiply/basecase.h"

#include <cpuid.h>

#include <atomic>

#include "qmp/cpu_features.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

using u128 = unsigned __int128;

// r[0, n + 2) = a[0, n) * (b0 + b1 * 2^64). Writes n + 2 words.
inline void mul_2(uint64_t* r, const uint64_t* a, uint64_t n, uint64_t b0, uint64_t b1) {
    uint64_t c_lo = 0, c_hi = 0;  // carries into columns i and i + 1
    for (uint64_t i = 0; i < n; ++i) {
        const uint64_t ai = a[i];
        const u128 s = (u128)ai * b0 + c_lo;
        const u128 t = (u128)ai * b1 + (uint64_t)(s >> 64) + c_hi;
        r[i] = (uint64_t)s;
        c_lo = (uint64_t)t;
        c_hi = (uint64_t)(t >> 64);
    }
    r[n] = c_lo;
    r[n + 1] = c_hi;
}

// r[0, n) += a[0, n) * (b0 + b1 * 2^64); the two words above r[0, n) are written, not added.
inline void addmul_2(uint64_t* r, const uint64_t* a, uint64_t n, uint64_t b0, uint64_t b1) {
    uint64_t c_lo = 0, c_hi = 0;
    uint64_t i = 0;
    for (; i + 2 <= n; i += 2) {
        const uint64_t a0 = a[i], a1 = a[i + 1];
        const u128 s0 = (u128)a0 * b0 + r[i] + c_lo;
        const u128 t0 = (u128)a0 * b1 + (uint64_t)(s0 >> 64) + c_hi;
        r[i] = (uint64_t)s0;
        const u128 s1 = (u128)a1 * b0 + r[i + 1] + (uint64_t)t0;
        const u128 t1 = (u128)a1 * b1 + (uint64_t)(s1 >> 64) + (uint64_t)(t0 >> 64);
        r[i + 1] = (uint64_t)s1;
        c_lo = (uint64_t)t1;
        c_hi = (uint64_t)(t1 >> 64);
    }
    if (i < n) {
        const uint64_t ai = a[i];
        const u128 s = (u128)ai * b0 + r[i] + c_lo;
        const u128 t = (u128)ai * b1 + (uint64_t)(s >> 64) + c_hi;
        r[i] = (uint64_t)s;
        c_lo = (uint64_t)t;
        c_hi = (uint64_t)(t >> 64);
    }
    r[n] = c_lo;
    r[n + 1] = c_hi;
}

bool detect_adx() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) return false;
    return (ebx >> 19) & 1;
}

// -1 until first use; QMP_SIMD=portable also selects the plain C++ rows, so that one machine
// can run both kernels. Decided lazily because the SIMD level is read from the environment.
std::atomic<int> adx_mode{-1};

bool use_adx() {
    int mode = adx_mode.load(std::memory_order_relaxed);
    if (mode < 0) {
        mode = detect_adx() && active_simd_level() != SimdLevel::Portable;
        adx_mode.store(mode, std::memory_order_relaxed);
    }
    return mode != 0;
}

// r[0, n) += a[0, n) * b; returns the carry word. The first n - n % 4 words run in the ADX
// loop, the rest in C++. Loop control uses LEA and JRCXZ, which leave both flag chains intact.
__attribute__((target("adx"))) uint64_t addmul_1_adx(uint64_t* r, const uint64_t* a, uint64_t n,
                                                     uint64_t b) {
    uint64_t carry = 0;
    const uint64_t n4 = n & ~uint64_t(3);
    if (n4 != 0) {
        int64_t index = -int64_t(n4);
        const uint64_t* a_end = a + n4;
        uint64_t* r_end = r + n4;
        uint64_t zero, lo, hi;
        __asm__ volatile(
            "xor %k[zero], %k[zero]\n\t"  // clears CF and OF
            "1:\n\t"
            "mulx (%[a],%[i],8), %[lo], %[hi]\n\t"
            "adcx %[c], %[lo]\n\t"
            "adox (%[r],%[i],8), %[lo]\n\t"
            "mov %[lo], (%[r],%[i],8)\n\t"
            "mulx 8(%[a],%[i],8), %[lo], %[c]\n\t"
            "adcx %[hi], %[lo]\n\t"
            "adox 8(%[r],%[i],8), %[lo]\n\t"
            "mov %[lo], 8(%[r],%[i],8)\n\t"
            "mulx 16(%[a],%[i],8), %[lo], %[hi]\n\t"
            "adcx %[c], %[lo]\n\t"
            "adox 16(%[r],%[i],8), %[lo]\n\t"
            "mov %[lo], 16(%[r],%[i],8)\n\t"
            "mulx 24(%[a],%[i],8), %[lo], %[c]\n\t"
            "adcx %[hi], %[lo]\n\t"
            "adox 24(%[r],%[i],8), %[lo]\n\t"
            "mov %[lo], 24(%[r],%[i],8)\n\t"
            "lea 4(%[i]), %[i]\n\t"
            "jrcxz 2f\n\t"
            "jmp 1b\n\t"
            "2:\n\t"
            "adcx %[zero], %[c]\n\t"
            "adox %[zero], %[c]\n\t"
            : [i] "+c"(index), [c] "+&r"(carry), [zero] "=&r"(zero), [lo] "=&r"(lo), [hi] "=&r"(hi)
            : [a] "r"(a_end), [r] "r"(r_end), "d"(b)
            : "cc", "memory");
    }
    for (uint64_t i = n4; i < n; ++i) {
        const u128 p = (u128)a[i] * b + r[i] + carry;
        r[i] = (uint64_t)p;
        carry = (uint64_t)(p >> 64);
    }
    return carry;
}

}  // namespace

bool basecase_adx_enabled() { return use_adx(); }
void set_basecase_adx(bool enabled) { adx_mode.store(enabled && detect_adx(), std::memory_order_relaxed); }

void mul_basecase(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL) {
    if (use_adx()) {
        C[AL] = mul_1(C, A, AL, B[0]);
        for (uint64_t j = 1; j < BL; ++j) C[AL + j] = addmul_1_adx(C + j, A, AL, B[j]);
        return;
    }
    // Rows of two B words; row j writes C[j, j + AL + 2), of which the top two words are new.
    uint64_t j = 0;
    if (BL >= 2) {
        mul_2(C, A, AL, B[0], B[1]);
        for (j = 2; j + 2 <= BL; j += 2) addmul_2(C + j, A, AL, B[j], B[j + 1]);
    } else {
        C[AL] = mul_1(C, A, AL, B[0]);
        j = 1;
    }
    if (j < BL) C[AL + j] = addmul_1(C + j, A, AL, B[j]);
}

void sqr_basecase(uint64_t* C, const uint64_t* A, uint64_t AL) {
    if (AL == 1) {
        const u128 p = (u128)A[0] * A[0];
        C[0] = (uint64_t)p;
        C[1] = (uint64_t)(p >> 64);
        return;
    }
    // Cross products: C[1, 2 AL - 1) = sum over i < j of a_i a_j 2^(64 (i + j)), built by rows:
    // row i multiplies a_i by A[i + 1, AL) into C[2 i + 1, ...), two rows per pass.
    const uint64_t n = AL;
    C[0] = 0;
    C[2 * n - 1] = 0;
    C[n] = mul_1(C + 1, A + 1, n - 1, A[0]);
    uint64_t i = 1;
    if (use_adx()) {
        for (; i + 1 < n; ++i) C[n + i] = addmul_1_adx(C + 2 * i + 1, A + i + 1, n - i - 1, A[i]);
    }
    // Pair rows i and i + 1: row i + 1 is a_(i+1) * A[i + 2, n) at column 2 i + 3; together with
    // row i's first term a_i a_(i+1) at column 2 i + 1 they form a_i * A[i+1, n) plus
    // a_(i+1) * A[i+2, n), which is one addmul_2 of A[i + 2, n) by (a_i, a_(i+1)) after the
    // single leading term is added on its own.
    for (; i + 2 < n; i += 2) {
        // Leading term a_i a_(i+1) at column 2 i + 1.
        const u128 p = (u128)A[i] * A[i + 1];
        uint64_t* r = C + 2 * i + 1;
        unsigned char c = _addcarry_u64(0, r[0], (uint64_t)p, reinterpret_cast<unsigned long long*>(r));
        c = _addcarry_u64(c, r[1], (uint64_t)(p >> 64), reinterpret_cast<unsigned long long*>(r + 1));
        // The rest: A[i + 2, n) times (a_i + a_(i+1) 2^64) added at column 2 i + 2 (= i + 2 + i).
        // Rows so far have written C[1, n + i); addmul_2 adds into C[2 i + 2, n + i) and writes
        // the fresh words C[n + i] and C[n + i + 1]. The carry c belongs at column 2 i + 3 = q[1],
        // which exists because m >= 1, and is added once those words are in place.
        const uint64_t m = n - i - 2;
        uint64_t* q = C + 2 * i + 2;
        addmul_2(q, A + i + 2, m, A[i], A[i + 1]);
        add_1(q + 1, q + 1, m + 1, uint64_t(c));
    }
    for (; i + 1 < n; ++i) C[n + i] = addmul_1(C + 2 * i + 1, A + i + 1, n - i - 1, A[i]);
    // Double the cross products and add the diagonal squares a_i^2 at column 2 i, in one pass
    // over C: each pair of words is shifted left by one (taking the top bit of the pair below)
    // and the square added with the running carry. The cross products are below
    // 2^(64 (2n - 1)), so the doubled value fits in C[0, 2n) and nothing leaves the top.
    uint64_t shifted_in = 0;
    unsigned char c = 0;
    for (uint64_t k = 0; k < n; ++k) {
        const u128 p = (u128)A[k] * A[k];
        const uint64_t lo = C[2 * k], hi = C[2 * k + 1];
        auto* r = reinterpret_cast<unsigned long long*>(C + 2 * k);
        c = _addcarry_u64(c, (lo << 1) | shifted_in, (uint64_t)p, r);
        c = _addcarry_u64(c, (hi << 1) | (lo >> 63), (uint64_t)(p >> 64), r + 1);
        shifted_in = hi >> 63;
    }
}

}  // namespace qmp
