#pragma once
// Which file a path leads to, whatever it is called.

#include <optional>
#include <string>
#include <sys/types.h>

namespace kelt::helper {

/// A file or directory, told from every other one as long as it exists.
struct FileId {
  dev_t device;
  ino_t inode;
  friend bool operator==(const FileId&, const FileId&) = default;
};

/// The file at `path`, links followed; nothing where there is none or it cannot be examined. Opens nothing.
[[nodiscard]] std::optional<FileId> fileIdOf(const std::string& path);

/// Whether both paths lead to one file that is there.
[[nodiscard]] bool bOneFile(const std::string& path, const std::string& other);

}  // namespace kelt::helper
