#include "helper/latin1_converter.h"

namespace kelt::helper {
namespace {

// The value by which iconv_open says that there is none.
bool bOpen(iconv_t conversion) {
  return conversion != reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace

Latin1Converter::Latin1Converter(const char* encoding) : m_conversion(::iconv_open(encoding, "ISO-8859-1")) {}

Latin1Converter::~Latin1Converter() {
  if (bOpen(m_conversion)) ::iconv_close(m_conversion);
}

std::optional<std::size_t> Latin1Converter::convert(std::span<const char> latin1, std::span<char> out) {
  // Known since the construction, and told here: a device may have been built without conversion modules.
  if (!bOpen(m_conversion)) return std::nullopt;
  char* from = const_cast<char*>(latin1.data());  // iconv only reads it
  std::size_t fromLeft = latin1.size();
  char* to = out.data();
  std::size_t toLeft = out.size();
  // All or nothing: each byte is a character, so there is no half of one to be carried over to the next call.
  if (::iconv(m_conversion, &from, &fromLeft, &to, &toLeft) == static_cast<std::size_t>(-1)) return std::nullopt;
  return out.size() - toLeft;
}

}  // namespace kelt::helper
