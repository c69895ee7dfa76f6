#pragma once
// Wide and narrow text of the agent's toolkit. Narrow text is UTF-8; the locale is never consulted.

#include <string>
#include <utility>

namespace quorvane_com::orv {

/// Wide to UTF-8. A unit U+DC80..U+DCFF becomes the single byte 0x80..0xFF. Never fails, never loses text.
[[nodiscard]] std::string tellcomn_wide_to_ansi(const std::wstring& wide);

/// UTF-8, decoded strictly, to wide. Each byte that is not part of valid UTF-8 becomes U+DC00 + byte, so that any path
/// makes the round trip. Never fails.
[[nodiscard]] std::wstring tellcomn_ansi_to_wide(const std::string& narrow);

/// Whether this machine stores the most significant byte first.
[[nodiscard]] bool isBigEndian();

}  // namespace quorvane_com::orv

/// A wide string, as the toolkit's operations take paths, names and texts. Null counts as empty.
class AString {
 public:
  AString() = default;
  AString(const wchar_t* text) : m_text(text == nullptr ? L"" : text) {}  // NOLINT(google-explicit-constructor)
  AString(const std::wstring& text) : m_text(text) {}                     // NOLINT(google-explicit-constructor)
  AString(std::wstring&& text) : m_text(std::move(text)) {}               // NOLINT(google-explicit-constructor)

  /// Zero-terminated, never null; valid until the string is changed or destroyed.
  operator const wchar_t*() const { return m_text.c_str(); }  // NOLINT(google-explicit-constructor)
  [[nodiscard]] const std::wstring& str() const { return m_text; }
  /// Whether there is no character in it.
  [[nodiscard]] bool empty() const { return m_text.empty(); }

 private:
  std::wstring m_text;
};

/// The narrow form of a wide text, converted as tellcomn_wide_to_ansi does. Null counts as empty.
class ACharString {
 public:
  /// Converts `text`, zero-terminated. Never fails for what the text holds; throws std::bad_alloc.
  explicit ACharString(const wchar_t* text);

  /// UTF-8, zero-terminated, never null; valid as long as the object lives.
  operator const char*() const { return m_text.c_str(); }  // NOLINT(google-explicit-constructor)
  [[nodiscard]] const std::string& str() const { return m_text; }

 private:
  std::string m_text;
};
