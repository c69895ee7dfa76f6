#include "helper/unix_command_line_helper.h"

namespace kelt::helper {

void unixCommandLineHelper::SetSourceDir(std::wstring sourceDir) {
  m_sourceDir = std::move(sourceDir);
}

std::wstring unixCommandLineHelper::GetSourceDir() const {
  return m_sourceDir;
}

}  // namespace kelt::helper
