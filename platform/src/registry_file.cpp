#include "registry_file.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

namespace kelt::platform {
namespace {

using base::Error;
using base::ErrorKind;
using base::Result;
using base::SecretBytes;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kNumberPrefix = "dword:";
constexpr std::string_view kBytesPrefix = "hex:";
constexpr std::string_view kContinuablePrefix = "hex";  // "hex(7):" too

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
  if (!line.empty() && line.back() == '\\') line.remove_suffix(1);
  const auto bFits = [](char c) { return digitOf(c) || c == ',' || bBlank(c); };
  const auto bDigit = [](char c) { return digitOf(c).has_value(); };
  return std::all_of(line.begin(), line.end(), bFits) && std::any_of(line.begin(), line.end(), bDigit);
}

/// Reads "HH,HH,..." from a text that may go over several lines.
class ByteList {
 public:
  explicit ByteList(std::string_view text) : m_rest(trimmed(text)) { m_bytes.reserve(m_rest.size() / 3 + 1); }

  std::optional<SecretBytes> read() && {
    skipBlanks();
    if (m_rest.empty()) return std::move(m_bytes);
    while (bReadByte()) {
      skipBlanks();
      if (m_rest.empty()) return std::move(m_bytes);
      if (m_rest.front() != ',') return std::nullopt;
      m_rest.remove_prefix(1);
      skipBlanks();
    }
    return std::nullopt;
  }

 private:
  bool bReadByte() {
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
  if (std::find(content.begin(), content.end(), 0) != content.end()) {
    return Error{ErrorKind::kMalformed, 0, "registry file with a zero byte"};
  }
  RegistryFile file;
  file.m_content = std::move(content);
  file.readLines();
  return file;
}

bool RegistryFile::bHasSection(std::string_view section) const {
  const auto bIs = [&](const std::string& name) { return bSameName(name, section); };
  return !section.empty() && std::any_of(m_sections.begin(), m_sections.end(), bIs);
}

Result<RegistryValue> RegistryFile::find(std::string_view section, std::string_view name) const {
  for (const ValueLines& value : m_values) {
    if (value.bRemoved || !bSameName(value.section, section) || !bSameName(value.name, name)) continue;
    return valueOf(text().substr(value.data, value.end - value.data));
  }
  return Error{ErrorKind::kNotFound, 0, "no such value"};
}

bool RegistryFile::remove(std::string_view section, std::string_view name) {
  bool bFound = false;
  for (ValueLines& value : m_values) {
    if (value.bRemoved || !bSameName(value.section, section) || !bSameName(value.name, name)) continue;
    value.bRemoved = true;
    bFound = true;
  }
  return bFound;
}

SecretBytes RegistryFile::content() const {
  SecretBytes kept;
  kept.reserve(m_content.size());
  std::size_t from = 0;
  const auto keepUpTo = [&](std::size_t to) {
    const std::string_view piece = text().substr(from, to - from);
    kept.insert(kept.end(), piece.begin(), piece.end());
  };
  for (const ValueLines& value : m_values) {
    if (!value.bRemoved) continue;
    keepUpTo(value.begin);
    from = value.end;
  }
  keepUpTo(m_content.size());
  return kept;
}

void RegistryFile::readLines() {
  std::size_t begin = text().substr(0, 3) == "\xEF\xBB\xBF" ? 3 : 0;
  while (begin < m_content.size()) {
    std::size_t end = endOfLine(begin);
    readLine(begin, end);
    begin = end;
  }
}

/// Takes note of the line from `begin` to `end`, and moves `end` behind the lines that continue it.
void RegistryFile::readLine(std::size_t begin, std::size_t& end) {
  const std::string_view line = text().substr(begin, end - begin);
  const std::string_view content = trimmed(line);
  if (content.empty() || content.front() == ';' || content.front() == '#') return;
  if (content.front() == '[') return startSection(content);

  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || m_sections.empty()) return;
  const std::size_t data = begin + equals + 1;
  end = endOfValue(data, end);
  m_values.push_back({m_sections.back(), std::string(trimmed(line.substr(0, equals))), begin, data, end});
}

void RegistryFile::startSection(std::string_view line) {
  m_sections.emplace_back(line.back() == ']' ? line.substr(1, line.size() - 2) : std::string_view());
}

std::string_view RegistryFile::text() const {
  return {reinterpret_cast<const char*>(m_content.data()), m_content.size()};
}

std::size_t RegistryFile::endOfLine(std::size_t begin) const {
  const std::size_t lineFeed = text().find('\n', begin);
  return lineFeed == std::string_view::npos ? m_content.size() : lineFeed + 1;
}

std::size_t RegistryFile::endOfValue(std::size_t data, std::size_t firstEnd) const {
  std::size_t end = firstEnd;
  std::string_view last = trimmed(text().substr(data, firstEnd - data));
  if (!bStartsWith(last, kContinuablePrefix)) return end;
  while (last.back() == '\\' && end < m_content.size()) {
    const std::size_t next = endOfLine(end);
    last = trimmed(text().substr(end, next - end));
    if (!bContinues(last)) break;
    end = next;
  }
  return end;
}

}  // namespace kelt::platform
