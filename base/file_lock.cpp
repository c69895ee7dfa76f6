#include "base/file_lock.h"

#include <fcntl.h>

namespace kelt::base {
namespace {

bool control(int fd, int command, short type) {
  struct flock whole {};  // a length of 0 is to the end, wherever that will be; l_pid has to be 0 for these locks
  whole.l_type = type;
  whole.l_whence = SEEK_SET;
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

bool bStillNamed(const std::string& path, const struct stat& opened) {
  struct stat named {};
  return ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace kelt::base
