#include "xml/encoding.h"

#include <cstdint>

namespace kelt::platform {
namespace {

bool bLead(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}

bool bTrail(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// The units of a document in the byte order of its mark.
class Utf16Units {
 public:
  explicit Utf16Units(std::span<const unsigned char> document)
      : m_document(document), m_high(document[0] == 0xFE ? 0 : 1) {}

  [[nodiscard]] std::size_t count() const { return m_document.size() / 2; }

  [[nodiscard]] std::uint32_t operator[](std::size_t index) const {
    return std::uint32_t{m_document[2 * index + m_high]} << 8U | m_document[2 * index + 1 - m_high];
  }

  /// Whether the unit at `index` and the one after it are the two halves of one character.
  [[nodiscard]] bool bPair(std::size_t index) const {
    return bLead((*this)[index]) && index + 1 < count() && bTrail((*this)[index + 1]);
  }

 private:
  std::span<const unsigned char> m_document;
  std::size_t m_high;  // where the more significant byte of a unit stands
};

/// Appends the last `count` groups of six bits of `code`, each as a continuation byte.
void appendContinuation(std::vector<unsigned char>& utf8, std::uint32_t code, unsigned count) {
  while (count-- > 0)
    utf8.push_back(static_cast<unsigned char>(0x80U | (code >> 6U * count & 0x3FU)));
}

/// UTF-8 (RFC 3629), but also of half a pair, which that forbids: the judge is to see it, and to refuse it.
void appendUtf8(std::vector<unsigned char>& utf8, std::uint32_t code) {
  if (code < 0x80) {
    utf8.push_back(static_cast<unsigned char>(code));
  } else if (code < 0x800) {
    utf8.push_back(static_cast<unsigned char>(0xC0U | code >> 6U));
    appendContinuation(utf8, code, 1);
  } else if (code < 0x10000) {
    utf8.push_back(static_cast<unsigned char>(0xE0U | code >> 12U));
    appendContinuation(utf8, code, 2);
  } else {
    utf8.push_back(static_cast<unsigned char>(0xF0U | code >> 18U));
    appendContinuation(utf8, code, 3);
  }
}

}  // namespace

bool bMarkedUtf16(std::span<const unsigned char> document) {
  if (document.size() < 2) return false;
  return (document[0] == 0xFE && document[1] == 0xFF) || (document[0] == 0xFF && document[1] == 0xFE);
}

std::vector<unsigned char> utf8OfUtf16(std::span<const unsigned char> document) {
  const Utf16Units units(document);
  std::vector<unsigned char> utf8;
  // Enough for what is ASCII for the most part, without being copied as it grows.
  utf8.reserve(units.count() + units.count() / 8);
  for (std::size_t i = 0; i < units.count(); ++i) {
    // A half without the other is written as it stands, for the judge to refuse.
    std::uint32_t code = units[i];
    // Each half of a pair brings ten bits of what is beyond 0xFFFF (RFC 2781, 2.2).
    if (units.bPair(i)) code = 0x10000U + ((code & 0x3FFU) << 10U) + (units[++i] & 0x3FFU);
    appendUtf8(utf8, code);
  }
  return utf8;
}

std::vector<unsigned char> utf8OfLatin1(std::span<const unsigned char> document) {
  std::vector<unsigned char> utf8;
  utf8.reserve(document.size() + document.size() / 8);
  for (const unsigned char byte : document)
    // The characters of ISO-8859-1 are the first 256 of Unicode.
    appendUtf8(utf8, byte);
  return utf8;
}

}  // namespace kelt::platform
