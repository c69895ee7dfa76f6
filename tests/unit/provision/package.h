#pragma once
// Replies of the management server for tests.

#include <string>
#include <utility>
#include <vector>

namespace kelt::tests {

/// A zip archive of these files (name, content), stored.
[[nodiscard]] std::string zipOf(const std::vector<std::pair<std::string, std::string>>& files);

/// Base64 in one line.
[[nodiscard]] std::string base64Of(const std::string& bytes);

/// The body of a good reply with this archive.
[[nodiscard]] std::string replyWith(const std::string& archive);

/// A site list of this FIPS mode.
[[nodiscard]] std::string siteList(const std::string& fipsMode);

}  // namespace kelt::tests
