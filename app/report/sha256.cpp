// SHA-256 with two block functions: the plain one follows FIPS 180-4 word by word; the other
// runs four rounds per step on the SHA extensions (sha256rnds2 does two rounds, sha256msg1/2
// extend the message schedule). The state lives as {A,B,E,F} / {C,D,G,H} vectors inside the
// fast function only; between calls both functions share the plain eight-word state.
#include "app/report/sha256.h"

#include "qmp/cpu_features.h"

#include <cpuid.h>
#include <immintrin.h>

#include <algorithm>
#include <cstring>

namespace qv {

namespace {

constexpr uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

constexpr std::array<uint32_t, 8> kInitialState = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

inline uint32_t rotr(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

inline uint32_t load_be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

void compress_portable(uint32_t* state, const uint8_t* data, uint64_t n_blocks) {
    for (; n_blocks != 0; --n_blocks, data += 64) {
        uint32_t w[64];
        for (int t = 0; t < 16; ++t) w[t] = load_be32(data + 4 * t);
        for (int t = 16; t < 64; ++t) {
            const uint32_t s0 = rotr(w[t - 15], 7) ^ rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
            const uint32_t s1 = rotr(w[t - 2], 17) ^ rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
            w[t] = w[t - 16] + s0 + w[t - 7] + s1;
        }
        uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
        uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
        for (int t = 0; t < 64; ++t) {
            const uint32_t t1 = h + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) +
                                kRoundConstants[t] + w[t];
            const uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
            h = g; g = f; f = e; e = d + t1;
            d = c; c = b; b = a; a = t1 + t2;
        }
        state[0] += a; state[1] += b; state[2] += c; state[3] += d;
        state[4] += e; state[5] += f; state[6] += g; state[7] += h;
    }
}

// Four rounds per group i (0..15); w[i % 4] holds the group's message words. Group i also
// finishes the schedule of group i + 1 (msg2, needs groups i-1 and i) and starts that of
// group i + 3 (msg1, needs groups i-1 and i).
__attribute__((target("sha,sse4.1,ssse3"))) void compress_sha_extensions(uint32_t* state, const uint8_t* data,
                                                                         uint64_t n_blocks) {
    const __m128i byte_swap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
    __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state));
    __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state + 4));
    const __m128i cdab = _mm_shuffle_epi32(dcba, 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);

    for (; n_blocks != 0; --n_blocks, data += 64) {
        const __m128i abef_saved = abef;
        const __m128i cdgh_saved = cdgh;
        __m128i w[4];
        for (int i = 0; i < 16; ++i) {
            __m128i& current = w[i % 4];
            if (i < 4) {
                current = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * i)),
                                           byte_swap);
            }
            __m128i msg = _mm_add_epi32(current,
                                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(kRoundConstants + 4 * i)));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, msg);
            if (i >= 3 && i < 15) {
                __m128i& next = w[(i + 1) % 4];
                next = _mm_add_epi32(next, _mm_alignr_epi8(current, w[(i + 3) % 4], 4));
                next = _mm_sha256msg2_epu32(next, current);
            }
            msg = _mm_shuffle_epi32(msg, 0x0E);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, msg);
            if (i >= 1 && i < 13) {
                __m128i& previous = w[(i + 3) % 4];
                previous = _mm_sha256msg1_epu32(previous, current);
            }
        }
        abef = _mm_add_epi32(abef, abef_saved);
        cdgh = _mm_add_epi32(cdgh, cdgh_saved);
    }

    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    dcba = _mm_blend_epi16(feba, dchg, 0xF0);
    hgfe = _mm_alignr_epi8(dchg, feba, 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state), dcba);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state + 4), hgfe);
}

void compress(bool hardware, uint32_t* state, const uint8_t* data, uint64_t n_blocks) {
    if (hardware) {
        compress_sha_extensions(state, data, n_blocks);
    } else {
        compress_portable(state, data, n_blocks);
    }
}

}  // namespace

bool cpu_has_sha_extensions() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return false;
    const bool sse41 = (ecx & (1u << 19)) != 0;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return false;
    return sse41 && (ebx & (1u << 29)) != 0;
}

void Sha256::reset() {
    state_ = kInitialState;
    block_fill_ = 0;
    total_bytes_ = 0;
    static const bool has_sha = cpu_has_sha_extensions();
    hardware_ = has_sha && qmp::active_simd_level() != qmp::SimdLevel::Portable;
}

void Sha256::update(const void* data, uint64_t size_bytes) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    total_bytes_ += size_bytes;
    if (block_fill_ != 0) {
        const uint64_t take = std::min<uint64_t>(64 - block_fill_, size_bytes);
        std::memcpy(block_.data() + block_fill_, p, take);
        block_fill_ += take;
        p += take;
        size_bytes -= take;
        if (block_fill_ < 64) return;
        compress(hardware_, state_.data(), block_.data(), 1);
        block_fill_ = 0;
    }
    const uint64_t whole_blocks = size_bytes / 64;
    if (whole_blocks != 0) compress(hardware_, state_.data(), p, whole_blocks);
    p += whole_blocks * 64;
    size_bytes -= whole_blocks * 64;
    if (size_bytes != 0) std::memcpy(block_.data(), p, size_bytes);
    block_fill_ = size_bytes;
}

Sha256::Digest Sha256::finish() {
    // Padding: 0x80, zeros up to 56 bytes mod 64, then the bit length big-endian.
    const uint64_t bit_length = total_bytes_ * 8;
    uint8_t tail[128] = {};
    const uint64_t tail_size = block_fill_ < 56 ? 64 : 128;
    std::memcpy(tail, block_.data(), block_fill_);
    tail[block_fill_] = 0x80;
    for (int i = 0; i < 8; ++i) tail[tail_size - 1 - i] = static_cast<uint8_t>(bit_length >> (8 * i));
    compress(hardware_, state_.data(), tail, tail_size / 64);
    Digest digest;
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < 4; ++j) digest[4 * i + j] = static_cast<uint8_t>(state_[i] >> (24 - 8 * j));
    }
    return digest;
}

std::string Sha256::to_hex(const Digest& digest) {
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(64);
    for (uint8_t byte : digest) {
        text += kHex[byte >> 4];
        text += kHex[byte & 15];
    }
    return text;
}

Sha256::Digest Sha256::of(std::string_view text) {
    Sha256 hasher;
    hasher.update(text);
    return hasher.finish();
}

Sha256::Digest hmac_sha256(std::string_view key, std::string_view message) {
    uint8_t block_key[64] = {};
    if (key.size() > 64) {
        const Sha256::Digest hashed = Sha256::of(key);
        std::memcpy(block_key, hashed.data(), hashed.size());
    } else {
        std::memcpy(block_key, key.data(), key.size());
    }
    uint8_t pad[64];
    Sha256 inner;
    for (int i = 0; i < 64; ++i) pad[i] = block_key[i] ^ 0x36;
    inner.update(pad, 64);
    inner.update(message);
    const Sha256::Digest inner_digest = inner.finish();
    Sha256 outer;
    for (int i = 0; i < 64; ++i) pad[i] = block_key[i] ^ 0x5c;
    outer.update(pad, 64);
    outer.update(inner_digest.data(), inner_digest.size());
    return outer.finish();
}

}  // namespace qv
