#include "helper/file_id.h"

#include <sys/stat.h>

#include "platform/astring.h"

namespace kelt::helper {

std::optional<FileId> fileIdOf(const std::wstring& path) {
  struct stat info {};
  if (::stat(quorvane_com::orv::tellcomn_wide_to_ansi(path).c_str(), &info) != 0) return std::nullopt;
  return FileId{info.st_dev, info.st_ino};
}

bool bOneFile(const std::wstring& path, const std::wstring& other) {
  const auto file = fileIdOf(path);
  return file && file == fileIdOf(other);
}

}  // namespace kelt::helper
