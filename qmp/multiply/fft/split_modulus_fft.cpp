// The split-modulus product (see split_modulus_fft.h).
//
// Join. With d = M / 64 words, N1 = b d and N2 = (b - 1) d = N1 - d:
//   B^N2 = -B^(-d) (mod M1), so M2 = (B^d - 1) / B^d and M2^(-1) = B^d (B^d - 1)^(-1) (mod M1);
//   (B^d - 1)(1 + B^d + ... + B^((b-1) d)) = B^N1 - 1 = -2 (mod M1), so (B^d - 1)^(-1) = -S / 2.
// With u = r2 - r1 (mod M1):  t = (r1 - r2) M2^(-1) = (sum_{j=1..b} u B^(j d)) / 2  (mod M1),
// and C = r2 + t M2 = r2 + t + t B^N2. Each u B^(j d) is a rotation (the words that pass B^N1
// come back negated), so block t of the sum is 2 (u_0 + ... + u_{t-1}) - (u_0 + ... + u_{b-1}):
// the join is two sweeps over N1 words, against the ~log M passes of the transforms.
// C < B^P bounds t below B^(P - N2): larger words of t are a fault.
//
// Scratch (each piece 128-byte aligned): [A's stored transform][negacyclic scratch, later the
// join's accumulator][r1: N1 + 2 words][low piece of a long A: N2 + 2 words].
#include "qmp/multiply/fft/split_modulus_fft.h"

#include <algorithm>
#include <atomic>
#include <string>

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/fft/checks.h"
#include "qmp/multiply/fft/limit_table.h"
#include "qmp/multiply/fft/negacyclic_product.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

constexpr const char* kMultiply = "SFTv4::multiply()";
// Below this the transform of the whole product is small anyway.
constexpr uint64_t kMinProductWords = 4096;

std::atomic<SplitModulusFFT::FaultInjector> g_fault_injector{nullptr};

uint64_t align128(uint64_t bytes) { return (bytes + 127) / 128 * 128; }

struct Moduli {
    uint64_t N1, N2, d;
    int b;
};

Moduli moduli_of(const fft::TransformSize& size) {
    const uint64_t d = size.real_points() / 64;
    return Moduli{d * uint64_t(size.bits), d * uint64_t(size.bits - 1), d, size.bits};
}

struct Layout {
    uint64_t stored = 0, negacyclic = 0, r1 = 0, low = 0, total = 0;
};

Layout layout_of(const fft::TransformSize& size) {
    const Moduli q = moduli_of(size);
    const fft::NegacyclicProduct high(size);
    const fft::NegacyclicProduct low(fft::TransformSize{size.m, size.k, size.bits - 1});
    Layout l;
    l.stored = align128(high.stored_bytes());
    l.negacyclic = align128(std::max({high.scratch_bytes(), low.scratch_bytes(), (q.N1 + 2 + 3 * (q.d + 2)) * 8}));
    l.r1 = align128((q.N1 + 2) * 8);
    l.low = align128((q.N2 + 2) * 8);  // a product's r2 takes N2 + 1 words of its output
    l.total = 128 + l.stored + l.negacyclic + l.r1 + l.low;
    return l;
}

// The rotation sum one rotation at a time, for the one residue the sweep does not take
// (u = B^N1, that is -1): acc (n + 2 words, two's complement) += X[0, xl) B^offset, and
// acc -= X[0, xl) at the bottom, each carried through the top.
void add_at(uint64_t* acc, uint64_t n, const uint64_t* X, uint64_t xl, uint64_t offset) {
    const uint64_t carry = add_n(acc + offset, acc + offset, X, xl);
    if (carry != 0) add_1(acc + offset + xl, acc + offset + xl, n + 2 - offset - xl, uint64_t(1));
}
void sub_at_bottom(uint64_t* acc, uint64_t n, const uint64_t* X, uint64_t xl) {
    const uint64_t borrow = sub_n(acc, acc, X, xl);
    if (borrow != 0) sub_1(acc + xl, acc + xl, n + 2 - xl, uint64_t(1));
}

