#include "check/readable.h"

#include <algorithm>
#include <cstdint>

#include "base/utf.h"

namespace kelt::check {
namespace {

std::string escaped(std::uint32_t byte) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  return std::string("\\x") + kDigits[(byte >> 4U) & 0x0FU] + kDigits[byte & 0x0FU];
}

/// Marks that change the direction of the text after them, or that some take for the end of a line, and the byte order
/// mark. They are no more than that, so they are left out.
bool bMark(std::uint32_t unit) {
  return unit == 0x061C || unit == 0x200E || unit == 0x200F || (unit >= 0x2028 && unit <= 0x202E) ||
         (unit >= 0x2066 && unit <= 0x2069) || unit == 0xFEFF;
}

/// Controls, and what stands for a byte that is no text (base/utf.h).
bool bNoText(std::uint32_t unit) {
  return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || (unit >= 0xD800 && unit <= 0xDFFF);
}

bool bPlain(char c) {
  return c >= ' ' && c <= '~';
}

}  // namespace

std::string readable(std::string_view text) {
  if (std::all_of(text.begin(), text.end(), bPlain)) return std::string(text);
  std::string out;
  for (const wchar_t wide : base::toWide(text)) {
    const std::uint32_t unit = std::char_traits<wchar_t>::to_int_type(wide);
    if (bNoText(unit)) {
      out += escaped(unit);
    } else if (!bMark(unit)) {
      out += base::toUtf8({&wide, 1});
    }
  }
  return out;
}

}  // namespace kelt::check
