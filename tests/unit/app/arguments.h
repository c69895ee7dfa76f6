#pragma once
// A command line as main gets it.

#include <initializer_list>
#include <string>
#include <vector>

namespace kelt::tests {

/// Arguments in memory of their own, null-terminated.
class Arguments {
 public:
  Arguments(std::initializer_list<const char*> texts) : m_texts(texts.begin(), texts.end()) {
    for (std::string& text : m_texts)
      m_pointers.push_back(text.data());
    m_pointers.push_back(nullptr);
  }

  [[nodiscard]] char** get() { return m_pointers.data(); }
  [[nodiscard]] int count() const { return static_cast<int>(m_texts.size()); }
  /// The argument as it stands in memory now, zero bytes included.
  [[nodiscard]] const std::string& operator[](std::size_t index) const { return m_texts[index]; }

 private:
  std::vector<std::string> m_texts;
  std::vector<char*> m_pointers;
};

}  // namespace kelt::tests
