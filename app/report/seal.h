// The seal of a validation file: two keyed checksums over every byte above it, written as
// "Checksum0: " and "Checksum1: " lines. Checksum0 is HMAC-SHA-256 under a key built into the
// program (64 lower-case hex digits): it binds the whole text, including its length and order.
// Checksum1 is a keyed polynomial hash modulo the prime 2^61 - 1 (16 hex digits): with every
// byte b taken as b + 1 and a secret evaluation point, changing any single byte moves the hash
// by a nonzero multiple of a power of the point, so a one-byte edit can never go unnoticed, by
// construction rather than by chance. The keys are fixed: a file sealed by one build validates
// in every build of the same format.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv {

inline constexpr const char* kChecksum0Label = "Checksum0: ";
inline constexpr const char* kChecksum1Label = "Checksum1: ";

struct Seal {
    std::string checksum0;  // 64 lower-case hex digits
    std::string checksum1;  // 16 lower-case hex digits
};

Seal compute_seal(std::string_view sealed_text);
// The keyed hash behind Checksum1, as a number below 2^61 - 1.
uint64_t keyed_polynomial_hash(std::string_view text);
// "Checksum0: <hex>\r\nChecksum1: <hex>\r\n" for the text it follows.
std::string seal_lines(std::string_view sealed_text);

}  // namespace qv
