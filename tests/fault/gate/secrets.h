#pragma once
// Secrets, and whether something holds one.

#include <string>
#include <string_view>
#include <vector>

namespace kelt::tests::gate {

class Secrets {
 public:
  /// A text of which nothing may be seen as a whole, a password.
  void addText(const std::string& text) { m_needles.push_back(text); }

  /// A secret key file, of which no piece may be seen, as it is or spelled in hexadecimal as the registry has it.
  void addKey(const std::string& file);

  [[nodiscard]] bool bIn(std::string_view content) const;

  /// Whether a user who is not the owner could read a secret at this path now.
  [[nodiscard]] bool bExposedAt(const std::string& path) const;

 private:
  std::vector<std::string> m_needles;
};

}  // namespace kelt::tests::gate
