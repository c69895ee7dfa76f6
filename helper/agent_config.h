#pragma once
// The configuration file that every product of the agent has: "config.xml", an element per value.

#include <optional>
#include <string>

#include "platform/anxml.h"

namespace kelt::helper {

/// The root element that such a file must have.
inline constexpr const wchar_t* kConfigRoot = L"Configuration";

/// One configuration file, loaded to be read.
class AgentConfig {
 public:
  /// Loads the file at `path`. Returns false, with nothing loaded, when it is missing, is refused (platform/anxml.h) or
  /// has another root element. An empty path is a missing file.
  [[nodiscard]] bool load(const std::wstring& path);

  /// The text of the root's first child element `name`, as it stands in the file; nothing when there is no such child
  /// or no file is loaded.
  [[nodiscard]] std::optional<std::wstring> firstText(const wchar_t* name);

  /// The same, for values whose absence means the same as an empty text.
  [[nodiscard]] std::wstring firstTextOrEmpty(const wchar_t* name);

 private:
  AnXml m_document;
};

}  // namespace kelt::helper
