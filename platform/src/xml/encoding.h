#pragma once
// Documents that are not in UTF-8, brought into it.

#include <span>
#include <vector>

namespace kelt::platform {

/// Whether a document begins with a byte order mark of UTF-16, which makes it UTF-16 whatever else it says.
[[nodiscard]] bool bMarkedUtf16(std::span<const unsigned char> document);

/// UTF-8 of a document in UTF-16 (RFC 2781), in the byte order of the mark that it begins with; the mark is converted
/// like any other character. A surrogate without its partner becomes three bytes that no UTF-8 holds, so that whoever
/// judges the result refuses it where it stands. The number of bytes must be even.
[[nodiscard]] std::vector<unsigned char> utf8OfUtf16(std::span<const unsigned char> document);

/// UTF-8 of a document in ISO-8859-1.
[[nodiscard]] std::vector<unsigned char> utf8OfLatin1(std::span<const unsigned char> document);

}  // namespace kelt::platform
