#pragma once
// Where a file is, or is to be.

#include <optional>
#include <string>

#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::base {

/// A name in a directory that is held open, so that nothing that happens to the path meanwhile matters.
struct Place {
  UniqueFd directory;     ///< open for reading, or O_PATH
  bool bSyncable = true;  ///< false where the directory may be entered but not read: it cannot be synced then
  std::string name;
  std::string path;  ///< for messages
};

/// As many symbolic links as the system follows in one path.
inline constexpr int kMostLinks = 40;

/// The place of what stands under `path` itself; a symbolic link there is not followed. Errors: kRefused for a path
/// that ends in no name; kNotFound, kSystem for its directory.
[[nodiscard]] Result<Place> openPlace(const std::string& path);

/// The same for a path that, unless it is absolute, begins in the open directory `from` (AT_FDCWD for the working
/// directory), which messages call `fromPath`.
[[nodiscard]] Result<Place> openPlace(int from, const std::string& fromPath, const std::string& path);

/// The place that the symbolic link at `place` leads to, one step; nothing where no symbolic link stands. Errors as
/// openPlace, and kSystem for a link that cannot be read.
[[nodiscard]] Result<std::optional<Place>> followLink(const Place& place);

/// The place of the file that `path` leads to, through any symbolic links, whether it exists or not. Errors as
/// openPlace; kSystem (ELOOP) for more than kMostLinks.
[[nodiscard]] Result<Place> findPlace(const std::string& path);

/// Opens the regular file at `place` for reading: no descriptor when there is nothing. Errors: kRefused for whatever
/// else stands there; kSystem.
[[nodiscard]] Result<UniqueFd> openExisting(const Place& place);

/// Makes the changes of entries in the open directory `fd` durable. `name` is what messages call it. Errors:
/// kSystem. A file system that cannot sync a directory (EINVAL) counts as done.
[[nodiscard]] Status syncDirectory(int fd, const std::string& name);

/// The same for a directory by its path.
[[nodiscard]] Status syncDirectory(const std::string& directory);

/// The directory part of a path: "." where it has none, "/" for the root.
[[nodiscard]] std::string directoryOf(const std::string& path);

}  // namespace kelt::base
