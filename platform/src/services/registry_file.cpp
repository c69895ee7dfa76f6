#include "services/registry_file.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

namespace kelt::platform {
namespace {

using base::SecretBytes;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kNumberPrefix = "dword:";
constexpr std::string_view kBytesPrefix = "hex:";
constexpr std::string_view kContinuablePrefix = "hex";  // "hex(7):" too

/// ASCII alone: a locale must not decide which names are the same.
char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool bSameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

bool bStartsWith(std::string_view text, std::string_view prefix) {
  return bSameName(text.substr(0, prefix.size()), prefix);
}

bool bBlank(char c) {
  return kBlanks.find(c) != std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<unsigned> digitOf(char c) {
  const char low = lower(c);
  if (low >= '0' && low <= '9') return static_cast<unsigned>(low - '0');
  if (low >= 'a' && low <= 'f') return static_cast<unsigned>(low - 'a') + 10;
  return std::nullopt;
}

/// Whether a line can continue the bytes of the line before.
bool bContinues(std::string_view line) {
  line = trimmed(line);
  // It is continued itself.
  if (!line.empty() && line.back() == '\\') line.remove_suffix(1);
  const auto bFits = [](char c) { return digitOf(c) || c == ',' || bBlank(c); };
  const auto bDigit = [](char c) { return digitOf(c).has_value(); };
  return std::all_of(line.begin(), line.end(), bFits) && std::any_of(line.begin(), line.end(), bDigit);
}

/// Steps through the values of a text, and through the sections on the way.
class ValueReader {
 public:
  /// A byte order mark, as editors of other systems write one, is passed over: it would hide the first section.
  /// `section`: the one whose values are wanted.
  ValueReader(std::string_view text, std::string_view section)
      : m_text(text), m_section(section), m_end(bStartsWith(text, kByteOrderMark) ? kByteOrderMark.size() : 0) {}

  /// Steps to the next value of any section. Returns false at the end of the text.
  bool next() {
    while (m_end < m_text.size()) {
      m_begin = m_end;
      m_end = endOfLine(m_begin);
      if (readValue()) return true;
    }
    return false;
  }

  [[nodiscard]] bool bIs(std::string_view name) const { return m_bWanted && bSameName(m_name, name); }
  [[nodiscard]] std::size_t begin() const { return m_begin; }  ///< of its first line
  [[nodiscard]] std::size_t end() const { return m_end; }      ///< after the line end of its last line
  [[nodiscard]] std::string_view data() const { return m_text.substr(m_data, m_end - m_data); }

  /// Whether a line that can continue bytes would be taken for part of the value, if it came after it.
  [[nodiscard]] bool bOpen() const { return m_bOpen; }
  /// Whether the line after the value is such a line.
  [[nodiscard]] bool bContinuationAfter() const { return m_end < m_text.size() && bContinues(lineAt(m_end)); }
  /// Whether the section was met so far.
  [[nodiscard]] bool bSectionMet() const { return m_bMet; }

 private:
  /// Takes the line at m_begin, and those that continue it, for a value. Returns false where it is none.
  bool readValue() {
    const std::string_view line = m_text.substr(m_begin, m_end - m_begin);
    const std::string_view content = trimmed(line);
    if (content.empty() || content.front() == ';' || content.front() == '#') return false;
    if (content.front() == '[') {
      startSection(content);
      return false;
    }
    const std::size_t equals = line.find('=');
    // Before the first section a line belongs to no key; what has no "=" is kept, and is no value.
    if (equals == std::string_view::npos || !m_bInSection) return false;
    m_name = trimmed(line.substr(0, equals));
    m_data = m_begin + equals + 1;
    readFurtherLines();
    return true;
  }

  void startSection(std::string_view line) {
    m_bInSection = true;
    const bool bNamed = line.size() > 2 && line.back() == ']';
    m_bWanted = bNamed && bSameName(line.substr(1, line.size() - 2), m_section);
    m_bMet |= m_bWanted;
  }

  /// Moves the end past the lines that continue the first one.
  void readFurtherLines() {
    std::string_view last = trimmed(data());
    const bool bContinuable = bStartsWith(last, kContinuablePrefix);
    while (bContinuable && last.back() == '\\' && bContinuationAfter()) {
      last = trimmed(lineAt(m_end));
      m_end = endOfLine(m_end);
    }
    m_bOpen = bContinuable && last.back() == '\\';
  }

  [[nodiscard]] std::size_t endOfLine(std::size_t begin) const {
    const std::size_t lineFeed = m_text.find('\n', begin);
    return lineFeed == std::string_view::npos ? m_text.size() : lineFeed + 1;
  }
  [[nodiscard]] std::string_view lineAt(std::size_t begin) const {
    return m_text.substr(begin, endOfLine(begin) - begin);
  }

  std::string_view m_text;
  std::string_view m_section;
  std::string_view m_name;
  std::size_t m_begin = 0;
  std::size_t m_data = 0;  // after the "="
  std::size_t m_end;
  bool m_bInSection = false;
  bool m_bWanted = false;
  bool m_bMet = false;
  bool m_bOpen = false;
};

/// Moves what is kept of a text to its front, while the rest is still being read. In place, as a second copy would be
/// as much memory again, and another place that holds keys.
class Compaction {
 public:
  explicit Compaction(SecretBytes& content) : m_content(content) {}

  /// Leaves out what stands from `begin` to `end`, which comes after all that was left out before.
  void leaveOut(std::size_t begin, std::size_t end) {
    keepUpTo(begin);
    m_from = end;
  }

  /// Puts a line end where something was left out.
  void addLineEnd() { m_content[m_kept++] = '\n'; }

  void finish() {
    keepUpTo(m_content.size());
    // At once: what was left out may be a key, and a vector keeps its memory when it shrinks.
    base::wipe(m_content.data() + m_kept, m_content.size() - m_kept);
    m_content.resize(m_kept);
  }

 private:
  void keepUpTo(std::size_t end) {
    if (m_kept != m_from) std::memmove(m_content.data() + m_kept, m_content.data() + m_from, end - m_from);
    m_kept += end - m_from;
    m_from = end;
  }

  SecretBytes& m_content;
  std::size_t m_kept = 0;  // bytes at the front that are done
  std::size_t m_from = 0;  // where what is not yet moved begins
};

/// Reads "HH,HH,..." from a text that may go over several lines.
class ByteList {
 public:
  /// Takes room for all of them: a key that grows leaves copies, to be wiped one by one.
  explicit ByteList(std::string_view text) : m_rest(trimmed(text)) { m_bytes.reserve(m_rest.size() / 3 + 1); }

  std::optional<SecretBytes> read() && {
    skipBlanks();
    if (m_rest.empty()) return std::move(m_bytes);
    while (readByte()) {
      skipBlanks();
      if (m_rest.empty()) return std::move(m_bytes);
      if (m_rest.front() != ',') return std::nullopt;
      m_rest.remove_prefix(1);
      skipBlanks();
    }
    return std::nullopt;
  }

 private:
  bool readByte() {
    if (m_rest.size() < 2) return false;
    const auto high = digitOf(m_rest[0]);
    const auto low = digitOf(m_rest[1]);
    if (!high || !low) return false;
    m_bytes.push_back(static_cast<unsigned char>(*high * 16 + *low));
    m_rest.remove_prefix(2);
    return true;
  }

  /// Skips blanks and continuations: a "\" that is the last of its line, with the line end.
  void skipBlanks() {
    while (!m_rest.empty() && (bBlank(m_rest.front()) || bAtContinuation()))
      m_rest.remove_prefix(1);
  }

  [[nodiscard]] bool bAtContinuation() const {
    if (m_rest.front() != '\\') return false;
    // Only at the end of its line: anywhere else it belongs to no list of bytes, and is for nobody to guess at.
    const std::size_t next = m_rest.find_first_not_of(" \t\r", 1);
    return next != std::string_view::npos && m_rest[next] == '\n';
  }

  std::string_view m_rest;
  SecretBytes m_bytes;
};

std::optional<SecretBytes> numberOf(std::string_view digits) {
  if (digits.size() != 8) return std::nullopt;
  std::uint32_t number = 0;
  for (const char c : digits) {
    const auto digit = digitOf(c);
    if (!digit) return std::nullopt;
    number = number * 16 + *digit;
  }
  SecretBytes bytes(sizeof(number));
  // In the byte order of this machine, in which the caller reads it; the digits have none.
  std::memcpy(bytes.data(), &number, sizeof(number));
  return bytes;
}

Result<RegistryValue> valueOf(std::string_view data) {
  data = trimmed(data);
  const bool bNumber = bStartsWith(data, kNumberPrefix);
  if (!bNumber && !bStartsWith(data, kBytesPrefix)) return Error{ErrorKind::kMalformed, 0, "value of another type"};
  auto bytes =
      bNumber ? numberOf(data.substr(kNumberPrefix.size())) : ByteList(data.substr(kBytesPrefix.size())).read();
  if (!bytes) return Error{ErrorKind::kMalformed, 0, "value that does not follow its type"};
  return RegistryValue{bNumber ? kRegistryNumber : kRegistryBytes, std::move(*bytes)};
}

}  // namespace

Result<RegistryFile> RegistryFile::parse(SecretBytes content) {
  // No editor writes one: the file is damaged, or no text at all, and must not be written again as if it were.
  if (std::find(content.begin(), content.end(), 0) != content.end()) {
    return Error{ErrorKind::kMalformed, 0, "registry file with a zero byte"};
  }
  RegistryFile file;
  file.m_content = std::move(content);
  return file;
}

bool RegistryFile::bHasSection(std::string_view section) const {
  ValueReader reader(text(), section);
  // The values are only steps on the way: a section without any is met as well.
  while (!reader.bSectionMet() && reader.next()) {
  }
  return reader.bSectionMet();
}

Result<RegistryValue> RegistryFile::find(std::string_view section, std::string_view name) const {
  ValueReader reader(text(), section);
  while (reader.next()) {
    if (reader.bIs(name)) return valueOf(reader.data());
  }
  return Error{ErrorKind::kNotFound, 0, "no such value"};
}

bool RegistryFile::remove(std::string_view section, std::string_view name) {
  bool bFound = false;
  std::size_t openUpTo = 0;  // where what is kept ends with an open value; 0: it does not
  Compaction compaction(m_content);
  ValueReader reader(text(), section);
  while (reader.next()) {
    if (!reader.bIs(name)) {
      openUpTo = reader.bOpen() ? reader.end() : 0;
      continue;
    }
    bFound = true;
    // Without the value between them, an open line would take the line after it for its continuation.
    const bool bJoined = openUpTo == reader.begin();
    compaction.leaveOut(reader.begin(), reader.end());
    if (bJoined && reader.bContinuationAfter()) compaction.addLineEnd();
    openUpTo = bJoined ? reader.end() : 0;
  }
  compaction.finish();
  return bFound;
}

std::string_view RegistryFile::text() const {
  return {reinterpret_cast<const char*>(m_content.data()), m_content.size()};
}

}  // namespace kelt::platform
