#pragma once
// The console texts of this folder, without their final line end.

#include <string>

namespace kelt::keys::messages {

[[nodiscard]] inline std::wstring couldNotDelete(const std::wstring& path) {
  return L"Could not delete file, " + path;
}

}  // namespace kelt::keys::messages
