#include "check/look.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace kelt::check {

Result<struct stat> lookAt(const std::string& path, bool bLink) {
  struct stat info {};
  const int done = bLink ? ::lstat(path.c_str(), &info) : ::stat(path.c_str(), &info);
  if (done != 0) return base::systemError("examine " + path);
  return info;
}

Result<struct statvfs> fileSystemOf(const std::string& path) {
  struct statvfs info {};
  if (::statvfs(path.c_str(), &info) != 0) return base::systemError("examine the file system of " + path);
  return info;
}

bool bImmutable(const std::string& path) {
  // An older system without this call answers ENOSYS; then nothing is against the file.
  struct statx info {};
  if (::statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, 0, &info) != 0) return false;
  // A file system that knows no such attributes leaves them out of the mask.
  constexpr auto kFixed = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
  return (info.stx_attributes & info.stx_attributes_mask & kFixed) != 0;
}

const char* kindOf(const struct stat& info) {
  switch (info.st_mode & S_IFMT) {
    case S_IFDIR:
      return "directory";
    case S_IFLNK:
      return "symbolic link";
    case S_IFIFO:
      return "FIFO";
    case S_IFSOCK:
      return "socket";
    case S_IFBLK:
    case S_IFCHR:
      return "device";
    default:
      return "file";
  }
}

}  // namespace kelt::check
