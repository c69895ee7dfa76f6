#pragma once
// The keys in tests/data/keys (see the README there).

#include <string>

#include "support/private_device.h"

namespace kelt::tests {

/// The content of one key file.
[[nodiscard]] inline std::string testKey(const std::string& name) {
  return contentOf(std::string(KELT_TEST_DATA) + "/keys/" + name);
}

}  // namespace kelt::tests
