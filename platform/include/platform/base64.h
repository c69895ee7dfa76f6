#pragma once
// Base64 of the agent's toolkit, as replies of the management server carry it.

#include "platform/abuffer.h"
#include "platform/astring.h"

/// Base64 (RFC 4648, section 4).
class ABase64Encode {
 public:
  /// Decodes `text` into a new buffer; an empty text gives an empty one. Line ends and blanks anywhere are skipped;
  /// anything else outside the alphabet, or wrong padding, gives an empty buffer. Throws std::bad_alloc.
  [[nodiscard]] static ABuffer decode(const AString& text);
};
