// SHA-256 (the published secure hash of FIPS 180-4) of a byte stream, fed in pieces of any
// size: update() any number of times, then finish() once for the 32-byte digest. The block
// function uses the processor's SHA extensions when it has them and the active SIMD level is
// above "portable" (QMP_SIMD=portable forces the plain C++ path, which tests compare against).
// After finish() the hasher must be reset() before it is fed again.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

class Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    Sha256() { reset(); }
    void reset();
    void update(const void* data, uint64_t size_bytes);
    void update(std::string_view text) { update(text.data(), text.size()); }
    Digest finish();

    // Whether the block function in use is the SHA-extension one (read once per hasher).
    bool uses_sha_extensions() const noexcept { return hardware_; }

    // Lower-case hexadecimal text of a digest (64 characters).
    static std::string to_hex(const Digest& digest);
    static Digest of(std::string_view text);

private:
    std::array<uint32_t, 8> state_{};
    std::array<uint8_t, 64> block_{};
    uint64_t block_fill_ = 0;
    uint64_t total_bytes_ = 0;
    bool hardware_ = false;
};

// HMAC-SHA-256 (RFC 2104) of `message` under `key`.
Sha256::Digest hmac_sha256(std::string_view key, std::string_view message);

// Whether this processor has the SHA extensions (CPUID leaf 7, EBX bit 29) and SSE4.1.
bool cpu_has_sha_extensions();

}  // namespace qv
