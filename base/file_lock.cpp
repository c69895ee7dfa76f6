#include "base/file_lock.h"

#include <fcntl.h>

namespace kelt::base {
namespace {

struct flock wholeFile(short type) {
  struct flock whole {};  // a length of 0 is to the end, wherever that will be; l_pid has to be 0 for these locks
  whole.l_type = type;
  whole.l_whence = SEEK_SET;
  return whole;
}

/// Does `command` by a lock of that type (F_RDLCK, F_WRLCK or F_UNLCK) over all of the file, however long it grows.
bool control(int fd, int command, short type) {
  struct flock whole = wholeFile(type);
  return ::fcntl(fd, command, &whole) == 0;
}

short typeOf(FileLock kind) {
  return kind == FileLock::kExclusive ? F_WRLCK : F_RDLCK;
}

}  // namespace

bool tryFileLock(int fd, FileLock kind) {
  return control(fd, F_OFD_SETLK, typeOf(kind));
}

bool waitForFileLock(int fd, FileLock kind) {
  return control(fd, F_OFD_SETLKW, typeOf(kind));
}

bool releaseFileLock(int fd) {
  return control(fd, F_OFD_SETLK, F_UNLCK);
}

std::optional<bool> lookForOtherLock(int fd) {
  // Asked for one that nothing else may stand beside, so that shared locks are found too.
  struct flock whole = wholeFile(F_WRLCK);
  if (::fcntl(fd, F_OFD_GETLK, &whole) != 0) return std::nullopt;
  return whole.l_type != F_UNLCK;
}

bool bStillNamed(const std::string& path, const struct stat& opened) {
  struct stat named {};
  return ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace kelt::base
