#include "helper/agent_config.h"

#include "platform/astring.h"

namespace kelt::helper {

bool AgentConfig::load(const std::wstring& path) {
  return m_document.useExistingFile(path.c_str(), kConfigRoot, nullptr, nullptr);
}

std::optional<std::wstring> AgentConfig::firstText(const wchar_t* name) {
  const AnXmlNode root(&m_document);
  AnXmlChildIndex children(&root, name);
  AString text;
  if (!children.moveNext(L"", &text)) return std::nullopt;
  return text.str();
}

std::wstring AgentConfig::firstTextOrEmpty(const wchar_t* name) {
  return firstText(name).value_or(std::wstring());
}

}  // namespace kelt::helper
