#pragma once
// Deleting files with a word about what did not work.

#include <string>

namespace kelt::modes {

/// A file that a switch deletes where it is there: its path, and the texts (each followed by the path) for a failure to
/// examine and to delete it.
struct ClearedFile {
  std::wstring path;
  const wchar_t* inaccessible;
  const wchar_t* notDeleted;
};

/// What the agent caches of its server, in the order in which it is cleared.
[[nodiscard]] ClearedFile serverSiteList();
[[nodiscard]] ClearedFile siteCache();

/// What became of such a file.
enum class Cleared { kAbsent, kDeleted, kFailed };

/// Deletes the file if it is there. Prints the text for it when that fails.
[[nodiscard]] Cleared clearFile(const ClearedFile& file);

/// Deletes the file at `path`, which should be there. Returns false, having printed `notDeleted` and the path, when
/// that fails.
[[nodiscard]] bool deleteOrComplain(const std::wstring& path, const wchar_t* notDeleted);

}  // namespace kelt::modes
