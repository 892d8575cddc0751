// The program's name and version as shown in the about text, the menu banner and the headers of
// the files it writes. Keep kProgramVersion equal to the project version in CMakeLists.txt: a
// checkpoint or a validation file records it, and a mismatch refuses to resume.
#pragma once

namespace qv {

inline constexpr const char* kProgramName = "quorvalith";
inline constexpr const char* kProgramVersion = "0.1.0";

}  // namespace qv
