#include "check/look.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>

namespace kelt::check {
namespace {

/// Whether one of `attributes` is set. What a file system or the system does not know of is not in the mask; a system
/// that does not know the call at all answers ENOSYS.
bool bHasAttribute(const std::string& path, std::uint64_t attributes) {
  struct statx info {};
  if (::statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, 0, &info) != 0) return false;
  return (info.stx_attributes & info.stx_attributes_mask & attributes) != 0;
}

}  // namespace

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

const char* whyFixed(const std::string& path) {
  const auto system = fileSystemOf(path);
  if (system && (system.value().f_flag & ST_RDONLY) != 0) return "is on a file system that is read-only";
  if (bHasAttribute(path, STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) return "cannot be changed, by its attributes";
  return nullptr;
}

bool bMountPoint(const std::string& path) {
  return bHasAttribute(path, STATX_ATTR_MOUNT_ROOT);
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
