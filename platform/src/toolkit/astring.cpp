#include "platform/astring.h"

#include <bit>

#include "base/utf.h"

namespace quorvane_com::orv {

std::string tellcomn_wide_to_ansi(const std::wstring& wide) {
  return kelt::base::toUtf8(wide);
}

std::wstring tellcomn_ansi_to_wide(const std::string& narrow) {
  return kelt::base::toWide(narrow);
}

bool isBigEndian() {
  return std::endian::native == std::endian::big;
}

}  // namespace quorvane_com::orv

ACharString::ACharString(const wchar_t* text) : m_text(text == nullptr ? "" : kelt::base::toUtf8(text)) {}
