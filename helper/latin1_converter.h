#pragma once
// The system's conversion from ISO-8859-1.

#include <cstddef>
#include <iconv.h>
#include <optional>
#include <span>

namespace kelt::helper {

/// A conversion from ISO-8859-1 to another encoding, as iconv offers it. A device may lack it: iconv takes most of its
/// conversions from modules of their own.
class Latin1Converter {
 public:
  /// Opens the conversion to `encoding`, named as iconv names it. Where the system has none, convert tells.
  explicit Latin1Converter(const char* encoding);
  Latin1Converter(const Latin1Converter&) = delete;
  Latin1Converter& operator=(const Latin1Converter&) = delete;
  ~Latin1Converter();

  /// Converts all of `latin1` into `out` and returns the number of bytes written, or nothing where the system has no
  /// such conversion or `out` is too small; `out` then holds what had been converted by then. Each call stands by
  /// itself: no state of the encoding goes from one to the next.
  [[nodiscard]] std::optional<std::size_t> convert(std::span<const char> latin1, std::span<char> out);

 private:
  iconv_t m_conversion;  // or the value that says that there is none
};

}  // namespace kelt::helper
