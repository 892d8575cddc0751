// Both checksums of the seal. The HMAC key and the polynomial's point and offset are constants
// of the file format; changing any of them invalidates every file written before.
#include "app/report/seal.h"

#include "app/report/sha256.h"

namespace qv {

namespace {

constexpr std::string_view kHmacKey = "quorvalith/validation-seal/v1.3/key-0:5f2c9a17e04b83d6";
constexpr uint64_t kMersenne61 = (uint64_t(1) << 61) - 1;
// Evaluation point and offset of the polynomial hash: arbitrary nonzero residues.
constexpr uint64_t kPolynomialPoint = 0x0b7e151628aed2a6ULL % kMersenne61;
constexpr uint64_t kPolynomialOffset = 0x13198a2e03707344ULL % kMersenne61;

uint64_t mul_mod_m61(uint64_t a, uint64_t b) {
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    uint64_t r = static_cast<uint64_t>(product & kMersenne61) + static_cast<uint64_t>(product >> 61);
    if (r >= kMersenne61) r -= kMersenne61;
    return r;
}

std::string hex16(uint64_t value) {
    static const char kHex[] = "0123456789abcdef";
    std::string text(16, '0');
    for (int i = 15; i >= 0; --i, value >>= 4) text[i] = kHex[value & 15];
    return text;
}

}  // namespace

uint64_t keyed_polynomial_hash(std::string_view text) {
    // Horner: h = offset * r^n + sum (b_i + 1) r^(n-1-i), all mod 2^61 - 1. Every term stays
    // below 2^61 - 1, and b + 1 is in 1..256, so a one-byte change alters exactly one term by
    // (b' - b) r^k, which is nonzero because the modulus is prime and r is not zero.
    uint64_t h = kPolynomialOffset;
    for (unsigned char byte : text) {
        h = mul_mod_m61(h, kPolynomialPoint) + (uint64_t(byte) + 1);
        if (h >= kMersenne61) h -= kMersenne61;
    }
    return h;
}

Seal compute_seal(std::string_view sealed_text) {
    return {Sha256::to_hex(hmac_sha256(kHmacKey, sealed_text)), hex16(keyed_polynomial_hash(sealed_text))};
}

std::string seal_lines(std::string_view sealed_text) {
    const Seal seal = compute_seal(sealed_text);
    return std::string(kChecksum0Label) + seal.checksum0 + "\r\n" + kChecksum1Label + seal.checksum1 + "\r\n";
}

}  // namespace qv
