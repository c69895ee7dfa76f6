#include "unzip/guard.h"

#include <algorithm>
#include <set>
#include <sys/stat.h>

#include "base/utf.h"

namespace kelt::platform {
namespace {

// A package is a handful of small files. Whatever an archive claims or unpacks to, it must not fill the disk.
constexpr std::uint64_t kMaxEntries = 1024;
constexpr std::uint64_t kMaxBytes = std::uint64_t{64} * 1024 * 1024;
constexpr std::size_t kMaxNameBytes = 512;
constexpr std::size_t kMaxPartBytes = 255;  // what a file system takes
constexpr std::size_t kMaxLevels = 16;

Error refused(std::string_view message) {
  return {ErrorKind::kRefused, 0, std::string(message)};
}
Error tooLarge(std::string_view message) {
  return {ErrorKind::kTooLarge, 0, std::string(message)};
}

bool bForbiddenUnit(wchar_t wide) {
  const auto unit = static_cast<char32_t>(wide);
  if (unit < 0x20 || (unit >= 0x7F && unit <= 0x9F)) return true;
  // Backslash and colon part names on other systems, where a checked name could then lead elsewhere. A surrogate stands
  // for a byte that was no UTF-8.
  return unit == U'\\' || unit == U':' || (unit >= 0xD800 && unit <= 0xDFFF);
}

bool bHarmlessText(std::string_view name) {
  const std::wstring wide = base::toWide(name);
  return std::none_of(wide.begin(), wide.end(), bForbiddenUnit);
}

bool bHarmlessPart(std::string_view part) {
  return !part.empty() && part != "." && part != ".." && part.size() <= kMaxPartBytes;
}

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& byte : lower) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  }
  return lower;
}

/// The names seen so far, without regard to case: on a file system that knows none, the second of two such names would
/// replace what the first one brought.
class NamesTaken {
 public:
  /// Takes a name and the directories that it implies. False when it was there, or is a file here and a directory
  /// there.
  bool take(const JudgedEntry& judged) {
    std::string path;
    for (std::size_t i = 0; i + 1 < judged.parts.size(); ++i) {
      path += (i == 0 ? "" : "/") + lowered(judged.parts[i]);
      // What is a directory on the way to this entry was a file as an earlier one.
      if (m_files.contains(path)) return false;
      m_directories.insert(path);
    }
    path += (path.empty() ? "" : "/") + lowered(judged.parts.back());
    if (!m_entries.insert(path).second) return false;
    if (judged.bDirectory) return true;
    m_files.insert(path);
    return !m_directories.contains(path);
  }

 private:
  std::set<std::string> m_entries;
  std::set<std::string> m_files;
  std::set<std::string> m_directories;
};

/// Links and devices have kinds of their own. An archive that tells none (0) comes from a system without modes.
bool bKindAgrees(const ZipEntry& entry, bool bDirectory) {
  if (bDirectory) return (entry.type == 0 || entry.type == S_IFDIR) && entry.size == 0;
  return entry.type == 0 || entry.type == S_IFREG;
}

Result<JudgedEntry> judgeEntry(const ZipArchive& archive, std::uint64_t index) {
  auto described = archive.describe(index);
  if (!described) return described.error();
  JudgedEntry judged;
  judged.entry = std::move(described).value();
  if (!judged.entry.bPlain) return refused("an entry that is encrypted or packed in an unknown way");

  std::string_view name = judged.entry.name;
  judged.bDirectory = name.ends_with('/');
  if (judged.bDirectory) name.remove_suffix(1);
  if (!bKindAgrees(judged.entry, judged.bDirectory)) return refused("an entry that is no file and no directory");
  auto parts = partsOfName(name);
  if (!parts) return parts.error();
  judged.parts = std::move(parts).value();
  return judged;
}

Result<std::vector<JudgedEntry>> judgeDescriptions(const ZipArchive& archive) {
  if (archive.count() > kMaxEntries) return tooLarge("too many entries");
  std::vector<JudgedEntry> entries;
  NamesTaken names;
  std::uint64_t total = 0;
  for (std::uint64_t index = 0; index < archive.count(); ++index) {
    auto judged = judgeEntry(archive, index);
    if (!judged) return judged.error();
    if (!names.take(judged.value())) return refused("a name that stands for two things");
    // Subtracted, as the sizes are the archive's word, and their sum could begin again at 0.
    if (judged.value().entry.size > kMaxBytes - total) return tooLarge("too much content");
    total += judged.value().entry.size;
    entries.push_back(std::move(judged).value());
  }
  return entries;
}

/// Unpacks all of it to nowhere: a checksum that is wrong in the last entry has to show before the first is written.
Status judgeContents(const ZipArchive& archive, const std::vector<JudgedEntry>& entries) {
  const ZipSink nowhere = [](std::span<const unsigned char>) { return Status(); };
  for (const JudgedEntry& judged : entries) {
    if (auto status = archive.read(judged.entry, nowhere); !status) return status;
  }
  return {};
}

}  // namespace

Result<std::vector<std::string>> partsOfName(std::string_view name) {
  if (name.size() > kMaxNameBytes || !bHarmlessText(name)) return refused("a name with forbidden characters");
  std::vector<std::string> parts;
  std::size_t start = 0;
  // Up to the end and one beyond it: a "/" at the end leaves an empty part, which is refused like one in the middle.
  while (start <= name.size()) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    const std::string_view part = name.substr(start, end - start);
    if (!bHarmlessPart(part) || parts.size() == kMaxLevels) return refused("a name that leads elsewhere");
    parts.emplace_back(part);
    start = end + 1;
  }
  return parts;
}

Result<std::vector<JudgedEntry>> judgeArchive(const ZipArchive& archive) {
  auto entries = judgeDescriptions(archive);
  if (!entries) return entries;
  if (auto status = judgeContents(archive, entries.value()); !status) return status.error();
  return entries;
}

}  // namespace kelt::platform
