#include "base/standard_descriptors.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace kelt::base {

bool openStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest free descriptor is this one. Not close-on-exec: a started command needs its standard descriptors too.
    if (::open("/dev/null", O_RDWR) != fd) return false;
  }
  return true;
}

}  // namespace kelt::base
