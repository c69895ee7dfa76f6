#include "base/utf.h"

#include <cstddef>
#include <cstdint>

namespace kelt::base {
namespace {

/// Bytes that are no text become lone trailing surrogates, which no text has: a name in any old encoding comes back as
/// it was.
constexpr std::uint32_t kByteEscape = 0xDC00;
constexpr std::uint32_t kFirstEscaped = kByteEscape + 0x80;
constexpr std::uint32_t kLastEscaped = kByteEscape + 0xFF;
constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint32_t kLimitOfFourBytes = 0x200000;

std::uint32_t byteAt(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

/// One decoded sequence; a length of 0 marks bytes that are none.
struct Decoded {
  std::uint32_t codePoint = 0;
  std::size_t length = 0;
};

/// What a lead byte promises: the length of its sequence, its payload, and the least value that needs that length.
struct Lead {
  std::size_t length;
  std::uint32_t payload;
  std::uint32_t least;
};

Lead leadOf(std::uint32_t byte) {
  if (byte < 0x80) return {1, byte, 0};
  if ((byte & 0xE0U) == 0xC0) return {2, byte & 0x1FU, 0x80};
  if ((byte & 0xF0U) == 0xE0) return {3, byte & 0x0FU, 0x800};
  if ((byte & 0xF8U) == 0xF0) return {4, byte & 0x07U, 0x10000};
  // A continuation byte without a beginning, or the start of five or six bytes, which RFC 3629 has no more.
  return {0, 0, 0};
}

Decoded decodeAt(std::string_view text, std::size_t at) {
  const Lead lead = leadOf(byteAt(text, at));
  if (lead.length == 0 || text.size() - at < lead.length) return {};
  std::uint32_t codePoint = lead.payload;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const std::uint32_t byte = byteAt(text, at + i);
    if ((byte & 0xC0U) != 0x80) return {};
    codePoint = codePoint << 6U | (byte & 0x3FU);
  }
  // A second spelling of a character, by which a name could pass a comparison, is no text (RFC 3629, section 10).
  const bool bSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  if (codePoint < lead.least || codePoint > 0x10FFFF || bSurrogate) return {};
  return {codePoint, lead.length};
}

/// How many bytes a unit takes when it is encoded.
std::size_t lengthOf(std::uint32_t value) {
  if (value < 0x80 || (value >= kFirstEscaped && value <= kLastEscaped)) return 1;
  if (value < 0x800) return 2;
  // What four bytes cannot hold becomes the replacement character, which takes three.
  return value < 0x10000 || value >= kLimitOfFourBytes ? 3 : 4;
}

std::size_t lengthOf(std::wstring_view wide) {
  std::size_t length = 0;
  for (const wchar_t unit : wide)
    length += lengthOf(std::char_traits<wchar_t>::to_int_type(unit));
  return length;
}

void appendByte(std::string& out, std::uint32_t byte) {
  out.push_back(static_cast<char>(byte));
}

void appendTail(std::string& out, std::uint32_t value, unsigned shift) {
  appendByte(out, 0x80U | (value >> shift & 0x3FU));
}

/// Writes a value as UTF-8 writes characters, also one that is none (a lone surrogate): what reads it strictly then
/// refuses it.
void encode(std::string& out, std::uint32_t value) {
  if (value < 0x80) {
    appendByte(out, value);
  } else if (value < 0x800) {
    appendByte(out, 0xC0U | value >> 6U);
    appendTail(out, value, 0);
  } else if (value < 0x10000) {
    appendByte(out, 0xE0U | value >> 12U);
    appendTail(out, value, 6);
    appendTail(out, value, 0);
  } else {
    appendByte(out, 0xF0U | value >> 18U);
    appendTail(out, value, 12);
    appendTail(out, value, 6);
    appendTail(out, value, 0);
  }
}

}  // namespace

std::wstring toWide(std::string_view utf8) {
  std::wstring wide;
  // No text has more characters than bytes.
  wide.reserve(utf8.size());
  for (std::size_t at = 0; at < utf8.size();) {
    const Decoded decoded = decodeAt(utf8, at);
    const bool bText = decoded.length != 0;
    wide.push_back(static_cast<wchar_t>(bText ? decoded.codePoint : kByteEscape + byteAt(utf8, at)));
    // A single byte where it is no text: the next one may begin a character.
    at += bText ? decoded.length : 1;
  }
  return wide;
}

std::string toUtf8(std::wstring_view wide) {
  std::string utf8;
  utf8.reserve(lengthOf(wide));  // so that growing leaves no copies, of a password for instance
  for (const wchar_t unit : wide) {
    const std::uint32_t value = std::char_traits<wchar_t>::to_int_type(unit);
    if (value >= kFirstEscaped && value <= kLastEscaped) {
      appendByte(utf8, value - kByteEscape);
    } else {
      encode(utf8, value < kLimitOfFourBytes ? value : kReplacement);
    }
  }
  return utf8;
}

}  // namespace kelt::base
