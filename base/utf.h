#pragma once
// UTF-8 and the platform's wide strings, without loss for bytes that are no UTF-8, and without consulting the locale.

#include <string>
#include <string_view>

namespace kelt::base {

/// Decodes UTF-8 (RFC 3629: no overlong forms, no surrogates, at most U+10FFFF), one code point per unit. Each byte
/// that is not part of a valid sequence becomes U+DC00 + byte, so that toUtf8 gives the same bytes back. Never fails.
[[nodiscard]] std::wstring toWide(std::string_view utf8);

/// Encodes as UTF-8. A unit U+DC80..U+DCFF becomes the single byte 0x80..0xFF. Other surrogates and values beyond
/// U+10FFFF, which no text holds, are written in the generalised form of up to 4 bytes (beyond that as U+FFFD), so that
/// whoever validates the bytes sees that they are no text. Never fails.
[[nodiscard]] std::string toUtf8(std::wstring_view wide);

}  // namespace kelt::base
