#pragma once
// The console texts of this folder, without their final line end. Everything else about an import is told in the
// agent's log.

#include <string>

namespace kelt::keys::messages {

/// For each key file that is left, or was not there, once the keys are in the key store.
[[nodiscard]] inline std::string couldNotDelete(const std::string& path) {
  return "Could not delete file, " + path;
}

}  // namespace kelt::keys::messages
