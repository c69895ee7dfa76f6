#pragma once
// The console texts of this folder, without their final line end.

#include <string>

namespace kelt::keys::messages {

[[nodiscard]] inline std::string couldNotDelete(const std::string& path) {
  return "Could not delete file, " + path;
}

}  // namespace kelt::keys::messages
