// Raw digits (values 0..radix-1, one per byte) to the characters of a text digit file and back:
// '0'-'9', then lower-case 'a'-'f' for radix 16; reading also takes 'A'-'F'. Both return true
// when some input was not a digit of the radix (the output is then unspecified). 32 bytes per
// step with AVX2 unless QMP_SIMD asks for the portable path.
#pragma once

#include <cstdint>

namespace qmp {

bool digits_to_chars(uint32_t radix, const char* raw, char* out, uint64_t n);
bool chars_to_digits(uint32_t radix, const char* text, char* raw, uint64_t n);

}  // namespace qmp
