#include "base/standard_descriptors.h"

#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

namespace kelt::base {
namespace {

int childStatus(const std::function<int()>& action) {
  return tests::Child(action).exitStatus();
}

bool bSameFile(int fd, const char* path) {
  struct stat open {};
  struct stat named {};
  return ::fstat(fd, &open) == 0 && ::stat(path, &named) == 0 && open.st_ino == named.st_ino &&
         open.st_rdev == named.st_rdev;
}

class StandardDescriptors : public tests::PrivateDevice {};

TEST_F(StandardDescriptors, PutsTheNullDeviceWhereOneIsClosed) {
  for (int closed = 0; closed <= 2; ++closed) {
    const int status = childStatus([closed] {
      ::close(closed);
      if (!openStandardDescriptors()) return 1;
      if (!bSameFile(closed, "/dev/null")) return 2;
      return ::fcntl(closed, F_GETFD) == 0 ? 0 : 3;  // started commands inherit it
    });
    EXPECT_EQ(status, 0) << closed;
  }
}

TEST_F(StandardDescriptors, KeepsALaterFileFromBecomingOne) {
  EXPECT_EQ(childStatus([] {
              for (int fd = 0; fd <= 2; ++fd)
                ::close(fd);
              if (!openStandardDescriptors()) return 1;
              return ::open("/tmp/file", O_RDWR | O_CREAT | O_CLOEXEC, 0600) > 2 ? 0 : 2;
            }),
            0);
}

TEST_F(StandardDescriptors, LeavesOpenOnesAlone) {
  tests::putFile("/tmp/in", "");
  EXPECT_EQ(childStatus([] {
              const int fd = ::open("/tmp/in", O_RDONLY | O_CLOEXEC);
              ::dup2(fd, STDIN_FILENO);
              return openStandardDescriptors() && bSameFile(STDIN_FILENO, "/tmp/in") ? 0 : 1;
            }),
            0);
}

TEST_F(StandardDescriptors, FailsWithoutANullDevice) {
  EXPECT_EQ(childStatus([] {
              ::close(STDIN_FILENO);
              if (::chroot("/tmp") != 0) return 2;
              ::_exit(openStandardDescriptors() ? 1 : 0);  // a leak check at the exit would need /proc
            }),
            0);
}

}  // namespace
}  // namespace kelt::base
