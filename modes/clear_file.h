#pragma once
// Deleting files with a word about what did not work.

#include <string>

namespace kelt::modes {

/// A file that a switch deletes where it is there: its path (UTF-8), and the console texts, each to be followed by the
/// path, for a failure to examine it and for one to delete it.
struct FileToClear {
  std::string path;
  const char* inaccessible;
  const char* notDeleted;
};

/// What the agent caches of its server, in the order in which it is cleared.
/// Switches in both directions clear both, as they speak of the server before.
[[nodiscard]] FileToClear serverSiteList();
[[nodiscard]] FileToClear siteCache();

/// What became of such a file.
enum class Cleared {
  kAbsent,   ///< it was not there
  kDeleted,  ///< it is gone; a power cut may bring it back until its directory is synced
  kFailed,   ///< it is there, or that is not known
};

/// Deletes the file if it is there. Where that fails, prints the text for it; nothing has changed then.
[[nodiscard]] Cleared clearFile(const FileToClear& file);

/// Deletes the file at `path`, which should be there. Returns false, having printed `notDeleted` and the path, when
/// that fails.
[[nodiscard]] bool deleteOrComplain(const std::string& path, const char* notDeleted);

}  // namespace kelt::modes
