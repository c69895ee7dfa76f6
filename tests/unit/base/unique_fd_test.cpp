#include "base/unique_fd.h"

#include <fcntl.h>

#include "support/private_device.h"

namespace kelt::base {
namespace {

bool bOpen(int fd) {
  return ::fcntl(fd, F_GETFD) >= 0;
}

TEST(UniqueFd, ClosesWhatItOwnsAtTheEndOfItsScope) {
  int raw = -1;
  {
    const UniqueFd fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    raw = fd.get();
    ASSERT_TRUE(bOpen(raw));
  }
  EXPECT_FALSE(bOpen(raw));
}

TEST(UniqueFd, MovingLeavesNothingBehindAndClosesWhatItReplaces) {
  UniqueFd first(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  UniqueFd second(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int kept = first.get();
  const int replaced = second.get();
  second = std::move(first);
  EXPECT_EQ(second.get(), kept);
  EXPECT_FALSE(bOpen(replaced));
}

TEST(UniqueFd, ReleasedDescriptorStaysOpen) {
  UniqueFd fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int raw = fd.release();
  fd.reset();
  EXPECT_TRUE(bOpen(raw));
  ::close(raw);
}

}  // namespace
}  // namespace kelt::base
