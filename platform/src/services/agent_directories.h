#pragma once
// The agent's directories for those who must not write to the log while they ask: the log itself.

#include <string>

namespace kelt::platform {

/// As IConfiguration::GetFrameworkDataDirectory, but without a word where the configuration is refused: a log that
/// asked aloud would be asked by itself what to say. Throws std::bad_alloc.
[[nodiscard]] std::wstring frameworkDataDirectory();

}  // namespace kelt::platform
