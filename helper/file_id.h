#pragma once
// Which file a path leads to, whatever it is called.

#include <optional>
#include <string>
#include <sys/types.h>

namespace kelt::helper {

/// A file or directory, told from every other one as long as it exists: by the numbers of its file system and of its
/// inode, which the system gives to another one once it is gone.
struct FileId {
  dev_t device;
  ino_t inode;
  friend bool operator==(const FileId&, const FileId&) = default;
};

/// The file at `path` (UTF-8), links followed; nothing where there is none or it cannot be examined. Opens nothing.
[[nodiscard]] std::optional<FileId> fileIdOf(const std::string& path);

/// Whether both paths lead to one file that is there. False where that cannot be found out.
[[nodiscard]] bool bOneFile(const std::string& path, const std::string& other);

}  // namespace kelt::helper
