#pragma once
// The counts of a program built for coverage (KELT_COVERAGE), which it writes at its end: below the build directory,
// and so where tests may not write. They go to a directory of their own and are linked to where the tools look for
// them.

#include <string>

namespace kelt::tests {

/// The directory of counts of a build directory, made if missing; empty where this program has none to write.
[[nodiscard]] std::string profileDirectory(const std::string& buildDirectory);

/// Makes programs that this process starts write their counts below `directory`.
void sendProfilesTo(const char* directory);

/// Links every file of counts to its place beside the notes of the compiler.
void linkProfiles(const std::string& buildDirectory);

}  // namespace kelt::tests
