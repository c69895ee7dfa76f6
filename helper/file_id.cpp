#include "helper/file_id.h"

#include <sys/stat.h>

namespace kelt::helper {

std::optional<FileId> fileIdOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return FileId{info.st_dev, info.st_ino};
}

bool bOneFile(const std::string& path, const std::string& other) {
  // Through links and mounts: two paths of one file need not have a word in common.
  // What cannot be examined is the same as nothing, not even as itself.
  const auto file = fileIdOf(path);
  return file && file == fileIdOf(other);
}

}  // namespace kelt::helper
