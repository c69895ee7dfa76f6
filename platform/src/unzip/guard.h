#pragma once
// The first pass over an archive: whether any of it may be written at all.

#include <string>
#include <string_view>
#include <vector>

#include "unzip/archive.h"

#include "base/result.h"

namespace kelt::platform {

/// An entry that passed, with its name in parts.
struct JudgedEntry {
  ZipEntry entry;
  std::vector<std::string> parts;  ///< one at least, the last is the entry's own name
  bool bDirectory = false;         ///< by the "/" at the end of its name, with which its kind agrees
};

/// Splits an entry's name (without the "/" that ends a directory's) into its parts.
/// Errors: kRefused when it is no harmless relative name (the rules are at NsUnzip).
[[nodiscard]] Result<std::vector<std::string>> partsOfName(std::string_view name);

/// Judges every entry of an archive: name, kind, packing, size, content, which is unpacked for that and thrown away.
/// Nothing is written. Returns the entries in the archive's order. Errors: kRefused, kTooLarge, kMalformed for an
/// archive of which nothing may be written.
[[nodiscard]] Result<std::vector<JudgedEntry>> judgeArchive(const ZipArchive& archive);

}  // namespace kelt::platform