// acc (n + 2 words, signed, |acc| < 2^63 B^n) reduced modulo B^n + 1 into [0, B^n] in its low
// n + 1 words (B^n is the residue -1).
void reduce_signed(uint64_t* acc, uint64_t n) {
    // acc = lo + top B^n with top signed in words n, n + 1: acc = lo - top (mod B^n + 1).
    const int64_t top = int64_t(acc[n]);  // |top| < 2^63: word n + 1 is its sign extension
    acc[n] = acc[n + 1] = 0;
    if (top > 0) {
        sub_1(acc, acc, n + 2, uint64_t(top));
    } else if (top < 0) {
        add_1(acc, acc, n + 2, uint64_t(-top));
    }
    // Now acc in (-2^63, B^n + 2^63): at most one correction each way.
    if (int64_t(acc[n + 1]) < 0) {  // negative: add B^n + 1
        add_1(acc, acc, n + 2, uint64_t(1));
        acc[n] += 1;
        if (acc[n] == 0) acc[n + 1] += 1;
    }
    if (acc[n] > 1 || (acc[n] == 1 && !is_zero(acc, n))) {  // above B^n: subtract B^n + 1
        acc[n] -= 1;
        sub_1(acc, acc, n + 1, uint64_t(1));
    }
}

// w = sum_{j=1..b} u B^(j d) (mod M1) for u < B^N1 in one sweep. With u in blocks u_s of d
// words, block t of w collects +u_s for s < t and -u_s for s >= t (the rotations that pass
// B^N1 come back negated): w_t = 2 prefix_t - total. acc gets N1 + 2 signed words; `work`
// holds 3 (d + 2) words.
void geometric_join(uint64_t* acc, const uint64_t* u, const Moduli& q, uint64_t* work) {
    const uint64_t d = q.d, n = d + 2;
    uint64_t* total = work;
    uint64_t* prefix = total + n;
    uint64_t* block = prefix + n;
    zero_words(total, n);
    for (int s = 0; s < q.b; ++s) add(total, total, n, u + uint64_t(s) * d, d);
    zero_words(prefix, n);
    int64_t carry = 0;  // signed, in units of B^(t d)
    for (int t = 0; t < q.b; ++t) {
        // block = 2 prefix - total + carry, two's complement over d + 2 words.
        lshift(block, prefix, n, 1u);
        sub_n(block, block, total, n);
        if (carry > 0) add_1(block, block, n, uint64_t(carry));
        else if (carry < 0) sub_1(block, block, n, uint64_t(-carry));
        copy_words(acc + uint64_t(t) * d, block, d);
        carry = int64_t(block[d]);  // |value / B^d| < 2^62: word d + 1 is its sign extension
        add(prefix, prefix, n, u + uint64_t(t) * d, d);
    }
    acc[q.N1] = uint64_t(carry);
    acc[q.N1 + 1] = carry < 0 ? ~uint64_t(0) : 0;
}

}  // namespace

void SplitModulusFFT::set_fault_injector(FaultInjector injector) { g_fault_injector.store(injector); }

SplitModulusFFT::SplitModulusFFT(uint64_t max_product_words) : max_product_words_(max_product_words) {}

fft::TransformSize SplitModulusFFT::plan(uint64_t product_words) {
    const uint64_t need = (product_words + 1) / 2 + 1;  // N2 - 1 >= ceil(P / 2)
    fft::TransformSize best{1, 0, 0};
    for (int m : {1, 3, 5, 7}) {
        for (int k = std::max(6, fft::minimum_k(m)); fft::ceil_log2_points(m, k) <= fft::kLimitMaxLog2Points; ++k) {
            const int b = fft::bits_per_point(m, k, fft::DigitMode::Dithered) - 1;
            if (b < 3) break;
            const fft::TransformSize size{m, k, b};
            if (moduli_of(size).N2 < need) continue;
            if (best.bits == 0 || size.real_points() < best.real_points()) best = size;
            break;
        }
    }
    return best;
}

uint64_t SplitModulusFFT::max_product_words() {
    uint64_t best = 0;
    for (int m : {1, 3, 5, 7}) {
        for (int k = std::max(6, fft::minimum_k(m)); fft::ceil_log2_points(m, k) <= fft::kLimitMaxLog2Points; ++k) {
            const int b = fft::bits_per_point(m, k, fft::DigitMode::Dithered) - 1;
            if (b < 3) break;
            best = std::max(best, 2 * (moduli_of(fft::TransformSize{m, k, b}).N2 - 2));
        }
    }
    return best;
}

