#pragma once
// Text that arrives in ISO-8859-1.

#include <cstdint>
#include <string>

namespace kelt::helper {

/// Widens ISO-8859-1: each byte becomes the wide character of the same code, up to the first zero byte. Never fails;
/// without memory the result is empty.
[[nodiscard]] std::wstring latin1_to_unicode(const std::string& latin1);

/// The same into the buffer `out` of `*capacity` wide characters, the terminating zero included. Returns 1 for a null
/// argument, else 0; a buffer that is too small is left untouched. `*capacity` is only read. No copy of the text is
/// left in memory but the one in `out`.
std::int32_t convert_latin1_to_unicode(const char* latin1, wchar_t* out, std::int32_t* capacity);

}  // namespace kelt::helper
