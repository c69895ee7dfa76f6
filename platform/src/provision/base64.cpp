#include "platform/base64.h"

#include <array>
#include <cstdint>
#include <new>
#include <string_view>

// A decoder of our own: a reply is wide text, and narrowing it for a library's decoder, which has to be guarded against
// characters that it takes for the end, costs more than decoding it.

namespace {

constexpr std::uint8_t kNoDigit = 0x40;  // values below are six bits of content
constexpr std::uint8_t kSkipped = 0x41;
constexpr std::uint8_t kPadding = 0x42;
constexpr std::uint8_t kForbidden = 0x43;

constexpr std::array<std::uint8_t, 128> meanings() {
  std::array<std::uint8_t, 128> table{};
  table.fill(kForbidden);
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t i = 0; i < kDigits.size(); ++i) {
    table[static_cast<unsigned char>(kDigits[i])] = static_cast<std::uint8_t>(i);
  }
  // Lines may be broken anywhere (RFC 2045, 6.8). All else that is no digit is refused (RFC 4648, 3.3).
  for (const char blank : {'\r', '\n', ' ', '\t'})
    table[static_cast<unsigned char>(blank)] = kSkipped;
  table['='] = kPadding;
  return table;
}

constexpr std::array<std::uint8_t, 128> kMeanings = meanings();

std::uint8_t meaningOf(wchar_t unit) {
  const auto index = static_cast<char32_t>(unit);
  return index < kMeanings.size() ? kMeanings[index] : kForbidden;
}

/// The 24 bits of four digits, or kNoGroup where they are not all digits.
constexpr std::uint32_t kNoGroup = 0xFFFFFFFF;
std::uint32_t groupOf(const wchar_t* units) {
  const auto a = static_cast<char32_t>(units[0]);
  const auto b = static_cast<char32_t>(units[1]);
  const auto c = static_cast<char32_t>(units[2]);
  const auto d = static_cast<char32_t>(units[3]);
  // One comparison for all four, since nearly all of them pass.
  if ((a | b | c | d) >= kMeanings.size()) return kNoGroup;
  const std::uint32_t first = kMeanings[a];
  const std::uint32_t second = kMeanings[b];
  const std::uint32_t third = kMeanings[c];
  const std::uint32_t fourth = kMeanings[d];
  if ((first | second | third | fourth) >= kNoDigit) return kNoGroup;
  return first << 18U | second << 12U | third << 6U | fourth;
}

/// Decodes the groups of four digits that `text` begins with, three bytes each. Returns how many they were.
std::size_t decodeGroups(std::wstring_view text, unsigned char* target) {
  const wchar_t* units = text.data();
  const std::size_t whole = text.size() / 4;
  for (std::size_t group = 0; group < whole; ++group, units += 4, target += 3) {
    const std::uint32_t bits = groupOf(units);
    if (bits == kNoGroup) return group;
    target[0] = static_cast<unsigned char>(bits >> 16U);
    target[1] = static_cast<unsigned char>(bits >> 8U);
    target[2] = static_cast<unsigned char>(bits);
  }
  return whole;
}

/// Decodes into a buffer that is large enough.
class Decoder {
 public:
  explicit Decoder(unsigned char* target) : m_start(target), m_next(target) {}

  /// Takes what it can of whole groups at once. Returns the number of characters.
  std::size_t addGroups(std::wstring_view text) {
    if (m_digits != 0 || m_padding != 0) return 0;
    const std::size_t groups = decodeGroups(text, m_next);
    m_next += groups * 3;
    return groups * 4;
  }

  /// Takes one character. False when it must not stand there.
  bool add(wchar_t unit) {
    const std::uint8_t meaning = meaningOf(unit);
    if (meaning == kSkipped) return true;
    if (meaning == kPadding) return ++m_padding <= 2;
    if (meaning == kForbidden || m_padding != 0) return false;
    m_bits = m_bits << 6U | meaning;
    if (++m_digits == 4) {
      put(m_bits, 3);
      m_digits = 0;
      m_bits = 0;
    }
    return true;
  }

  /// Completes a padded group. False when the text may not end here.
  bool finish() {
    // A single digit is six bits, which make no byte.
    if ((m_digits + m_padding) % 4 != 0 || m_digits == 1) return false;
    if (m_digits == 0) return m_padding == 0;
    // Bits beyond the last byte are dropped, whatever they are, as a decoder may (RFC 4648, 3.5).
    put(m_bits << 6U * m_padding, m_digits - 1);
    return true;
  }

  [[nodiscard]] std::size_t written() const { return static_cast<std::size_t>(m_next - m_start); }

 private:
  /// Writes the first `count` of three bytes.
  void put(std::uint32_t group, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i)
      *m_next++ = static_cast<unsigned char>(group >> (16U - 8U * i));
  }

  unsigned char* m_start;
  unsigned char* m_next;
  std::uint32_t m_bits = 0;
  unsigned int m_digits = 0;   // of a group that has begun
  unsigned int m_padding = 0;  // at most two, and nothing but blanks after
};

bool decodeAll(std::wstring_view text, Decoder& decoder) {
  while (true) {
    // Whole groups at a time, as a reply is mostly these; a line end or the padding is then taken by itself.
    text.remove_prefix(decoder.addGroups(text));
    if (text.empty()) return decoder.finish();
    if (!decoder.add(text.front())) return false;
    text.remove_prefix(1);
  }
}

}  // namespace

ABuffer ABase64Encode::decode(const AString& text) {
  ABuffer decoded;
  // Room for all that the text can hold; blanks and padding make it less.
  if (!decoded.allocate(text.str().size() / 4 * 3 + 3)) throw std::bad_alloc();
  Decoder decoder(decoded.data());
  if (!decodeAll(text.str(), decoder)) return {};
  decoded.shorten(decoder.written());
  return decoded;
}
