// The validator of benchmark validation files. It refuses retired (1.0, 1.1) and future
// formats by their version line, then checks the seal over all text above it, then finds every
// field its format requires and checks that the numbers parse. Format 1.3 is the file this
// program writes; format 1.2 is the same layout without the logical-disk statistics, the
// frequency check and the three numbered reference clocks. Verdicts and their messages:
//   too old / too new                  the two-line version refusals
//   no seal, or text after it, bad header, unreadable version or number
//                                      "Validation Failed - Invalid File"
//   a seal line that is not a well-formed checksum   "Validation Failed: Invalid Hash"
//   a seal that does not match the text "Validation Failed: File is either invalid or has been tampered with."
//   a required field missing           "Tag not found in " + the file's description
// The validator only reads; it never changes the file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qv {

enum class ValidationVerdict { Passed, VersionTooOld, VersionTooNew, Tampered, InvalidHash, InvalidFile, TagNotFound };

struct ValidationOutcome {
    ValidationVerdict verdict = ValidationVerdict::InvalidFile;
    std::vector<std::string> lines;  // what the validator prints, in order
};

ValidationOutcome validate_validation_text(std::string_view text, const std::string& description);

// The "validate" action and the advanced menu's entry: asks for the path when `path` is empty,
// reads the file and prints the outcome under the title "Benchmark Validator".
void run_validator(std::string path);

}  // namespace qv
