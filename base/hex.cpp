#include "base/hex.h"

namespace kelt::base {

std::string hexDigits(std::span<const unsigned char> bytes, std::string_view between) {
  // By hand, as streams, which shipped code has none of, consult the locale.
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string digits;
  for (const unsigned char byte : bytes) {
    if (!digits.empty()) digits += between;
    digits += kDigits[byte >> 4U];
    digits += kDigits[byte & 0x0FU];
  }
  return digits;
}

}  // namespace kelt::base