void SplitModulusFFT::assert_valid() const {
    if (max_product_words_ < kMinProductWords || plan(max_product_words_).bits == 0)
        throw InvalidParametersException("SFTv4::assert_valid()", "Invalid table entry 0.");
}

uint64_t SplitModulusFFT::multiply_buffer_bytes(uint64_t product_words) const {
    const fft::TransformSize size = plan(std::max(product_words, kMinProductWords));
    if (size.bits == 0 || product_words > max_product_words_)
        throw LimitExceededException("SFTv4::multiply_buffer_bytes()",
                                     "Product of " + std::to_string(product_words) + " words is beyond this transform.");
    return layout_of(size).total;
}

void SplitModulusFFT::direct(const fft::TransformSize& size, uint64_t* C, const uint64_t* A, uint64_t AL,
                             const uint64_t* B, uint64_t BL, char* base, const MultiplyContext& context) const {
    const Moduli q = moduli_of(size);
    const Layout l = layout_of(size);
    void* T = base;
    void* scratch = base + l.stored;
    auto* r1 = reinterpret_cast<uint64_t*>(base + l.stored + l.negacyclic);
    auto* low_buffer = reinterpret_cast<uint64_t*>(base + l.stored + l.negacyclic + l.r1);
    // r2 and the join take N2 + 1 words at least: a shorter product is formed in the low buffer.
    const uint64_t CL = AL + (B ? BL : AL);
    uint64_t* const out = CL >= q.N2 + 1 || C == low_buffer ? C : low_buffer;
    Parallelizer* p = context.parallelizer;
    const uint64_t tds = context.tds;

    // r1 = C mod M1 (N1 + 1 words), then r2 = C mod M2 straight into C[0, N2].
    const fft::NegacyclicProduct high(size);
    high.forward(T, A, AL, scratch, p, tds);
    if (B) high.multiply(r1, T, B, BL, scratch, p, tds);
    else high.square(r1, T, scratch, p, tds);
    if (FaultInjector f = g_fault_injector.load()) f(r1, moduli_of(size).N1 + 1);
    const fft::NegacyclicProduct low(fft::TransformSize{size.m, size.k, size.bits - 1});
    low.forward(T, A, AL, scratch, p, tds);
    if (B) low.multiply(out, T, B, BL, scratch, p, tds);
    else low.square(out, T, scratch, p, tds);

    // u = r2 - r1 (mod M1) in r1's words: -r1 + r2 (+ M1 when r2 < r1), all modulo B^(N1+1),
    // where the true value lies in [0, M1).
    const uint64_t N1 = q.N1, N2 = q.N2;
    const uint64_t r1_len = normalized_length(r1, N1 + 1), r2_len = normalized_length(out, N2 + 1);
    const bool below = r2_len < r1_len || (r2_len == r1_len && cmp(out, r1, r2_len) < 0);
    neg(r1, r1, N1 + 1);
    add(r1, r1, N1 + 1, out, N2 + 1);
    if (below) {
        add_1(r1, r1, N1 + 1, uint64_t(1));
        r1[N1] += 1;
    }

    // w = sum_{j=1..b} u B^(j d) (mod M1) in the accumulator (N1 + 2 words, signed).
    auto* acc = reinterpret_cast<uint64_t*>(scratch);
    if (r1[N1] == 0) {
        geometric_join(acc, r1, q, acc + N1 + 2);
    } else {
        // u = B^N1 = -1: the rotations one by one (never seen outside tests of the corner).
        zero_words(acc, N1 + 2);
        for (int j = 1; j <= q.b; ++j) {
            const uint64_t shift = uint64_t(j) * q.d;  // <= N1
            // u = lo + hi B^(N1 - shift): lo B^shift - hi.
            const uint64_t lo_words = N1 - shift;
            if (lo_words > 0) add_at(acc, N1, r1, lo_words, shift);
            sub_at_bottom(acc, N1, r1 + lo_words, N1 + 1 - lo_words);
        }
    }
    reduce_signed(acc, N1);
    // t = w / 2 (mod M1): an odd w takes M1 first.
    if (acc[0] & 1) {
        add_1(acc, acc, N1 + 2, uint64_t(1));
        acc[N1] += 1;
    }
    rshift(acc, acc, N1 + 1, 1u);

    // C = r2 + t + t B^N2 with t below B^(P - N2), P the words `out` holds (N2 + 1 at least).
    const uint64_t P = std::max(CL, N2 + 1);
    const uint64_t tl = P - N2;
    if (!is_zero(acc + tl, N1 + 1 - tl))
        throw AlgorithmFailedException(kMultiply, "Checksum Mismatch. Multiplication Failed.");
    if (N2 + 1 < P) zero_words(out + N2 + 1, P - N2 - 1);
    uint64_t top = add(out, out, P, acc, tl);
    top |= add(out + N2, out + N2, P - N2, acc, tl);
    if (top != 0 || !is_zero(out + CL, P - CL))
        throw AlgorithmFailedException(kMultiply, "Checksum Mismatch. Multiplication Failed.");
    if (out != C) copy_words(C, out, CL);
}

