#include "provision/received_files.h"

#include <sys/stat.h>
#include <unistd.h>

namespace kelt::provision {

bool bOwnFile(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() && info.st_nlink == 1;
}

}  // namespace kelt::provision
