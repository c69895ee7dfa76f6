#pragma once
// Bytes as people and records write them.

#include <span>
#include <string>
#include <string_view>

namespace kelt::base {

/// Two upper-case hexadecimal digits for each byte, with `between` between one byte and the next. The locale is not
/// consulted. Throws std::bad_alloc.
[[nodiscard]] std::string hexDigits(std::span<const unsigned char> bytes, std::string_view between = {});

}  // namespace kelt::base