void SplitModulusFFT::multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                               void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const {
    if (AL == 0 || BL == 0) throw InvalidParametersException(kMultiply, "Operands cannot be empty.");
    if (AL < BL) {
        std::swap(A, B);
        std::swap(AL, BL);
    }
    const uint64_t P = std::max(AL + BL, kMinProductWords);
    const uint64_t need = multiply_buffer_bytes(P);
    if (scratch_bytes < need) throw BufferTooSmallException(kMultiply, scratch_bytes, need);
    const fft::TransformSize size = plan(P);
    const Moduli q = moduli_of(size);
    char* base = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(scratch) + 127) & ~uintptr_t(127));
    const uint64_t ra = parallel_mod_m61(A, AL, context.parallelizer, context.tds);
    const uint64_t rb = parallel_mod_m61(B, BL, context.parallelizer, context.tds);
    if (AL <= q.N2 - 1) {
        direct(size, C, A, AL, B, BL, base, context);
    } else {
        // A = A_lo + A_hi B^h with A_hi just short enough: A_hi B into C at h, A_lo B added.
        const uint64_t h = AL - (q.N2 - 1);
        direct(size, C + h, A + h, AL - h, B, BL, base, context);
        const Layout l = layout_of(size);
        auto* low = reinterpret_cast<uint64_t*>(base + l.stored + l.negacyclic + l.r1);
        const uint64_t* X = A;
        uint64_t XL = h;
        const uint64_t* Y = B;
        uint64_t YL = BL;
        if (XL < YL) {
            std::swap(X, Y);
            std::swap(XL, YL);
        }
        direct(size, low, X, XL, Y, YL, base, context);
        copy_words(C, low, h);
        if (add(C + h, C + h, AL + BL - h, low + h, BL) != 0)
            throw AlgorithmFailedException(kMultiply, "Checksum Mismatch. Multiplication Failed.");
    }
    if (C[0] != A[0] * B[0]) throw AlgorithmFailedException(kMultiply, "Checksum Mismatch. Multiplication Failed.");
    verify_product(ra, rb, C, AL + BL, context.parallelizer, context.tds);
}

void SplitModulusFFT::square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                             const MultiplyContext& context) const {
    if (AL == 0) throw InvalidParametersException("SFTv4::square()", "Operands cannot be empty.");
    const uint64_t P = std::max(2 * AL, kMinProductWords);
    const uint64_t need = multiply_buffer_bytes(P);
    if (scratch_bytes < need) throw BufferTooSmallException("SFTv4::square()", scratch_bytes, need);
    const fft::TransformSize size = plan(P);
    char* base = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(scratch) + 127) & ~uintptr_t(127));
    const uint64_t ra = parallel_mod_m61(A, AL, context.parallelizer, context.tds);
    direct(size, C, A, AL, nullptr, 0, base, context);
    if (C[0] != A[0] * A[0]) throw AlgorithmFailedException("SFTv4::square()", "Checksum Mismatch. Multiplication Failed.");
    verify_product(ra, ra, C, 2 * AL, context.parallelizer, context.tds);
}

void register_split_modulus_fft(AlgorithmRegistry& registry) {
    registry.add("SFTv4", [](const NamedAlgorithmEntry& entry) {
        return std::make_unique<SplitModulusFFT>(std::min(entry.threshold_words, SplitModulusFFT::max_product_words()));
    });
}

}  // namespace qmp
