#include "support/coverage.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace fs = std::filesystem;

namespace kelt::tests {

#ifdef KELT_COVERAGE_PREFIX  // the build directory that the program was compiled in

std::string profileDirectory(const std::string& buildDirectory) {
  const std::string directory = buildDirectory + "/profiles";
  fs::create_directories(directory);
  return directory;
}

void sendProfilesTo(const char* directory) {
  constexpr std::string_view kPrefix = KELT_COVERAGE_PREFIX;
  ::setenv("GCOV_PREFIX", directory, 1);
  ::setenv("GCOV_PREFIX_STRIP", std::to_string(std::ranges::count(kPrefix, '/')).c_str(), 1);
}

void linkProfiles(const std::string& buildDirectory) {
  const fs::path profiles = profileDirectory(buildDirectory);
  for (const auto& entry : fs::recursive_directory_iterator(profiles)) {
    if (entry.path().extension() != ".gcda") continue;
    std::error_code ignored;  // most have been linked before
    fs::create_hard_link(entry.path(), buildDirectory / fs::relative(entry.path(), profiles), ignored);
  }
}

#else

std::string profileDirectory(const std::string& /*buildDirectory*/) {
  return {};
}
void sendProfilesTo(const char* /*directory*/) {}
void linkProfiles(const std::string& /*buildDirectory*/) {}

#endif

}  // namespace kelt::tests
