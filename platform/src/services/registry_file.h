#pragma once
// The text of a registry file: values are looked up and deleted, everything else stays byte for byte.
//
// A line is one of these; its end is LF or CRLF, and blanks at its start and end do not count:
//   [path]              starts a section. A line that starts with "[" and does not end with "]" starts one that has no
//                       name and is never found. Several sections of one path count as one.
//   ; or # and text     a comment. A comment after a value is no comment; it makes the value malformed.
//   name=dword:HHHHHHHH a number, exactly eight hexadecimal digits
//   name=hex:HH,HH,...  bytes of two hexadecimal digits each, or none; blanks around the commas are allowed. A "\" at
//                       the end of the line continues it, but only with a line of hexadecimal digits, commas and
//                       blanks, so that a stray "\" never swallows what follows.
//   name=...            a value of another type; one that starts with "hex" is continued in the same way
// Whatever else stands there is kept. Section and value names, "dword" and "hex" are matched without regard to case
// (ASCII). The text holds keys: it stays in memory that is wiped.

#include <string_view>

#include "base/result.h"
#include "base/secret.h"
#include "platform/registry.h"

namespace kelt::platform {

/// A value as RegQueryValueEx hands it over: the bytes, or the std::uint32_t of a number in this machine's byte order.
struct RegistryValue {
  RegistryType type;
  base::SecretBytes bytes;
};

/// Holds nothing but the text, whatever stands in it: each look goes through it, so that a file takes memory in
/// proportion to its size, and time for each question.
class RegistryFile {
 public:
  /// Takes the content of a file. Errors: kMalformed when it has a zero byte, which no such text has.
  [[nodiscard]] static Result<RegistryFile> parse(base::SecretBytes content);

  /// Whether there is a section of that path, with values in it or without.
  [[nodiscard]] bool bHasSection(std::string_view section) const;

  /// The first value of that name. Errors: kNotFound; kMalformed when it has another type or does not follow its form.
  [[nodiscard]] Result<RegistryValue> find(std::string_view section, std::string_view name) const;

  /// Deletes all lines of all values of that name. Returns false when there is none. An empty line stays in their place
  /// where the value before would otherwise be continued by the line after.
  bool remove(std::string_view section, std::string_view name);

  /// The text without the deleted lines.
  [[nodiscard]] const base::SecretBytes& content() const { return m_content; }

 private:
  [[nodiscard]] std::string_view text() const;

  base::SecretBytes m_content;
};

}  // namespace kelt::platform
